// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_MAIN_LOOP_H
#define VASK_TEST_MAIN_LOOP_H

/**
 * @file
 * @brief Waiting for a condition.
 *
 * Deadlines are stretched by VASK_TEST_TIMEOUT_FACTOR in the environment, for slow machines.
 */

#include <functional>

namespace vask_test {

/**
 * Runs the default main loop until a condition holds.
 *
 * @param condition      tested again and again, first of all before anything is dispatched
 * @param deadline_msec  how long to wait
 * @return false when the deadline comes first
 */
bool wait_until(const std::function<bool()>& condition, int deadline_msec = 30000);

/**
 * The same, without dispatching anything.
 *
 * @param condition      tested again and again
 * @param deadline_msec  how long to wait
 * @return false when the deadline comes first
 */
bool wait_until_without_loop(const std::function<bool()>& condition, int deadline_msec = 30000);

/** Dispatches what is pending in the default main loop. */
void drain_main_loop();

}  // namespace vask_test

#endif
