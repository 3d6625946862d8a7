// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SKIP_LIST_H
#define VASK_TEST_SKIP_LIST_H

namespace vask_test {

/**
 * Leaves out the tests that the file VASK_TEST_SKIP_LIST names, and prints each one that was asked
 * for as skipped, with its reason. A line of the file is "SUITE.TEST: REASON" or a comment behind
 * "#". Has to come before the tests run.
 */
void skip_listed_tests();

}  // namespace vask_test

#endif
