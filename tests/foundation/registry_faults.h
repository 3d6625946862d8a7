// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_REGISTRY_FAULTS_H
#define VASK_TEST_REGISTRY_FAULTS_H

#include <sys/types.h>

#include <functional>
#include <string>

#include "support/call_fault.h"
#include "support/shown_clock.h"

/** Faults of system calls; those on descriptors hit registries alone. */
namespace registry_faults {

// The calls that can fail: shm_open, mmap, fstat, pread, pwrite, ftruncate, mremap.
struct plan : vask_test::call_fault {
    int writes_before_failure = 0;
    int failing_writes = 0;  // 0: all that come then
    bool creating_is_forbidden = false;

    // A writer gets no more at once; 0 for no limit.
    size_t longest_read = 0;

    // The sequence is another one whenever it is read the second time.
    bool sequence_is_restless = false;

    // Runs after a lookup has copied the record, before it reads the sequence again or looks at the
    // copy; gets the copy.
    std::function<void(void*)> after_copy;

    // Runs after each further copy of the entries, which a lookup makes of a record not at rest.
    std::function<void()> after_further_copy;
};

extern plan now;

/** What the library has asked for since the start. */
struct counts {
    int shm_open_creating = 0;
    int pwrite = 0;
    int mremap = 0;
    size_t largest_mapping = 0;

    // What lookups have read: (s)equence, (r)ecord, (e)ntries alone.
    std::string lookup_steps;
};

extern counts seen;

/** Back to the system as it is at the end of a test. */
struct healed {
    ~healed() {
        now = plan();
        vask_test::show_clock(nullptr);
        seen = counts();
    }
};

}  // namespace registry_faults

#endif
