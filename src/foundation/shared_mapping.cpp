#include "foundation/shared_mapping.h"

#include <sys/mman.h>

shared_mapping::~shared_mapping() {
    if (m_address != nullptr) {
        munmap(m_address, m_size);
    }
}

bool shared_mapping::map(int fd, std::size_t size, int protection) {
    void* address = mmap(nullptr, size, protection, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED) {
        return false;
    }
    m_address = address;
    m_size = size;
    return true;
}

bool shared_mapping::grow(std::size_t size) {
    void* address = mremap(m_address, m_size, size, MREMAP_MAYMOVE);
    if (address == MAP_FAILED) {
        return false;
    }
    m_address = address;
    m_size = size;
    return true;
}
