// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_UNIQUE_FD_H
#define VASK_UNIQUE_FD_H

#include <unistd.h>

#include <utility>

// Owner of a file descriptor; -1 is none.
class unique_fd {
public:
    explicit unique_fd(int fd = -1) : m_fd(fd) {}
    unique_fd(unique_fd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    unique_fd& operator=(unique_fd&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~unique_fd() {
        if (m_fd != -1) {
            close(m_fd);
        }
    }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd != -1; }

private:
    int m_fd;
};

#endif
