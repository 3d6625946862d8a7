// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SHRINK_H
#define VASK_TEST_SHRINK_H

#include <functional>

#include "operation.h"

namespace vask_test {

/**
 * Takes away what is not needed: large pieces first, then single steps, then the numbers.
 *
 * @param fails  whether a program still shows the fault; asked until it says no more or nothing
 *               can be taken away
 */
program shrunk(program steps, const std::function<bool(const program&)>& fails);

}  // namespace vask_test

#endif
