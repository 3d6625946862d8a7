// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_FILE_SCRATCH_H
#define VASK_TEST_FILE_SCRATCH_H

#include <ftw.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "vask_test/log_catcher.h"

/** An empty directory that every user may enter and change; gone after the test. */
class scratch_directory {
public:
    scratch_directory() {
        char name[] = "/tmp/scratch_XXXXXX";
        if (!mkdtemp(name) || chmod(name, 0777) != 0) {
            std::abort();
        }
        m_path = name;
    }
    ~scratch_directory() {
        nftw(m_path.c_str(), remove_entry, most_descriptors, FTW_DEPTH | FTW_PHYS);
    }
    scratch_directory(const scratch_directory&) = delete;
    scratch_directory& operator=(const scratch_directory&) = delete;

    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    const std::string& path() const { return m_path; }

private:
    // Trees may have more levels than an ordinary user may open descriptors.
    static constexpr int most_descriptors = 16;

    static int remove_entry(const char* path, const struct stat*, int, FTW*) {
        return remove(path);
    }

    std::string m_path;
};

/** Permissions count while it lives: the superuser acts as nobody. */
class without_privileges {
public:
    without_privileges() : m_was_superuser(geteuid() == 0) {
        if (m_was_superuser && seteuid(65534) != 0) {
            std::abort();
        }
    }
    ~without_privileges() {
        if (m_was_superuser && seteuid(0) != 0) {
            std::abort();
        }
    }

private:
    const bool m_was_superuser;
};

inline void make_file(const std::string& path) {
    std::ofstream(path) << "content";
    ASSERT_TRUE(std::filesystem::is_regular_file(path));
}

inline void make_link(const std::string& target, const std::string& path) {
    ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0);
}

/** What the delete operations report. */
inline vask_test::log_line not_removed(const std::string& path, int error) {
    return vask_test::line(
        "ERR", "vask_object",
        "static bool vask_object::delete_path(const char*): Failed to call remove(): " + path +
            " : " + std::to_string(error));
}

inline vask_test::log_line not_opened() {
    return vask_test::line(
        "ERR", "%s",
        "Failed to call g_dir_open(): static bool vask_object::delete_dir(const char*)");
}

/** Also for a link that leads nowhere. */
inline bool exists(const std::string& path) {
    return std::filesystem::symlink_status(path).type() != std::filesystem::file_type::not_found;
}

#endif
