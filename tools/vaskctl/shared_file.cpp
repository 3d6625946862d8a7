// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "shared_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <stdio.h>

#include <algorithm>
#include <memory>

#include "printable.h"
#include "shared_info/shared_layout.h"

namespace vaskctl {

namespace {

struct dir_closer {
    void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

std::string name_of_user(uid_t user) {
    const passwd* entry = getpwuid(user);
    return entry != nullptr ? entry->pw_name : std::to_string(user);
}

shared_file::shared_file(const std::string& name)
    : m_path(shm_directory + name),
      m_exists(lstat(m_path.c_str(), &m_facts) == 0),
      m_fd(m_exists && is_regular()
               ? open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC)
               : -1) {
    // It may be another one by now.
    if (m_fd && (fstat(m_fd.get(), &m_facts) != 0 || !is_regular())) {
        m_fd = unique_fd();
    }
}

bool shared_file::is_current() const {
    struct stat named;
    return lstat(m_path.c_str(), &named) == 0 && named.st_dev == m_facts.st_dev &&
           named.st_ino == m_facts.st_ino;
}

std::string shared_file::owner() const {
    return name_of_user(m_facts.st_uid);
}

std::string shared_file::mode() const {
    char text[16];
    snprintf(text, sizeof(text), "%04o", static_cast<unsigned int>(m_facts.st_mode & 07777));
    return text;
}

std::string shared_file::describe() const {
    return printable(m_path) + "  " + owner() + " " + mode() + "  " +
           std::to_string(m_facts.st_size) + " bytes";
}

std::vector<std::string> list_shared_files(const std::string& prefix) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, dir_closer> directory(opendir(shm_directory));
    if (!directory) {
        return names;
    }
    while (const dirent* entry = readdir(directory.get())) {
        const std::string name = entry->d_name;
        if (name.compare(0, prefix.size(), prefix) == 0) {
            names.push_back(name.substr(prefix.size()));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace vaskctl
