// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SHOWN_CLOCK_H
#define VASK_TEST_SHOWN_CLOCK_H

#include <time.h>

#include <functional>

// The clock that a test shows to the library and to itself. For programs that are linked with
// shown_clock.cpp, which takes the place of clock_gettime().

namespace vask_test {

using clock_function = std::function<int(clockid_t, timespec*)>;

/** What the system's clock says, also in a program that shows another one. */
int read_system_clock(clockid_t clock, timespec* time);

/** What every reading of a clock gives from now on; null for the system's. Takes effect for all
 *  threads, so it is set while no other one reads. */
void show_clock(clock_function function);

/** A reading that fails with EINVAL. */
int fail_to_read_clock();

/** The monotonic clock can be read so many times, and no more. */
clock_function failing_clock(int readings);

/** The monotonic clock is later at each reading than the system's by so much more. */
clock_function leaping_clock(double step_sec);

}  // namespace vask_test

#endif
