// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SYSTEM_CALLS_H
#define VASK_TEST_SYSTEM_CALLS_H

#include <functional>
#include <iosfwd>
#include <map>

#include "support/system_call_mark.h"

namespace vask_test {

/** How often a process has entered the kernel. */
struct call_counts {
    std::map<long, int> by_number;
    int all = 0;
    bool complete = false; /**< both marks were seen */
    int exit_status = -1;

    int of(long number) const;
};

void PrintTo(const call_counts& counts, std::ostream* out);

/** Counts, from outside, the system calls of a forked process between the two marks that the
 *  action sets. The process ends with status 0 when the action returns. */
call_counts count_system_calls(const std::function<void()>& action);

/** How a process ended that was held before one of its system calls. */
struct interrupted_run {
    bool reached = false; /**< it made that many calls */
    int status = -1;      /**< the wait status */
};

/** Runs the action in a forked process. Calls @p meanwhile in this process right before the other
 *  one enters the system call of that number, counted from 0 at the mark that the action sets. The
 * process ends with status 0 when the action returns. */
interrupted_run interrupt_before_call(int number, const std::function<void()>& action,
                                      const std::function<void()>& meanwhile);

}  // namespace vask_test

#endif
