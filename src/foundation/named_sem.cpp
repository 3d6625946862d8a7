// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/named_sem.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <utility>

#include "foundation/withheld_signal.h"

namespace {

constexpr int turns_before_sleep = 3;

constexpr int file_lock_attempts = 100;
constexpr useconds_t file_lock_pause_usec = 10000;

bool has_right_size(const struct stat& file) {
    return file.st_size == static_cast<off_t>(sizeof(sem_t));
}

bool is_same_file(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

timespec monotonic_time_in(int msec) {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_sec += msec / 1000;
    time.tv_nsec += msec % 1000 * 1000000L;
    if (time.tv_nsec >= 1000000000L) {
        ++time.tv_sec;
        time.tv_nsec -= 1000000000L;
    }
    return time;
}

using sem_words = std::array<std::uint32_t, sizeof(sem_t) / sizeof(std::uint32_t)>;

sem_words make_sem_words(int for_all_processes) {
    sem_t sem;
    memset(&sem, 0, sizeof(sem));
    sem_init(&sem, for_all_processes, 0);
    sem_words words;
    memcpy(words.data(), &sem, sizeof(words));
    return words;
}

// Beside its count, a semaphore holds for whom it is. The C library passes that on to the kernel,
// and ends the process when the kernel does not know it: in a file that somebody has written to.
bool is_for_anybody(const sem_t* sem) {
    static const sem_words of_one_process = make_sem_words(0);
    static const sem_words of_all = make_sem_words(1);
    for (std::size_t i = 0; i < of_all.size(); ++i) {
        if (of_one_process[i] == of_all[i]) {
            continue;
        }
        std::uint32_t found;
        memcpy(&found, reinterpret_cast<const char*>(sem) + i * sizeof(found), sizeof(found));
        if (found != of_one_process[i] && found != of_all[i]) {
            return false;
        }
    }
    return true;
}

// Null with errno for a semaphore that could not be opened, or whose file has another size or holds
// none; that one is closed.
sem_t* refuse_broken(const char* name, sem_t* sem) {
    if (sem == SEM_FAILED) {
        return nullptr;
    }
    struct stat file;
    const bool has_other_size =
        stat(named_sem_path(name).c_str(), &file) == 0 && !has_right_size(file);
    if (has_other_size || !is_for_anybody(sem)) {
        sem_close(sem);
        errno = EINVAL;
        return nullptr;
    }
    return sem;
}

enum class named_as { itself, nothing_or_another, unknown };

named_as look_up_sem(const char* name, sem_t* sem) {
    sem_t* named = sem_open(name, 0);
    if (named == SEM_FAILED) {
        return errno == ENOENT ? named_as::nothing_or_another : named_as::unknown;
    }
    sem_close(named);
    // While a semaphore is open, it has one address in the process.
    return named == sem ? named_as::itself : named_as::nothing_or_another;
}

// 0, ETIMEDOUT or what sem_wait() fails with.
int take_sem_until(sem_t* sem, const timespec& deadline) {
    while (sem_clockwait(sem, CLOCK_MONOTONIC, &deadline) != 0) {
        if (errno == ETIMEDOUT) {
            // A process that was stopped finds its time over before it has looked again.
            return sem_trywait(sem) == 0 ? 0 : ETIMEDOUT;
        }
        if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

}  // namespace

sem_t* open_named_sem(const char* name, mode_t mode, unsigned int value) {
    // Making a semaphore writes a file.
    const withheld_signal limit(SIGXFSZ);
    return refuse_broken(name, sem_open(name, O_CREAT, mode, value));
}

sem_t* open_existing_named_sem(const char* name) {
    return refuse_broken(name, sem_open(name, 0));
}

bool is_named_sem(const char* name, sem_t* sem) {
    return look_up_sem(name, sem) == named_as::itself;
}

bool is_removed_named_sem(const char* name, sem_t* sem) {
    return look_up_sem(name, sem) == named_as::nothing_or_another;
}

bool take_sem_awake(sem_t* sem) {
    for (int turns = 0; sem_trywait(sem) != 0; ++turns) {
        if (turns == turns_before_sleep) {
            return false;
        }
        sched_yield();
    }
    return true;
}

int take_sem_within(sem_t* sem, int msec) {
    return take_sem_until(sem, monotonic_time_in(msec));
}

// A signal that comes through during the wait could strike between its success and the block. If
// signals were blocked for all of it, only SIGKILL could end a process whose wait never ends. So
// the signals are blocked during each attempt, and come through between two attempts.
int take_sem_undisturbed(sem_t* sem, signal_block& signals, int slices) {
    for (int i = 0;; ++i) {
        signals.block();
        if (sem_trywait(sem) == 0) {
            return 0;
        }
        const timespec deadline = monotonic_time_in(sem_wait_slice_msec);
        const int error = take_sem_awake(sem) ? 0 : take_sem_until(sem, deadline);
        if (error == 0) {
            return 0;
        }
        signals.unblock();
        if (error != ETIMEDOUT || i + 1 == slices) {
            return error;
        }
    }
}

tracked_named_sem::tracked_named_sem(const char* name, mode_t mode, unsigned int value)
    : m_name(name), m_path(named_sem_path(name)), m_handle(nullptr) {
    if (open_existing() || errno != ENOENT) {
        return;
    }
    sem_t* created = open_named_sem(name, mode, value);
    if (created == nullptr) {
        return;
    }
    sem_close(created);
    if (open_existing() || errno != ENOENT) {
        return;
    }
    // It has no file here, or somebody has removed it again: is_current() tells.
    m_file = unique_fd();
    m_handle = open_named_sem(name, mode, value);
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
    // Opens the file first and keeps it open, so that its inode is not used again: if the name
    // still leads to it when the semaphore is open, both are the same. A pipe is not waited for.
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
    const bool is_current = is_file_current();
    if (!is_current || !is_for_anybody(sem)) {
        sem_close(sem);
        errno = is_current ? EINVAL : ENOENT;
        return false;
    }
    m_handle = sem;
    return true;
}

bool tracked_named_sem::is_file_current() const {
    struct stat opened;
    struct stat named;
    return fstat(m_file.get(), &opened) == 0 && stat(m_path.c_str(), &named) == 0 &&
           is_same_file(opened, named);
}

bool tracked_named_sem::is_current() const {
    return m_file ? is_file_current() : is_named_sem(m_name, m_handle);
}

void tracked_named_sem::lock_file() const {
    for (int i = 0; i < file_lock_attempts && flock(m_file.get(), LOCK_EX | LOCK_NB) != 0; ++i) {
        usleep(file_lock_pause_usec);
    }
}

void tracked_named_sem::close_and_remove() {
    if (!m_file) {
        const bool is_named = is_current();
        sem_close(std::exchange(m_handle, nullptr));
        if (is_named) {
            sem_unlink(m_name);
        }
        return;
    }
    sem_close(std::exchange(m_handle, nullptr));
    // The file lock makes test and removal one step among all who break this very semaphore. But
    // everybody who may read the file can lock it and keep it locked, so nobody waits long for it.
    lock_file();
    if (is_file_current()) {
        sem_unlink(m_name);
    }
    flock(m_file.get(), LOCK_UN);
}
