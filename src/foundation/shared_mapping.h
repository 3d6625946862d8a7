#ifndef VASK_SHARED_MAPPING_H
#define VASK_SHARED_MAPPING_H

#include <cstddef>

// Owner of a shared mapping of a file.
class shared_mapping {
public:
    shared_mapping() = default;
    ~shared_mapping();

    shared_mapping(const shared_mapping&) = delete;
    shared_mapping& operator=(const shared_mapping&) = delete;

    // Maps the file's start. False with errno on failure.
    bool map(int fd, std::size_t size, int protection);

    // Makes the mapping larger; it may move. False with errno on failure, with the mapping as it
    // was.
    bool grow(std::size_t size);

    void* address() const { return m_address; }
    std::size_t size() const { return m_size; }

private:
    void* m_address = nullptr;
    std::size_t m_size = 0;
};

#endif
