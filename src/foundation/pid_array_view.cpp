// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/pid_array_view.h"

#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

namespace {

template <typename Value>
Value load(const unsigned char* bytes, std::size_t offset) {
    Value value;
    memcpy(&value, bytes + offset, sizeof(value));
    return value;
}

bool read_sequence(int fd, std::uint32_t* sequence) {
    return pread(fd, sequence, sizeof(*sequence), offsetof(pid_array, sequence)) ==
           static_cast<ssize_t>(sizeof(*sequence));
}

}  // namespace

pid_array_snapshot pid_array_view::read() {
    pid_array_snapshot snapshot;
    const bool has_sequence = read_sequence(m_fd, &snapshot.sequence);
    std::atomic_thread_fence(std::memory_order_acquire);  // [R6]
    const ssize_t length = pread(m_fd, bytes(), size(), 0);
    std::atomic_thread_fence(std::memory_order_acquire);  // [R7]
    snapshot.is_readable = length >= 0;
    if (!has_sequence || length < static_cast<ssize_t>(entry_offset(0))) {
        // Without a whole header it has no entries, whatever the sequence is.
        snapshot.sequence = snapshot.sequence_after;
        return snapshot;
    }
    if (!read_sequence(m_fd, &snapshot.sequence_after)) {
        snapshot.sequence_after = ~snapshot.sequence;
    }
    const auto count = std::max(load<std::int32_t>(bytes(), offsetof(pid_array, count)), 0);
    const std::size_t wanted = std::min(static_cast<std::size_t>(count), most_entries);
    snapshot.wanted_size = entry_offset(wanted);
    snapshot.entry_count = std::min(wanted, entries_in(static_cast<std::size_t>(length)));
    return snapshot;
}

bool pid_array_view::can_grow(const pid_array_snapshot& snapshot) const {
    return snapshot.wanted_size > size() && reachable_size(snapshot) > size();
}

bool pid_array_view::grow(const pid_array_snapshot& snapshot) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    if (m_pages.address() == nullptr && !m_pages.map_private(page)) {
        return false;
    }
    const std::size_t wanted = reachable_size(snapshot);
    return wanted <= m_pages.size() || m_pages.grow(wanted);
}

void pid_array_view::drop_changed(const pid_array_snapshot& snapshot) {
    constexpr int further_copies = 2;
    constexpr std::size_t at_once = 64;
    for (int copy = 0; copy < further_copies; ++copy) {
        std::atomic_thread_fence(std::memory_order_acquire);  // [R8]
        for (std::size_t begin = 0; begin < snapshot.entry_count; begin += at_once) {
            drop_changed(begin, std::min(begin + at_once, snapshot.entry_count));
        }
    }
}

void pid_array_view::drop_changed(std::size_t begin, std::size_t end) {
    std::array<pid_array_entry, 64> again = {};
    const std::size_t length = (end - begin) * sizeof(pid_array_entry);
    if (pread(m_fd, again.data(), length, static_cast<off_t>(entry_offset(begin))) < 0) {
        again.fill({});
    }
    for (std::size_t i = begin; i < end; ++i) {
        const pid_array_entry first = entry(i);
        const pid_array_entry& second = again[i - begin];
        if (first.pid != second.pid || first.key != second.key) {
            memset(bytes() + entry_offset(i), 0, sizeof(pid_array_entry));
        }
    }
}

pid_array_entry pid_array_view::entry(std::size_t index) const {
    return load<pid_array_entry>(bytes(), entry_offset(index));
}

unsigned char* pid_array_view::bytes() {
    return const_cast<unsigned char*>(const_cast<const pid_array_view*>(this)->bytes());
}

const unsigned char* pid_array_view::bytes() const {
    const void* pages = m_pages.address();
    return pages != nullptr ? static_cast<const unsigned char*>(pages) : m_first_page.data();
}

std::size_t pid_array_view::size() const {
    return std::max(m_first_page.size(), m_pages.size());
}

std::size_t pid_array_view::reachable_size(const pid_array_snapshot& snapshot) const {
    struct stat object;
    if (fstat(m_fd, &object) != 0) {
        return 0;
    }
    return std::min(usable_size(object.st_size), snapshot.wanted_size);
}
