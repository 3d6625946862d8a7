// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_HIGHER_NICE_VALUE_H
#define VASK_TEST_HIGHER_NICE_VALUE_H

#include <sys/resource.h>

#include <algorithm>

namespace vask_test {

/** A nice value that every user may set: one whose shell was made nice cannot go back below that.
 *  Never 0, which stands for no wish. */
inline int higher_nice_value() {
    return std::clamp(getpriority(PRIO_PROCESS, 0) + 5, 1, 19);
}

}  // namespace vask_test

#endif
