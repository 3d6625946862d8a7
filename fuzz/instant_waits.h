// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_FUZZ_INSTANT_WAITS_H
#define VASK_FUZZ_INSTANT_WAITS_H

namespace vask_fuzz {

/**
 * No input waits: what would sleep for a while has slept at once, and what would never end fails.
 * For targets that bring a semaphore into any state.
 */
namespace instant_waits {

/** Forgets those so far. */
void begin();

/** Whether someone has waited for a limited time again and again, and would do so for ever. */
bool have_no_end();

}  // namespace instant_waits

}  // namespace vask_fuzz

#endif
