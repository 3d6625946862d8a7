// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "process_table.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "foundation/unique_fd.h"
#include "printable.h"

namespace vaskctl {

namespace {

constexpr std::size_t longest_stat = 4096;
constexpr std::size_t longest_command_line = 65536;
constexpr std::size_t longest_environment = std::size_t{1} << 21;
constexpr std::size_t longest_maps = std::size_t{1} << 24;
constexpr unsigned int kernel_thread_flag = 0x00200000;  // the kernel's PF_KTHREAD

struct dir_closer {
    void operator()(DIR* directory) const { closedir(directory); }
};

std::string path_in_proc(int pid, const char* file) {
    return "/proc/" + std::to_string(pid) + "/" + file;
}

process_state state_of_letter(char letter) {
    switch (letter) {
        case 'T':
        case 't':
            return process_state::stopped;
        case 'Z':
        case 'X':
        case 'x':
            return process_state::zombie;
        default:
            return process_state::running;
    }
}

// The name of a process may hold any character, brackets too; nothing behind it does.
bool parse_stat(const std::string& text, process_info& process) {
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open) {
        return false;
    }
    process.program = text.substr(open + 1, close - open - 1);
    char letter = '?';
    unsigned int flags = 0;
    int threads = 0;
    const int fields = sscanf(text.c_str() + close + 1,
                              " %c %d %*d %*d %*d %*d %u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d "
                              "%d %*d %llu",
                              &letter, &process.parent, &flags, &threads, &process.start_ticks);
    process.state = state_of_letter(letter);
    process.has_lost_first_thread = process.state == process_state::zombie && threads > 1;
    if (process.has_lost_first_thread) {
        process.state = process_state::running;
    }
    process.is_kernel_thread = (flags & kernel_thread_flag) != 0;
    return fields == 5;
}

// argv[0] behind its last '/', which is what the library compares.
std::string program_in(const std::string& command_line) {
    const std::string path = command_line.c_str();
    return path.substr(path.find_last_of("/\r\n\t") + 1);
}

// The first of several variables of one name is what a program sees.
void parse_environment(const std::string& text, process_info& process) {
    constexpr char nest_level[] = "VASK_NEST_LV=";
    constexpr char bus_address[] = "DBUS_SESSION_BUS_ADDRESS=";
    for (std::size_t i = 0; i < text.size(); i += strlen(text.c_str() + i) + 1) {
        const char* entry = text.c_str() + i;
        if (!process.nest_level && strncmp(entry, nest_level, strlen(nest_level)) == 0) {
            const long level = strtol(entry + strlen(nest_level), nullptr, 10);
            process.nest_level = static_cast<int>(level < 0 || level > INT_MAX ? 0 : level);
        } else if (process.bus_address.empty() &&
                   strncmp(entry, bus_address, strlen(bus_address)) == 0) {
            process.bus_address = entry + strlen(bus_address);
        }
    }
}

std::optional<process_info> read_process(int pid) {
    const auto stat_text = read_start(path_in_proc(pid, "stat"), longest_stat);
    process_info process;
    process.pid = pid;
    if (!stat_text || !parse_stat(*stat_text, process)) {
        return std::nullopt;
    }
    struct stat directory = {};
    stat(path_in_proc(pid, "").c_str(), &directory);
    process.owner = directory.st_uid;
    if (process.is_kernel_thread || process.has_lost_first_thread ||
        process.state == process_state::zombie) {
        return process;
    }
    const auto command_line = read_start(path_in_proc(pid, "cmdline"), longest_command_line);
    if (command_line && !program_in(*command_line).empty()) {
        process.program = program_in(*command_line);
    }
    if (const auto environment = read_start(path_in_proc(pid, "environ"), longest_environment)) {
        process.has_environment = true;
        parse_environment(*environment, process);
    }
    return process;
}

bool names_library(const std::string& maps) {
    for (std::size_t i = maps.find("/libvask.so"); i != std::string::npos;
         i = maps.find("/libvask.so", i + 1)) {
        const char after = maps.c_str()[i + strlen("/libvask.so")];
        if (after == '.' || after == '\n' || after == ' ' || after == '\0') {
            return true;
        }
    }
    return false;
}

std::string describe(const process_info& process) {
    return printable(process.program) + " " + std::to_string(process.pid);
}

}  // namespace

std::optional<std::string> read_start(const std::string& path, std::size_t longest) {
    const unique_fd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file) {
        return std::nullopt;
    }
    std::string text;
    char piece[16384];
    while (text.size() < longest) {
        const ssize_t length = read(file.get(), piece, sizeof(piece));
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length < 0 && text.empty()) {
            return std::nullopt;
        }
        if (length <= 0) {
            break;
        }
        text.append(piece, static_cast<std::size_t>(length));
    }
    return text;
}

std::vector<int> numbers_in(const std::string& path) {
    std::vector<int> numbers;
    const std::unique_ptr<DIR, dir_closer> directory(opendir(path.c_str()));
    while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
        const int number = atoi(entry->d_name);
        if (number > 0) {
            numbers.push_back(number);
        }
    }
    return numbers;
}

std::optional<std::string> read_maps(int pid, std::size_t longest) {
    const auto maps = read_start(path_in_proc(pid, "maps"), longest);
    if (maps ? !maps->empty() : errno != ESRCH) {
        return maps;
    }
    const std::string tasks = path_in_proc(pid, "task/");
    for (const int thread : numbers_in(tasks)) {
        const auto same = read_start(tasks + std::to_string(thread) + "/maps", longest);
        const bool is_hidden = !same && errno != ENOENT && errno != ESRCH;
        if (is_hidden || (same && !same->empty())) {
            return same;
        }
    }
    return "";
}

const char* name_of(process_state state) {
    switch (state) {
        case process_state::running:
            return "running";
        case process_state::stopped:
            return "stopped";
        case process_state::zombie:
            return "zombie";
        case process_state::gone:
            return "gone";
        case process_state::hidden:
            return "hidden";
    }
    return "";
}

process_table::process_table() {
    for (const int pid : numbers_in("/proc")) {
        if (const auto process = read_process(pid)) {
            m_processes[pid] = *process;
        }
    }
}

const process_info* process_table::find(int pid) const {
    const auto found = m_processes.find(pid);
    return found == m_processes.end() ? nullptr : &found->second;
}

process_state process_table::state_of(int pid) const {
    if (const process_info* process = find(pid)) {
        return process->state;
    }
    const bool exists = pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
    return exists && !is_thread_of_another(pid) ? process_state::hidden : process_state::gone;
}

answer process_table::has_library(int pid) const {
    const auto known = m_has_library.find(pid);
    if (known != m_has_library.end()) {
        return known->second;
    }
    const auto maps = read_maps(pid, longest_maps);
    answer result = answer::unknown;
    if (maps && (names_library(*maps) || maps->size() < longest_maps)) {
        result = names_library(*maps) ? answer::yes : answer::no;
    }
    m_has_library[pid] = result;
    return result;
}

bool process_table::is_thread_of_another(int pid) {
    const auto status = read_start(path_in_proc(pid, "status"), longest_stat);
    const std::size_t line = status ? status->find("\nTgid:") : std::string::npos;
    return line != std::string::npos && atoi(status->c_str() + line + strlen("\nTgid:")) != pid;
}

std::string process_table::describe(int pid) const {
    const process_info* process = find(pid);
    return process == nullptr ? "process " + std::to_string(pid) : vaskctl::describe(*process);
}

std::string describe_process(int pid) {
    const auto process = read_process(pid);
    return process ? describe(*process) : "process " + std::to_string(pid);
}

}  // namespace vaskctl
