// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_RECORD_CROWD_H
#define VASK_TEST_RECORD_CROWD_H

/**
 * Lets 8 processes set and read the rotation as fast as they can, and expects that every value read
 * was written by somebody, and that no value is read any more after it was replaced.
 */
void expect_no_value_lost_in_a_crowd(double seconds);

#endif
