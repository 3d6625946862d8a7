// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/memory_mapping.h"

#include <sys/mman.h>

memory_mapping::~memory_mapping() {
    if (m_address != nullptr) {
        munmap(m_address, m_size);
    }
}

bool memory_mapping::map_file(int fd, std::size_t size) {
    return map(fd, size, MAP_SHARED);
}

bool memory_mapping::map_private(std::size_t size) {
    return map(-1, size, MAP_PRIVATE | MAP_ANONYMOUS);
}

bool memory_mapping::map(int fd, std::size_t size, int flags) {
    void* address = mmap(nullptr, size, PROT_READ | PROT_WRITE, flags, fd, 0);
    if (address == MAP_FAILED) {
        return false;
    }
    m_address = address;
    m_size = size;
    return true;
}

bool memory_mapping::grow(std::size_t size) {
    void* address = mremap(m_address, m_size, size, MREMAP_MAYMOVE);
    if (address == MAP_FAILED) {
        return false;
    }
    m_address = address;
    m_size = size;
    return true;
}
