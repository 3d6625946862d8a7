// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_FAKE_TABLE_H
#define VASK_TEST_FAKE_TABLE_H

#include <string>

#include "npapi/npfunctions.h"

namespace vask_test {

/** All functions of the interface, for the fake browser that lives. */
NPNetscapeFuncs fake_functions();

/** Whether the caller of a function can tell that it has failed. */
bool can_fail(const std::string& function);

}  // namespace vask_test

#endif
