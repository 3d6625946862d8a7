// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <errno.h>
#include <string.h>
#include <time.h>

#include "foundation/library_lock.h"
#include "foundation/log_place.h"
#include "foundation/named_sem.h"
#include "vask_object.h"

namespace {

const char source_unit[] = "vask_object_sem";

constexpr mode_t library_lock_mode = 0644;
constexpr int library_lock_timeout_msec = 5000;
constexpr int library_lock_slice_msec = 500;

// A holder counts as dead after 5 seconds of short waits. A waiter that is stopped meanwhile does
// not see the holder, so a stop counts for no more than one short wait.
int wait_for_library_lock(sem_t* sem, signal_block* signals) {
    if (signals != nullptr) {
        return take_sem_undisturbed(sem, *signals, library_lock_timeout_msec / sem_wait_slice_msec);
    }
    int error = ETIMEDOUT;
    for (int time = 0; time < library_lock_timeout_msec && error == ETIMEDOUT;
         time += library_lock_slice_msec) {
        error = take_sem_within(sem, library_lock_slice_msec);
    }
    return error;
}

// The lock is not taken when the clock cannot be read.
bool has_clock() {
    struct timespec now;
    return clock_gettime(CLOCK_REALTIME, &now) == 0;
}

}  // namespace

void report_failed_sem_wait(int error) {
    vask_object::vask_p("vask", VASK_P_ERR, VASK_AT("Failed to sem_wait(): %d"), error);
}

void report_failed_sem_removal(const char* name, int error) {
    // The text names the shared-memory call: kept.
    vask_object::vask_p("vask", VASK_P_ERR, VASK_AT("Failed to call shm_unlink(%s): %s"), name,
                        strerror(error));
}

sem_t* vask_object::create_named_sem(const char* name, int init_count, int max_count) {
    if (init_count > max_count) {
        vask_p("vask", VASK_P_ERR, VASK_AT("init_count(%d) > max_count(%d)"), init_count,
               max_count);
        return nullptr;
    }
    sem_t* sem = open_named_sem(name, 0666, static_cast<unsigned int>(init_count));
    if (sem == nullptr) {
        vask_p("vask", VASK_P_ERR, VASK_AT("Failed to call sem_open(): %d"), errno);
    }
    return sem;
}

bool vask_object::close_named_sem(sem_t* sem) {
    // Null does not reach the C library, which may rely on getting a semaphore.
    if (sem == nullptr) {
        errno = EINVAL;
    }
    if (sem == nullptr || sem_close(sem) != 0) {
        vask_p("vask", VASK_P_ERR, VASK_AT("Failed to call sem_close(): %s"), strerror(errno));
        return false;
    }
    return true;
}

bool vask_object::destroy_sem(const char* name) {
    if (sem_unlink(name) != 0) {
        report_failed_sem_removal(name, errno);
        return false;
    }
    return true;
}

bool vask_object::vask_sem_wait(sem_t* sem) {
    if (sem == nullptr) {
        return false;
    }
    while (sem_wait(sem) != 0) {
        if (errno != EINTR) {
            report_failed_sem_wait(errno);
            return false;
        }
    }
    return true;
}

bool vask_object::vask_sem_post(sem_t* sem) {
    if (sem == nullptr) {
        return false;
    }
    if (sem_post(sem) != 0) {
        vask_p("vask", VASK_P_ERR, VASK_AT("Failed to sem_post(): %d"), errno);
        return false;
    }
    return true;
}

bool vask_object::wait_named_sem(sem_t* sem) {
    return vask_sem_wait(sem);
}

bool vask_object::post_named_sem(sem_t* sem) {
    return vask_sem_post(sem);
}

bool vask_object::shm_lock() {
    if (shm_lock_sem != nullptr) {
        vask_p(VASK_P_ERR, "Recursive lock request\n");
        return false;
    }
    shm_lock_sem = take_library_lock(*this, nullptr);
    return shm_lock_sem != nullptr;
}

sem_t* take_library_lock(const vask_object& waiter, signal_block* signals) {
    for (;;) {
        tracked_named_sem sem(library_lock_name, library_lock_mode, 1);
        if (sem.handle() == nullptr || !has_clock()) {
            return nullptr;
        }
        switch (wait_for_library_lock(sem.handle(), signals)) {
            case 0:
                // A lock that was broken meanwhile excludes nobody any more [L2]. It is posted for
                // the next one who waits for it, so that all of them turn to the new lock.
                if (!sem.is_current()) {
                    sem_post(sem.handle());
                    continue;
                }
                return sem.release();
            case ETIMEDOUT:
                // Removes the lock before it prints: whoever reads the line may be slow, and
                // somebody else may hold the lock by then.
                sem.close_and_remove();
                waiter.vask_p(VASK_P_WARN,
                              "Possibly, the lock-owner was unexpectedly dead. Force unlock the "
                              "semaphore.\n");
                continue;
            default:
                return nullptr;
        }
    }
}

void vask_object::shm_unlock() {
    if (shm_lock_sem == nullptr) {
        vask_p(VASK_P_WARN, "No shm lock held.\n");
        return;
    }
    sem_post(shm_lock_sem);
    sem_close(shm_lock_sem);
    shm_lock_sem = nullptr;
}
