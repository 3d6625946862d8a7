// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_PID_ARRAY_BYTES_H
#define VASK_PID_ARRAY_BYTES_H

#include <sys/types.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>

#include "vask_object.h"

// The record of the process registry is a sequence lock: writers, one at a time under the library
// lock, make the sequence odd, change the record, and make it even again. A reader takes what it
// has copied only if the sequence was even before and the same afterwards. The lines [R1] to [R8]
// of docs/design.md, "What two processes may see", say why that holds on every processor.
//
// Both sides use pread() and pwrite(), because anybody who may write to the object can cut it off
// at any time, and a load or store beyond the cut would end the process.

static_assert(offsetof(pid_array, sequence) == 0, "shared by all processes");
static_assert(offsetof(pid_array, count) == 4, "shared by all processes");
static_assert(offsetof(pid_array, entries) == 8, "shared by all processes");
static_assert(offsetof(pid_array_entry, pid) == 0, "shared by all processes");
static_assert(offsetof(pid_array_entry, key) == 8, "shared by all processes");
static_assert(sizeof(pid_array_entry) == 16, "shared by all processes");
static_assert(sizeof(pid_array) == 24, "shared by all processes");

// A lock of this process would keep no other process away.
static_assert(std::atomic<std::uint32_t>::is_always_lock_free, "shared by all processes");
static_assert(std::atomic<std::int32_t>::is_always_lock_free, "shared by all processes");
static_assert(std::atomic<std::uint64_t>::is_always_lock_free, "shared by all processes");

// The kernel cannot number more processes, so no more can be registered, whatever an object claims.
constexpr std::size_t most_entries = std::size_t{1} << 22;

// Where the entry of that index begins; also the size of a record of so many entries.
constexpr std::size_t entry_offset(std::size_t index) {
    return offsetof(pid_array, entries) + index * sizeof(pid_array_entry);
}

// How many whole entries an object of that size has.
constexpr std::size_t entries_in(std::size_t size) {
    return size < entry_offset(0) ? 0 : (size - entry_offset(0)) / sizeof(pid_array_entry);
}

// The part of a file's size that matters. The whole may not fit into a size_t of 32 bits.
inline std::size_t usable_size(off_t size) {
    return static_cast<std::size_t>(std::min(size, static_cast<off_t>(entry_offset(most_entries))));
}

// Whether this process's numbers can express a key. One that they cannot is nobody's here: a
// process of 64 bits has stored it, and this one has 32.
constexpr bool is_expressible_key(std::uint64_t key) {
    return key <= ULONG_MAX;
}

#endif
