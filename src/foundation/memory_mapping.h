// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_MEMORY_MAPPING_H
#define VASK_MEMORY_MAPPING_H

#include <cstddef>

// Owner of mapped memory.
class memory_mapping {
public:
    memory_mapping() = default;
    ~memory_mapping();

    memory_mapping(const memory_mapping&) = delete;
    memory_mapping& operator=(const memory_mapping&) = delete;

    // Maps a file's start, shared, for reading and writing. False with errno on failure.
    bool map_file(int fd, std::size_t size);

    // Maps zeroed memory that is not shared. False with errno on failure.
    bool map_private(std::size_t size);

    // Makes the mapping larger; it may move. False with errno on failure: the mapping is as it was.
    bool grow(std::size_t size);

    void* address() const { return m_address; }
    std::size_t size() const { return m_size; }

private:
    bool map(int fd, std::size_t size, int flags);

    void* m_address = nullptr;  // null while nothing is mapped
    std::size_t m_size = 0;
};

#endif
