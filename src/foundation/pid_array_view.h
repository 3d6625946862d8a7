// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_PID_ARRAY_VIEW_H
#define VASK_PID_ARRAY_VIEW_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "foundation/memory_mapping.h"
#include "foundation/pid_array_bytes.h"

// What a reader of the process registry sees at one instant.
struct pid_array_snapshot {
    std::uint32_t sequence = 0;
    std::uint32_t sequence_after = 0;  // read after everything else
    std::size_t entry_count = 0;       // of those that the view shows
    std::size_t wanted_size = 0;       // of a view that holds all entries the object claims to have
    bool is_readable = true;           // false for what is no file

    bool is_being_written() const { return sequence % 2 != 0; }
    bool is_stable() const { return !is_being_written() && sequence_after == sequence; }
};

// A reader's copy of a registry object that others write, shorten and lengthen meanwhile. It holds
// a page at first.
class pid_array_view {
public:
    // The descriptor stays the caller's and must stay open.
    explicit pid_array_view(int fd) : m_fd(fd) {}

    // Copies as much as the view holds.
    pid_array_snapshot read();

    // Whether the object has more of what a snapshot wants than the view holds.
    bool can_grow(const pid_array_snapshot& snapshot) const;

    // Makes room for as much of it as there is. False when there is no memory.
    bool grow(const pid_array_snapshot& snapshot);
    bool has_grown() const { return m_pages.address() != nullptr; }

    // Copies again, twice, what a snapshot that is not stable shows, and empties the slots that do
    // not hold the same each time: the first copy may have mixed two pairs there. A pair that is
    // there three times was stored as a pair [R8].
    void drop_changed(const pid_array_snapshot& snapshot);

    // What was read last, by an index below its entry_count.
    pid_array_entry entry(std::size_t index) const;

private:
    unsigned char* bytes();
    const unsigned char* bytes() const;
    std::size_t size() const;
    std::size_t reachable_size(const pid_array_snapshot& snapshot) const;
    void drop_changed(std::size_t begin, std::size_t end);

    const int m_fd;
    alignas(pid_array) std::array<unsigned char, 4096> m_first_page;
    memory_mapping m_pages;  // instead, once that is too small
};

#endif
