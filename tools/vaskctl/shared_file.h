// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_SHARED_FILE_H
#define VASKCTL_SHARED_FILE_H

#include <sys/stat.h>

#include <string>
#include <vector>

#include "foundation/unique_fd.h"

namespace vaskctl {

// A file below /dev/shm, opened for reading, and what can be told of it without that right.
class shared_file {
public:
    // The name is that of the file: of a semaphore with its prefix. Follows no link and waits for
    // no pipe.
    explicit shared_file(const std::string& name);

    const std::string& path() const { return m_path; }
    bool exists() const { return m_exists; }
    bool is_regular() const { return S_ISREG(m_facts.st_mode); }
    bool is_readable() const { return static_cast<bool>(m_fd); }
    int fd() const { return m_fd.get(); }
    const struct stat& facts() const { return m_facts; }

    // Whether the name still leads to this file.
    bool is_current() const;

    // "/dev/shm/NAME  root 0644  32 bytes"
    std::string describe() const;

    std::string owner() const;
    std::string mode() const;

private:
    std::string m_path;
    struct stat m_facts = {};  // valid when it exists
    bool m_exists = false;
    unique_fd m_fd;  // none where it cannot be read
};

// The rest of the names below /dev/shm that begin with a prefix, sorted.
std::vector<std::string> list_shared_files(const std::string& prefix);

// The name of a user, or the number of one that has none.
std::string name_of_user(uid_t user);

}  // namespace vaskctl

#endif
