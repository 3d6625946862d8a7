// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_WORLD_H
#define VASK_TEST_WORLD_H

/**
 * @file
 * The world that vask-sealed gives a test.
 * @since 2.0
 */

#include <cstdlib>

namespace vask_test {

/** vask-sealed sets this variable for programs that run in an open world. */
constexpr const char* open_world_variable = "VASK_TEST_OPEN_WORLD";

/**
 * Whether this test meets the machine's own processes, network and files, because the machine
 * allows nothing else. What would disturb them, or be disturbed by them, is best skipped then.
 *
 * @return whether vask-sealed has said so
 */
inline bool is_in_open_world() {
    return std::getenv(open_world_variable) != nullptr;
}

}  // namespace vask_test

#endif
