// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "mapping_table.h"

#include <errno.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>

#include "process_table.h"
#include "shared_file.h"
#include "shared_info/shared_layout.h"

namespace vaskctl {

namespace {

constexpr std::size_t longest_maps = std::size_t{1} << 24;
constexpr std::size_t longest_syscall = 512;
constexpr char removed_mark[] = " (deleted)";

// False for a line that is none of a shared file.
bool parse_line(const char* line, std::size_t length, shm_mapping& mapping) {
    const std::string text(line, length);
    const std::size_t path = text.find('/');
    if (path == std::string::npos ||
        text.compare(path, strlen(shm_directory), shm_directory) != 0) {
        return false;
    }
    unsigned int major = 0;
    unsigned int minor = 0;
    std::uint64_t number = 0;
    if (sscanf(text.c_str(), "%" SCNx64 "-%" SCNx64 " %*s %*s %x:%x %" SCNu64, &mapping.begin,
               &mapping.end, &major, &minor, &number) != 5) {
        return false;
    }
    mapping.device = makedev(major, minor);
    mapping.number = number;
    mapping.path = text.substr(path);
    const std::size_t mark = mapping.path.rfind(removed_mark);
    mapping.is_removed =
        mark != std::string::npos && mark + strlen(removed_mark) == mapping.path.size();
    if (mapping.is_removed) {
        mapping.path.erase(mark);
    }
    return true;
}

bool is_futex_call(long number) {
#ifdef SYS_futex_time64
    if (number == SYS_futex_time64) {
        return true;
    }
#endif
    return number == SYS_futex;
}

// "running", or the number of the call and its arguments. A thread that was stopped in the call
// shows it as well.
bool is_thread_asleep_in(const std::string& task, const std::vector<shm_mapping>& mappings) {
    const auto text = read_start(task + "/syscall", longest_syscall);
    long number = 0;
    std::uint64_t address = 0;
    if (!text || sscanf(text->c_str(), "%ld 0x%" SCNx64, &number, &address) != 2 ||
        !is_futex_call(number)) {
        return false;
    }
    for (const shm_mapping& mapping : mappings) {
        if (address >= mapping.begin && address < mapping.end) {
            return true;
        }
    }
    return false;
}

// As /proc counts, which may be that of another namespace than getpid()'s; 0 where it does not.
int own_number_in_proc() {
    char number[32] = {};
    return readlink("/proc/self", number, sizeof(number) - 1) > 0 ? atoi(number) : 0;
}

}  // namespace

mapping_table::mapping_table() {
    const int own = own_number_in_proc();
    const std::vector<int> pids = numbers_in("/proc");
    for (const int pid : pids) {
        if (pid != own) {
            read(pid);
        }
    }
    // There always is a first process: who does not see it does not see others either.
    m_has_invisible = std::find(pids.begin(), pids.end(), 1) == pids.end();
}

void mapping_table::read(int pid) {
    const std::string directory = "/proc/" + std::to_string(pid);
    const auto maps = read_maps(pid, longest_maps);
    const bool is_gone = !maps && (errno == ENOENT || errno == ESRCH);
    if (!maps || maps->size() >= longest_maps) {
        struct stat owner = {};
        if (!is_gone && stat(directory.c_str(), &owner) == 0) {
            m_hidden.insert(owner.st_uid);
        }
    }
    if (!maps) {
        return;
    }
    for (std::size_t begin = 0; begin < maps->size();) {
        const std::size_t end = std::min(maps->find('\n', begin), maps->size());
        shm_mapping mapping = {};
        mapping.pid = pid;
        if (parse_line(maps->c_str() + begin, end - begin, mapping)) {
            m_mappings.push_back(mapping);
        }
        begin = end + 1;
    }
}

std::vector<shm_mapping> mapping_table::of(const struct stat& file) const {
    std::vector<shm_mapping> found;
    for (const shm_mapping& mapping : m_mappings) {
        if (mapping.device == file.st_dev && mapping.number == file.st_ino) {
            found.push_back(mapping);
        }
    }
    return found;
}

std::set<int> mapping_table::users_of_removed(const std::string& path) const {
    std::set<int> users;
    for (const shm_mapping& mapping : m_mappings) {
        if (mapping.is_removed && mapping.path == path) {
            users.insert(mapping.pid);
        }
    }
    return users;
}

std::string mapping_table::hidden_users() const {
    std::string users;
    for (const uid_t user : m_hidden) {
        users += (users.empty() ? "" : " and ") + name_of_user(user);
    }
    if (m_has_invisible) {
        users += users.empty() ? "other users" : " and others";
    }
    return users;
}

bool is_asleep_in(int pid, const std::vector<shm_mapping>& mappings) {
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    const std::vector<int> threads = numbers_in(tasks);
    for (const int thread : threads) {
        if (!is_thread_asleep_in(tasks + "/" + std::to_string(thread), mappings)) {
            return false;
        }
    }
    return !threads.empty();
}

}  // namespace vaskctl
