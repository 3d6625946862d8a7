// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/process_list.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <sstream>

#include "file_text.h"

namespace vask_test {

namespace {

std::string one_line(std::string text) {
    for (char& c : text) {
        if (c == '\0' || c == '\n') {
            c = ' ';
        }
    }
    const size_t end = text.find_last_not_of(' ');
    text.erase(end == std::string::npos ? 0 : end + 1);
    return text;
}

// The name in parentheses may itself contain parentheses and blanks: the fields start after the
// last one.
bool parse_stat(const std::string& stat, process_entry* process) {
    const size_t open = stat.find('(');
    const size_t close = stat.rfind(')');
    if (open == std::string::npos || close == std::string::npos) {
        return false;
    }
    process->command = stat.substr(open, close - open + 1);
    std::istringstream fields(stat.substr(close + 1));
    return static_cast<bool>(fields >> process->state >> process->parent);
}

}  // namespace

std::vector<process_entry> list_processes() {
    std::vector<process_entry> result;
    DIR* directory = opendir("/proc");
    if (!directory) {
        return result;
    }
    while (const dirent* entry = readdir(directory)) {
        if (!std::isdigit(static_cast<unsigned char>(entry->d_name[0]))) {
            continue;
        }
        const std::string path = std::string("/proc/") + entry->d_name;
        process_entry process;
        process.pid = std::stoi(entry->d_name);
        if (!parse_stat(file_text(path + "/stat"), &process)) {
            continue;
        }
        const std::string arguments = one_line(file_text(path + "/cmdline"));
        if (!arguments.empty()) {
            process.command = arguments;
        }
        result.push_back(process);
    }
    closedir(directory);
    return result;
}

std::vector<process_entry> list_descendants(pid_t ancestor) {
    std::vector<process_entry> others = list_processes();
    std::vector<process_entry> result;
    std::vector<pid_t> family = {ancestor};
    for (size_t i = 0; i < family.size(); ++i) {
        const auto rest = std::partition(others.begin(), others.end(),
                                         [parent = family[i]](const process_entry& process) {
                                             return process.parent != parent;
                                         });
        for (auto child = rest; child != others.end(); ++child) {
            family.push_back(child->pid);
            result.push_back(*child);
        }
        others.erase(rest, others.end());
    }
    return result;
}

pid_t bus_daemon() {
    for (const process_entry& process : list_processes()) {
        if (process.parent == getppid() && process.command.rfind("dbus-daemon ", 0) == 0) {
            return process.pid;
        }
    }
    return 0;
}

std::string kernel_position(pid_t pid) {
    const std::string path = "/proc/" + std::to_string(pid);
    const std::string stack = one_line(file_text(path + "/stack"));
    if (!stack.empty()) {
        return stack;
    }
    const std::string channel = one_line(file_text(path + "/wchan"));
    return channel == "0" ? "" : channel;
}

std::string describe(const process_entry& process) {
    return std::to_string(process.pid) + " " + process.state + " (child of " +
           std::to_string(process.parent) + ") " + process.command;
}

}  // namespace vask_test
