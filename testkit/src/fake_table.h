// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_FAKE_TABLE_H
#define VASK_TEST_FAKE_TABLE_H

#include "npapi/npfunctions.h"

namespace vask_test {

/** All functions of the interface, for the fake browser that lives. */
NPNetscapeFuncs fake_functions();

}  // namespace vask_test

#endif
