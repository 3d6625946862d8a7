#ifndef VASK_PID_ARRAY_BYTES_H
#define VASK_PID_ARRAY_BYTES_H

#include <sys/types.h>

#include <algorithm>
#include <cstddef>

#include "vask_object.h"

// The record of the process registry is a sequence lock: writers, one at a time under the library
// lock, make the sequence odd, change the record, and make it even again. A reader takes what it
// has copied only if the sequence was even before and the same afterwards.
//
// Both sides use pread() and pwrite(), because anybody who may write to the object can cut it off
// at any time, and a load or store beyond the cut would end the process.
//
// Order: the kernel copies with ordinary loads and stores, and a reader takes none of the locks
// that a writer takes there, so nothing keeps these apart on a processor that reorders. What does
// is a fence between two calls. It orders everything that its thread has done before, in the kernel
// too; where the thread moves to another processor, the move is a barrier itself. Fields lie on
// their natural boundaries, so that the kernel copies each one as a whole. Even where it did not,
// only the step from odd to even changes more than one byte of a sequence, and what a reader could
// take for a sequence then follows all changes.

static_assert(offsetof(pid_array, sequence) == 0, "shared by all processes");
static_assert(offsetof(pid_array, count) == 4, "shared by all processes");
static_assert(offsetof(pid_array, entries) == 8, "shared by all processes");
static_assert(offsetof(pid_array_entry, pid) == 0, "shared by all processes");
static_assert(offsetof(pid_array_entry, key) == 8, "shared by all processes");
static_assert(sizeof(pid_array_entry) == 16, "shared by all processes");
static_assert(sizeof(pid_array) == 24, "shared by all processes");

// More processes than the kernel can number cannot be registered, whatever an object claims.
constexpr std::size_t most_entries = std::size_t{1} << 22;

// Where the entry of that index begins; also the size of a record of so many entries.
constexpr std::size_t entry_offset(std::size_t index) {
    return offsetof(pid_array, entries) + index * sizeof(pid_array_entry);
}

// How many whole entries an object of that size has.
constexpr std::size_t entries_in(std::size_t size) {
    return size < entry_offset(0) ? 0 : (size - entry_offset(0)) / sizeof(pid_array_entry);
}

// What counts of a size that fstat() tells; it may not fit into a size_t of 32 bits.
inline std::size_t usable_size(off_t size) {
    return static_cast<std::size_t>(std::min(size, static_cast<off_t>(entry_offset(most_entries))));
}

#endif
