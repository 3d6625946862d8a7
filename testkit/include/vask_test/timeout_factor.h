// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_TIMEOUT_FACTOR_H
#define VASK_TEST_TIMEOUT_FACTOR_H

/**
 * @file
 * How patient tests are.
 * @since 2.0
 */

#include <cstdlib>

namespace vask_test {

/** How much longer than usual to wait, for slow machines and instrumented builds.
 *  @return the number in VASK_TEST_TIMEOUT_FACTOR, or 1 */
inline double timeout_factor() {
    const char* value = std::getenv("VASK_TEST_TIMEOUT_FACTOR");
    const double factor = value ? std::strtod(value, nullptr) : 1;
    return factor > 0 ? factor : 1;
}

}  // namespace vask_test

#endif
