// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_MAPPING_TABLE_H
#define VASKCTL_MAPPING_TABLE_H

#include <sys/stat.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace vaskctl {

// A file below /dev/shm in the memory of a process.
struct shm_mapping {
    int pid;
    std::uint64_t begin;
    std::uint64_t end;
    dev_t device;
    ino_t number;
    std::string path;
    bool is_removed;  // the file has lost its name
};

// Who has which shared files mapped, at about one instant. The tool itself does not count.
class mapping_table {
public:
    mapping_table();

    // The mappings of exactly this file.
    std::vector<shm_mapping> of(const struct stat& file) const;

    // Processes that have mapped a file which had this path once and has lost it.
    std::set<int> users_of_removed(const std::string& path) const;

    // The users whose processes could not be looked into, "root and alice"; empty for none.
    std::string hidden_users() const;

private:
    void read(int pid);

    std::vector<shm_mapping> m_mappings;
    std::set<uid_t> m_hidden;
    bool m_has_invisible = false;
};

// Whether each thread of a process sleeps in a wait for something in these mappings. Says no where
// that cannot be seen.
bool is_asleep_in(int pid, const std::vector<shm_mapping>& mappings);

}  // namespace vaskctl

#endif
