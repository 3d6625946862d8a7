#include "foundation/named_sem.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

namespace {

constexpr int file_lock_attempts = 100;
constexpr useconds_t file_lock_pause_usec = 10000;

bool has_right_size(const struct stat& file) {
    return file.st_size == static_cast<off_t>(sizeof(sem_t));
}

bool is_same_file(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

std::string named_sem_path(const char* name) {
    while (*name == '/') {
        ++name;
    }
    return std::string("/dev/shm/sem.") + name;
}

sem_t* open_named_sem(const char* name, mode_t mode, unsigned int value) {
    sem_t* sem = sem_open(name, O_CREAT, mode, value);
    if (sem == SEM_FAILED) {
        return nullptr;
    }
    struct stat file;
    if (stat(named_sem_path(name).c_str(), &file) == 0 && !has_right_size(file)) {
        sem_close(sem);
        errno = EINVAL;
        return nullptr;
    }
    return sem;
}

tracked_named_sem::tracked_named_sem(const char* name, mode_t mode, unsigned int value)
    : m_name(name), m_path(named_sem_path(name)), m_handle(nullptr) {
    // Round again while others remove the name between our steps.
    while (!open_existing()) {
        if (errno != ENOENT) {
            return;
        }
        sem_t* created = open_named_sem(name, mode, value);
        if (created == nullptr) {
            return;
        }
        sem_close(created);
    }
}

tracked_named_sem::~tracked_named_sem() {
    if (m_handle != nullptr) {
        sem_close(m_handle);
    }
}

sem_t* tracked_named_sem::release() {
    return std::exchange(m_handle, nullptr);
}

bool tracked_named_sem::open_existing() {
    // The file comes first and stays open, so its identity cannot be reused: if the name leads to
    // it after the semaphore was opened as well, both are the same. A pipe is not waited for.
    m_file = unique_fd(open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
    if (!m_file) {
        return false;
    }
    struct stat file;
    if (fstat(m_file.get(), &file) != 0) {
        return false;
    }
    if (!has_right_size(file)) {
        errno = EINVAL;
        return false;
    }
    sem_t* sem = sem_open(m_name, 0);
    if (sem == SEM_FAILED) {
        return false;
    }
    if (!is_current()) {
        sem_close(sem);
        errno = ENOENT;
        return false;
    }
    m_handle = sem;
    return true;
}

bool tracked_named_sem::is_current() const {
    struct stat opened;
    struct stat named;
    return fstat(m_file.get(), &opened) == 0 && stat(m_path.c_str(), &named) == 0 &&
           is_same_file(opened, named);
}

void tracked_named_sem::close_and_remove() {
    sem_close(std::exchange(m_handle, nullptr));
    // The file lock makes test and removal one step among all who break this very semaphore. But
    // whoever may read the file can lock it and keep it locked, so nobody waits for it long.
    for (int i = 0; i < file_lock_attempts && flock(m_file.get(), LOCK_EX | LOCK_NB) != 0; ++i) {
        usleep(file_lock_pause_usec);
    }
    if (is_current()) {
        sem_unlink(m_name);
    }
    flock(m_file.get(), LOCK_UN);
}
