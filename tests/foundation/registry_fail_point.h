// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_REGISTRY_FAIL_POINT_H
#define VASK_TEST_REGISTRY_FAIL_POINT_H

#include <functional>
#include <ostream>
#include <string>

/**
 * Runs at every place that the library's source marks, and before and after it asks for the lock's
 * semaphore or gives it back, with the name of the place.
 */
extern std::function<void(const std::string&)> at_fail_point;

/** A place of a registration, and what a process leaves behind that is killed there. */
struct place {
    const char* name;
    bool holds_lock;
    bool leaves_sequence_odd;
    int entries_left_twice = 0;
};

inline void PrintTo(const place& place, std::ostream* out) {
    *out << place.name;
}

inline constexpr place places[] = {
    {"named", false, false},   {"taken", true, false},     {"locked", true, false},
    {"opened", true, false},   {"mapped", true, false},    {"measured", true, false},
    {"sized", true, false},    {"grown", true, false},     {"compacted", true, false},
    {"marked", true, true},    {"entered", true, true, 1}, {"counted", true, true},
    {"released", true, false}, {"posting", true, false},   {"posted", false, false},
};

#endif
