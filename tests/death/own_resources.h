// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_OWN_RESOURCES_H
#define VASK_TEST_OWN_RESOURCES_H

#include "death/fault_steps.h"

namespace vask_test {

/** Tells the judge what this process could leak: a line each, in order. */
void keep_own_resources(fault_plan& plan);

}  // namespace vask_test

#endif
