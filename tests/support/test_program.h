// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_TEST_PROGRAM_H
#define VASK_TEST_TEST_PROGRAM_H

#include <string>

namespace vask_test {

/** The path of one of the programs that are built for tests. */
inline std::string test_program(const std::string& name) {
    return std::string(VASK_TEST_PROGRAM_DIR) + "/" + name;
}

}  // namespace vask_test

#endif
