// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_MEMORY_MODEL_H
#define VASK_TEST_MEMORY_MODEL_H

#include <functional>
#include <string>
#include <vector>

namespace vask_test {

/** One step of a thread. */
struct step {
    enum kind_of_step {
        write,          // relaxed
        release_write,  // as giving a semaphore back
        read,           // relaxed
        acquire_read,   // as taking a semaphore
        release_fence,
        acquire_fence,
    };
    kind_of_step kind;
    int location = 0;    // of a write or read
    int value = 0;       // of a write
    std::string site{};  // of a fence: its name, by which it can be left out
};

using steps = std::vector<step>;

/** The same without what orders it: fences of that name go, writes and reads become relaxed. */
steps without(const steps& thread, const std::string& site);

/**
 * Calls a function with what the reads get, in the order in which they stand in the threads, for
 * every execution of the threads that C++ allows.
 *
 * An execution is given by the write from which each read takes its value. It is allowed where the
 * axioms hold: a release fence before a write happens before an acquire fence behind a read of that
 * write, together with the order of each thread that is what happens before; and for one location
 * no read gets a value that was replaced in what happens before it, or in what it has seen before.
 * Nothing else is assumed: reads without a fence between them may be done in any order and at any
 * distance, and a write is visible to some and not to others. A write heads no release sequence but
 * itself, which since C++20 is all there is without read-modify-write operations.
 *
 * Each location is written by one thread, so its modification order is that thread's order; and a
 * thread reads only what itself or a thread listed before it writes. That leaves out executions in
 * which two threads wait for each other's values (load buffering): a thread that only reads cannot
 * take part in one, and who writes under a lock has seen it given back.
 *
 * @param initial  the value of each location
 */
void for_each_execution(const std::vector<steps>& threads, const std::vector<int>& initial,
                        const std::function<void(const std::vector<int>&)>& visit);

}  // namespace vask_test

#endif
