// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SCENE_LISTS_H
#define VASK_TEST_SCENE_LISTS_H

#include <vector>

#include "death/scenes.h"

namespace vask_test {

/** Registry, library lock and record. */
std::vector<operation> shared_memory_operations();

/** Bridge and child. */
std::vector<operation> bus_operations();

}  // namespace vask_test

#endif
