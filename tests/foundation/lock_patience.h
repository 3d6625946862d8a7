// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_LOCK_PATIENCE_H
#define VASK_TEST_LOCK_PATIENCE_H

#include <time.h>

#include "support/shown_clock.h"

/**
 * The deadline of a wait that is longer or shorter by a factor. The clock that the test shows to
 * the library may differ from that of the system; the result is the system's.
 */
inline timespec scaled_deadline(clockid_t clock, const timespec& deadline, double factor) {
    constexpr double second = 1e9;
    timespec shown;
    timespec real;
    clock_gettime(clock, &shown);
    vask_test::read_system_clock(clock, &real);
    const double left = static_cast<double>(deadline.tv_sec - shown.tv_sec) +
                        static_cast<double>(deadline.tv_nsec - shown.tv_nsec) / second;
    const double end = static_cast<double>(real.tv_nsec) / second + left * factor;
    const auto seconds = static_cast<time_t>(end) - (end < 0 ? 1 : 0);
    real.tv_sec += seconds;
    real.tv_nsec = static_cast<long>((end - static_cast<double>(seconds)) * second);
    return real;
}

#endif
