#include <errno.h>
#include <string.h>
#include <time.h>

#include "foundation/library_lock.h"
#include "foundation/named_sem.h"
#include "vask_object.h"

namespace {

const char source_unit[] = "vask_object_sem";

constexpr mode_t library_lock_mode = 0644;
constexpr time_t library_lock_timeout_sec = 5;

enum class lock_result { taken, timed_out, failed };

lock_result wait_until(sem_t* sem, const struct timespec& deadline) {
    while (sem_timedwait(sem, &deadline) != 0) {
        if (errno != EINTR) {
            return errno == ETIMEDOUT ? lock_result::timed_out : lock_result::failed;
        }
    }
    return lock_result::taken;
}

}  // namespace

sem_t* vask_object::create_named_sem(const char* name, int init_count, int max_count) {
    if (init_count > max_count) {
        vask_p("vask", VASK_P_ERR, "<%s:%d> init_count(%d) > max_count(%d)\n", source_unit,
               __LINE__, init_count, max_count);
        return nullptr;
    }
    sem_t* sem = open_named_sem(name, 0666, static_cast<unsigned int>(init_count));
    if (sem == nullptr) {
        vask_p("vask", VASK_P_ERR, "<%s:%d> Failed to call sem_open(): %d\n", source_unit, __LINE__,
               errno);
    }
    return sem;
}

bool vask_object::close_named_sem(sem_t* sem) {
    if (sem_close(sem) != 0) {
        vask_p("vask", VASK_P_ERR, "<%s:%d> Failed to call sem_close(): %s\n", source_unit,
               __LINE__, strerror(errno));
        return false;
    }
    return true;
}

bool vask_object::destroy_sem(const char* name) {
    if (sem_unlink(name) != 0) {
        // It names the shared-memory call, and is kept.
        vask_p("vask", VASK_P_ERR, "<%s:%d> Failed to call shm_unlink(%s): %s\n", source_unit,
               __LINE__, name, strerror(errno));
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
            vask_p("vask", VASK_P_ERR, "<%s:%d> Failed to sem_wait(): %d\n", source_unit, __LINE__,
                   errno);
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
        vask_p("vask", VASK_P_ERR, "<%s:%d> Failed to sem_post(): %d\n", source_unit, __LINE__,
               errno);
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

sem_t* take_library_lock(const vask_object& waiter, std::optional<signal_block>* block) {
    for (;;) {
        tracked_named_sem sem(library_lock_name, library_lock_mode, 1);
        if (sem.handle() == nullptr) {
            return nullptr;
        }
        struct timespec deadline;
        if (clock_gettime(CLOCK_REALTIME, &deadline) != 0) {
            return nullptr;
        }
        deadline.tv_sec += library_lock_timeout_sec;

        if (block != nullptr) {
            block->emplace();
        }
        const lock_result result = wait_until(sem.handle(), deadline);
        if (block != nullptr && result != lock_result::taken) {
            block->reset();
        }
        switch (result) {
            case lock_result::taken:
                // A lock that was broken meanwhile excludes nobody any more. It goes on to the next
                // of those who wait for it, so that they all turn to the new one.
                if (!sem.is_current()) {
                    sem_post(sem.handle());
                    continue;
                }
                return sem.release();
            case lock_result::timed_out:
                waiter.vask_p(VASK_P_WARN,
                              "Possibly, the lock-owner was unexpectedly dead. Force unlock the "
                              "semaphore.\n");
                sem.close_and_remove();
                continue;
            case lock_result::failed:
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
