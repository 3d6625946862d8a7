// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TREE_REMOVAL_H
#define VASK_TREE_REMOVAL_H

#include <dirent.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "foundation/unique_fd.h"

// Empties one directory, whatever somebody else does with the names in it meanwhile.
//
// The caller looks the path up once, when it opens the directory. From there every name is resolved
// in an open directory, and no link is followed: only entries of this tree are removed. A deep tree
// costs neither stack nor descriptors: upper levels are closed on the way down, and the way back
// leads through "..", which must be the directory that was left.
class tree_removal {
public:
    // The directory is open for reading.
    explicit tree_removal(unique_fd directory);

    // False at the first failure; what was not reached stays.
    bool run();

    // After a failure: whether a directory could not be opened. Otherwise an entry could not be
    // removed, and these are its path below the directory and errno.
    bool failed_to_open() const { return m_failed_to_open; }
    std::string failed_path() const;
    int error() const { return m_error; }

private:
    // What seems over goes on to the end if the directory cannot be removed.
    enum class progress { goes_on, seems_over, goes_on_to_the_end, over };

    struct level {
        level(unique_fd directory, std::string its_name)
            : fd(std::move(directory)), name(std::move(its_name)) {}

        unique_fd fd;  // closed while the removal is many levels below
        dev_t device = 0;
        ino_t inode = 0;  // both valid only while the descriptor is closed
        std::string name;
        progress reading = progress::goes_on;
        std::string directories;  // names that were read and still have to go, each with its zero
    };

    const unique_fd& directory() const { return m_levels.back().fd; }

    bool read_directory();
    bool take_entries(size_t length);
    bool take_entry(const dirent64& entry);
    bool is_directory(const dirent64& entry) const;
    bool enter_directory();
    bool leave_directory();
    bool remove_directory(const std::string& name);
    static void close_directory(level& upper);
    bool open_parent_of(const level& left);
    bool fail(const std::string& entry);

    std::vector<level> m_levels;             // the directory itself first
    std::unique_ptr<char[]> m_buffer;        // for the entries of one read
    std::vector<const dirent64*> m_entries;  // those of the last read
    std::string m_failed_entry;              // its name in the innermost level
    bool m_failed_to_open = false;
    int m_error = 0;
};

#endif
