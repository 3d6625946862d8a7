// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "support/shown_clock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace vask_test {

namespace {

// Never destroyed: clocks are read until the process has ended.
clock_function& shown() {
    static clock_function* const function = new clock_function;
    return *function;
}

}  // namespace

int read_system_clock(clockid_t clock, timespec* time) {
#ifdef SYS_clock_gettime64
    const long call = sizeof(time_t) > sizeof(long) ? SYS_clock_gettime64 : SYS_clock_gettime;
#else
    const long call = SYS_clock_gettime;
#endif
    return static_cast<int>(syscall(call, clock, time));
}

void show_clock(clock_function function) {
    shown() = std::move(function);
}

int fail_to_read_clock() {
    errno = EINVAL;
    return -1;
}

clock_function failing_clock(int readings) {
    return [left = readings](clockid_t clock, timespec* time) mutable {
        const bool fails = clock == CLOCK_MONOTONIC && left-- <= 0;
        return fails ? fail_to_read_clock() : read_system_clock(clock, time);
    };
}

clock_function leaping_clock(double step_sec) {
    return [step_sec, gained = 0.0](clockid_t clock, timespec* time) mutable {
        const int result = read_system_clock(clock, time);
        if (clock == CLOCK_MONOTONIC) {
            gained += step_sec;
            time->tv_sec += static_cast<time_t>(gained);
        }
        return result;
    };
}

}  // namespace vask_test

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const vask_test::clock_function& function = vask_test::shown();
    return function ? function(clock, time) : vask_test::read_system_clock(clock, time);
}
