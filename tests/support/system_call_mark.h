// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SYSTEM_CALL_MARK_H
#define VASK_TEST_SYSTEM_CALL_MARK_H

#include <sys/syscall.h>
#include <unistd.h>

/** System calls that nobody else makes, between which count_system_calls() counts the others. */
namespace vask_test::system_call_mark {

constexpr int begin_argument = -1000001;
constexpr int end_argument = -1000002;

inline void begin() {
    syscall(SYS_close, begin_argument);
}

inline void end() {
    syscall(SYS_close, end_argument);
}

}  // namespace vask_test::system_call_mark

#endif
