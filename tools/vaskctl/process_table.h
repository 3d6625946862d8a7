// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_PROCESS_TABLE_H
#define VASKCTL_PROCESS_TABLE_H

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vaskctl {

enum class process_state { running, stopped, zombie, gone, hidden };

const char* name_of(process_state state);

enum class answer { yes, no, unknown };

// What /proc tells about a process.
struct process_info {
    int pid = 0;
    int parent = 0;
    process_state state = process_state::gone;
    uid_t owner = 0;
    bool is_kernel_thread = false;
    bool has_lost_first_thread = false;  // others run on, and /proc/PID shows no memory
    unsigned long long start_ticks = 0;  // since the system was started
    std::string program;                 // as the library's tools find it, else the kernel's name

    // Of its environment; nothing where the tool must not look, or the variable is not there.
    bool has_environment = false;
    std::optional<int> nest_level;
    std::string bus_address;
};

// A snapshot of all processes. Nothing in it is waited for, and of what another process may have
// made arbitrarily long a bounded part is read.
class process_table {
public:
    process_table();

    // Null when there is no such process.
    const process_info* find(int pid) const;

    const std::map<int, process_info>& all() const { return m_processes; }

    // What kill() and /proc together tell of a number that may be no process any more.
    process_state state_of(int pid) const;

    // Whether the process has the library loaded.
    answer has_library(int pid) const;

    // Whether the number is a thread of another process.
    static bool is_thread_of_another(int pid);

    // "notes_child 812", or "process 812".
    std::string describe(int pid) const;

private:
    std::map<int, process_info> m_processes;
    mutable std::map<int, answer> m_has_library;
};

// As process_table::describe(), for one process.
std::string describe_process(int pid);

// The start of a file, as far as it can be had; nothing with errno where it cannot be opened.
std::optional<std::string> read_start(const std::string& path, std::size_t longest);

// The same of what a process has mapped, also where its first thread has ended before others.
std::optional<std::string> read_maps(int pid, std::size_t longest);

// The entries of a directory that are numbers above 0; none where it cannot be read.
std::vector<int> numbers_in(const std::string& path);

}  // namespace vaskctl

#endif
