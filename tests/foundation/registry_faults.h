#ifndef VASK_TEST_REGISTRY_FAULTS_H
#define VASK_TEST_REGISTRY_FAULTS_H

#include <sys/types.h>

#include <functional>

#include "support/call_fault.h"

/** Faults of system calls; those on descriptors hit registries alone. */
namespace registry_faults {

// The calls that can fail: shm_open, mmap, fstat, posix_fallocate, ftruncate, mremap,
// process_vm_readv.
struct plan : vask_test::call_fault {
    int interrupted_fallocations = 0;
    bool creating_is_forbidden = false;

    // The monotonic clock: how much later every reading is, and how many readings succeed.
    double clock_step_sec = 0;
    int clock_readings = -1;

    // The sequence is another one whenever it is read the second time.
    bool sequence_is_restless = false;

    // Runs after the record was copied, before the library looks at the copy.
    std::function<void()> after_copy;
};

extern plan now;

/** What the library has asked for since the start. */
struct counts {
    int shm_open_creating = 0;
    int process_vm_readv = 0;
    int mremap = 0;
    size_t largest_mapping = 0;
};

extern counts seen;

/** Back to the system as it is at the end of a test. */
struct healed {
    ~healed() {
        now = plan();
        seen = counts();
    }
};

}  // namespace registry_faults

#endif
