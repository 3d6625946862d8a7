// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "registry.h"

#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "shared_info/shared_layout.h"

namespace vaskctl {

namespace {

// A writer needs microseconds. Whoever writes all the time is not waited for.
constexpr int most_attempts = 5;
constexpr std::size_t most_entries_shown = 4096;
constexpr double clock_doubt_sec = 1;

template <typename Field>
bool read_field(int fd, std::size_t offset, Field* field) {
    return pread(fd, field, sizeof(*field), static_cast<off_t>(offset)) ==
           static_cast<ssize_t>(sizeof(*field));
}

double seconds(const timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double read_clock(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return seconds(time);
}

}  // namespace

const char* name_of(registrant_state state) {
    switch (state) {
        case registrant_state::running:
            return "running";
        case registrant_state::stopped:
            return "stopped";
        case registrant_state::zombie:
            return "zombie";
        case registrant_state::gone:
            return "gone";
        case registrant_state::recycled:
            return "recycled";
        case registrant_state::doubtful:
            return "doubtful";
        case registrant_state::hidden:
            return "hidden";
    }
    return "";
}

registry::registry(const std::string& name) : m_name(name), m_file(registry_prefix + name) {
    if (m_file.exists() && !m_file.is_regular()) {
        m_damage = "it is not a regular file";
    } else if (is_readable()) {
        read();
    }
}

void registry::read() {
    for (int i = 0; i < most_attempts && !read_once(); ++i) {
    }
    const auto size = static_cast<std::size_t>(m_file.facts().st_size);
    if (size == 0) {
        return;  // just made; a reader takes it for empty, and a writer gives it its size
    }
    if (size < entry_offset(0)) {
        m_damage = "it is shorter than its header";
    } else if (m_count < 0 || static_cast<std::size_t>(m_count) > entries_in(size)) {
        m_damage = "it claims " + std::to_string(m_count) + " entries and has room for " +
                   std::to_string(entries_in(size));
    }
}

// False when somebody has written meanwhile.
bool registry::read_once() {
    m_entries.clear();
    m_count = 0;
    if (!read_field(m_file.fd(), offsetof(pid_array, sequence), &m_sequence)) {
        return true;
    }
    std::atomic_thread_fence(std::memory_order_acquire);  // [R6]
    if (!read_field(m_file.fd(), offsetof(pid_array, count), &m_count)) {
        return true;
    }
    const auto claimed = static_cast<std::size_t>(std::max(m_count, 0));
    std::vector<pid_array_entry> found(std::min(claimed, most_entries_shown));
    const ssize_t length = pread(m_file.fd(), found.data(), found.size() * sizeof(found[0]),
                                 static_cast<off_t>(entry_offset(0)));
    found.resize(length < 0 ? 0 : static_cast<std::size_t>(length) / sizeof(found[0]));
    std::atomic_thread_fence(std::memory_order_acquire);  // [R7]
    std::uint32_t sequence_after = ~m_sequence;
    read_field(m_file.fd(), offsetof(pid_array, sequence), &sequence_after);
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (found[i].pid > 0) {
            m_entries.push_back({i, found[i].pid, found[i].key});
        }
    }
    return sequence_after == m_sequence && m_sequence % 2 == 0;
}

// Who began after the registry was last written to has not registered itself in it. Not certain
// where the clock was set since the system was started, so only what is clear counts.
bool registry::began_after_last_change(const process_info& process) const {
    const double boot = read_clock(CLOCK_REALTIME) - read_clock(CLOCK_BOOTTIME);
    const double change = seconds(m_file.facts().st_mtim);
    const double begin =
        boot + static_cast<double>(process.start_ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
    return change > boot && begin > change + clock_doubt_sec;
}

registrant_state registry::state_of(const registry_entry& entry,
                                    const process_table& processes) const {
    const process_info* process = processes.find(entry.pid);
    if (process == nullptr) {
        if (process_table::is_thread_of_another(entry.pid)) {
            return registrant_state::recycled;
        }
        return processes.state_of(entry.pid) == process_state::gone ? registrant_state::gone
                                                                    : registrant_state::hidden;
    }
    if (process->state == process_state::zombie) {
        return registrant_state::zombie;
    }
    const answer has_library =
        process->is_kernel_thread ? answer::no : processes.has_library(entry.pid);
    if (has_library == answer::no) {
        return registrant_state::recycled;
    }
    if (process->program != m_name && began_after_last_change(*process)) {
        return registrant_state::doubtful;
    }
    return process->state == process_state::stopped ? registrant_state::stopped
                                                    : registrant_state::running;
}

std::vector<registry> read_registries() {
    std::vector<registry> registries;
    for (const std::string& name : list_shared_files(registry_prefix)) {
        registries.emplace_back(name);
    }
    return registries;
}

}  // namespace vaskctl
