// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_REGISTRY_H
#define VASKCTL_REGISTRY_H

#include <cstdint>
#include <string>
#include <vector>

#include "process_table.h"
#include "shared_file.h"

namespace vaskctl {

struct registry_entry {
    std::size_t index;
    int pid;
    std::uint64_t key;
};

// What has become of the process that made an entry.
enum class registrant_state {
    running,
    stopped,
    zombie,
    gone,
    recycled,  // certainly: the number is another process's now
    doubtful,  // it may well be
    hidden
};

const char* name_of(registrant_state state);

// A process registry as it is at one instant. As for the library's own readers, no count in it is
// trusted further than the object's size; and no more is read than anybody would look at.
class registry {
public:
    explicit registry(const std::string& name);

    const std::string& name() const { return m_name; }
    const shared_file& file() const { return m_file; }

    // Why it is no registry, or empty.
    const std::string& damage() const { return m_damage; }

    bool is_readable() const { return m_file.is_readable(); }
    std::uint32_t sequence() const { return m_sequence; }
    bool is_being_written() const { return m_sequence % 2 != 0; }
    std::int32_t count() const { return m_count; }

    // Without the unused ones.
    const std::vector<registry_entry>& entries() const { return m_entries; }

    registrant_state state_of(const registry_entry& entry, const process_table& processes) const;

private:
    void read();
    bool read_once();
    bool began_after_last_change(const process_info& process) const;

    std::string m_name;
    shared_file m_file;
    std::string m_damage;          // empty while the object can be believed
    std::uint32_t m_sequence = 0;  // odd in the middle of a change
    std::int32_t m_count = 0;      // as the object claims, however long it is
    std::vector<registry_entry> m_entries;
};

// All registries of the system.
std::vector<registry> read_registries();

}  // namespace vaskctl

#endif
