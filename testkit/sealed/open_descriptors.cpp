// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "open_descriptors.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>

#include "file_text.h"

namespace fs = std::filesystem;

namespace vask_test {

namespace {

bool leads_to_log(int socket) {
    sockaddr_un peer = {};
    socklen_t length = sizeof peer;
    return getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &length) == 0 &&
           peer.sun_family == AF_UNIX && std::strcmp(peer.sun_path, "/dev/log") == 0;
}

bool leads_to_server(int socket, const std::vector<pid_t>& servers) {
    ucred peer = {};
    socklen_t length = sizeof peer;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
           std::find(servers.begin(), servers.end(), peer.pid) != servers.end();
}

/** A socket tells whose it is only to those who have it. */
bool is_kept_connection(pid_t process, int number, const std::vector<pid_t>& servers) {
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    if (handle < 0) {
        return false;
    }
    const int socket = static_cast<int>(syscall(SYS_pidfd_getfd, handle, number, 0));
    const int error = errno;
    close(handle);
    if (socket < 0) {
        // A thread that still runs may have closed it.
        return error == EBADF;
    }
    const bool is_kept = leads_to_server(socket, servers) || leads_to_log(socket);
    close(socket);
    return is_kept;
}

bool begins_with(const std::string& text, const char* beginning) {
    return text.rfind(beginning, 0) == 0;
}

/** The kinds that the libraries below keep until the end. */
bool is_kept(const std::string& target) {
    return target == "anon_inode:[eventfd]" || target == "/dev/urandom" || target == "/dev/random";
}

bool is_shell(const std::string& program) {
    const std::string name = fs::path(program).filename();
    constexpr const char* shells[] = {"bash", "busybox", "dash", "ksh", "mksh", "sh", "zsh"};
    return std::find(std::begin(shells), std::end(shells), name) != std::end(shells);
}

/** A shell keeps the script open that it runs. */
bool is_script(const std::string& target, const std::string& command, const fs::path& directory) {
    for (std::size_t i = 0; i < command.size(); i += std::strlen(&command[i]) + 1) {
        std::error_code error;
        if (fs::canonical(directory / &command[i], error) == target && !error) {
            return true;
        }
    }
    return false;
}

std::string link_target(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return length < 0 ? "" : std::string(target, static_cast<std::size_t>(length));
}

}  // namespace

bool list_open_descriptors(pid_t process, const std::vector<pid_t>& servers,
                           std::vector<open_descriptor>* list) {
    const std::string path = "/proc/" + std::to_string(process);
    DIR* directory = opendir((path + "/fd").c_str());
    if (!directory) {
        return false;
    }
    const bool is_of_shell = is_shell(link_target(path + "/exe"));
    const std::string command = is_of_shell ? file_text(path + "/cmdline") : "";
    const std::string current = link_target(path + "/cwd");
    while (const dirent* entry = readdir(directory)) {
        const int number = std::atoi(entry->d_name);
        const std::string target = link_target(path + "/fd/" + entry->d_name);
        if (number <= STDERR_FILENO || target.empty() || is_kept(target) ||
            is_script(target, command, current) ||
            (begins_with(target, "socket:") && is_kept_connection(process, number, servers))) {
            continue;
        }
        list->push_back({number, target});
    }
    closedir(directory);
    return true;
}

}  // namespace vask_test
