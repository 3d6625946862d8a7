// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_COUNTED_MEMORY_H
#define VASK_TEST_COUNTED_MEMORY_H

#include <cstddef>

namespace vask_test {

/** Calls of operator new so far, by everybody in the process. A program that links
 *  counted_memory.cpp has its own operator new for this. */
extern int allocations;

/** Number of the next call of operator new that fails, counted from 1; 0 for none. Only that one
 *  fails, and leaves 0 behind. */
extern int allocation_that_fails;

/** What that one throws; std::bad_alloc where it is null. */
extern void (*throw_for_failed_allocation)();

/** How many allocations succeed before all others fail; negative for all of them. */
extern int allocations_left;

/** Asked about every allocation; one that it refuses fails. Null for none. */
extern bool (*refuses_allocation)(std::size_t size);

}  // namespace vask_test

#endif
