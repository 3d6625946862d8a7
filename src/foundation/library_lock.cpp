#include "foundation/library_lock.h"

#include <sys/stat.h>

#include "foundation/named_sem.h"

namespace {

// Spelled out: no memory is needed while the lock is held.
constexpr char library_lock_path[] = "/dev/shm/sem.vask_shm_lock";

}  // namespace

library_lock_watch::library_lock_watch(sem_t* held) : m_held(held) {
    struct stat file;
    // The file that was looked at first is the handle's if the name still leads to the handle
    // afterwards: a name that was removed never leads back.
    if (stat(library_lock_path, &file) == 0 && is_named_sem(library_lock_name, m_held)) {
        m_device = file.st_dev;
        m_number = file.st_ino;
    }
}

bool library_lock_watch::is_still_held() const {
    struct stat file;
    if (stat(library_lock_path, &file) == 0 && file.st_ino == m_number && file.st_dev == m_device) {
        return true;
    }
    return is_named_sem(library_lock_name, m_held);
}
