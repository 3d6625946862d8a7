// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_LIFE_PROCESS_H
#define VASK_TEST_LIFE_PROCESS_H

#include <string>

#include "operation.h"

namespace vask_test {

/** What has become of a program that was played in a process of its own. */
struct life_end {
    /** "" or what is wrong, in a line: the same for the same fault. */
    std::string fault;
    /** Everything that the process has printed. */
    std::string output;
};

/** To be called in a process that has used neither the bus nor threads: it forks. */
life_end live(const program& steps);

}  // namespace vask_test

#endif
