// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_LIFECYCLE_SIGTERM_H
#define VASK_TEST_LIFECYCLE_SIGTERM_H

#include <sys/types.h>

#include <functional>

namespace vask_test {

/**
 * Every SIGTERM that anybody in this process sends. Those that could hit a stranger are counted
 * and not sent.
 */
struct sigterm_record {
    static int sent;
    static int to_reaped;
    static int to_groups;

    /** Called right before the test whether the process id still has an owner. */
    static std::function<void(pid_t)> before_sending;

    /** Called right after a SIGTERM has gone out. */
    static std::function<void(pid_t)> after_sending;

    /** How many SIGCONTs have followed. */
    static int continued;

    /** Whether SIGKILL is refused, as one for a process of another user is. */
    static bool refuses_sigkill;
};

}  // namespace vask_test

#endif
