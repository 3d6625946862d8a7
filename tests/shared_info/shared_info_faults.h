// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SHARED_INFO_FAULTS_H
#define VASK_TEST_SHARED_INFO_FAULTS_H

#include <sys/types.h>

#include <functional>

#include "support/call_fault.h"

/** Faults of the calls that mapping is made of. They hit shared-memory contexts alone. */
namespace shared_info_faults {

// The calls that can fail: shm_open, creating shm_open, ftruncate, fallocate, fstat, mmap,
// sem_wait, sem_post, allocation (of the context), allocation under the semaphore (of anything).
struct plan : vask_test::call_fault {
    int interrupted_fallocations = 0;

    // What is reserved in longer calls is undone by a signal; 0 for no limit.
    off_t longest_fallocation = 0;

    int interrupted_waits = 0;

    // So often somebody else has the semaphore when it is tried.
    int busy_tries = 0;

    // Waits that would time out do not.
    bool is_patient = false;

    // Runs before the semaphore is given back.
    std::function<void()> before_post;
};

extern plan now;

/** What the library has asked for since the start of the test. */
struct counts {
    int sem_wait = 0;
    int sleeping_waits = 0;
    int sem_post = 0;
    int sem_close = 0;
    int fallocate = 0;
    int inheritable_opens = 0;
};

extern counts seen;

/** Back to the system as it is, at the beginning and at the end of a test. */
struct healed {
    healed() { heal(); }
    ~healed() { heal(); }

private:
    static void heal() {
        now = plan();
        seen = counts();
    }
};

}  // namespace shared_info_faults

#endif
