#include "foundation/library_lock.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace {

// Spelled out: no memory is needed while the lock is held.
constexpr char library_lock_path[] = "/dev/shm/sem.vask_shm_lock";

}  // namespace

library_lock_watch::library_lock_watch(const sem_t* held) : m_held(held) {
    struct stat file;
    // The file that was looked at first is the handle's if the name still leads to the handle
    // afterwards: a name that was removed never leads back.
    if (stat(library_lock_path, &file) == 0 && name_leads_to_handle()) {
        m_device = file.st_dev;
        m_number = file.st_ino;
    }
}

bool library_lock_watch::is_still_held() const {
    struct stat file;
    if (stat(library_lock_path, &file) == 0 && file.st_ino == m_number && file.st_dev == m_device) {
        return true;
    }
    return name_leads_to_handle();
}

// A semaphore that a process opens again has the same address.
bool library_lock_watch::name_leads_to_handle() const {
    sem_t* named = sem_open(library_lock_name, 0);
    if (named == SEM_FAILED) {
        return false;
    }
    sem_close(named);
    return named == m_held;
}
