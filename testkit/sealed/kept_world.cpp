// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "kept_world.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <utility>

#include "file_text.h"
#include "leftovers.h"
#include "private_servers.h"

namespace vask_test {

namespace {

constexpr const char* environment_file = "environment";
constexpr int cannot_enter = 125;

bool is_same_namespace(const std::string& a, const std::string& b) {
    struct stat first, second;
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
           first.st_ino == second.st_ino && first.st_dev == second.st_dev;
}

/** Those of the keeper that are not ours: nobody can enter the user namespace that he is in. */
int namespaces_to_enter(pid_t keeper) {
    constexpr std::pair<const char*, int> kinds[] = {
        {"user", CLONE_NEWUSER}, {"mnt", CLONE_NEWNS},  {"pid", CLONE_NEWPID},
        {"ipc", CLONE_NEWIPC},   {"net", CLONE_NEWNET},
    };
    int result = 0;
    for (const auto& kind : kinds) {
        const std::string file = std::string("/ns/") + kind.first;
        if (!is_same_namespace("/proc/" + std::to_string(keeper) + file, "/proc/self" + file)) {
            result |= kind.second;
        }
    }
    return result;
}

/** In a chroot the keeper's root is not that of his namespace, which is where setns() leads. */
bool enter_namespaces(pid_t keeper) {
    const int wanted = namespaces_to_enter(keeper);
    if (wanted == 0) {
        return true;
    }
    const std::string root_link = "/proc/" + std::to_string(keeper) + "/root";
    const int root = open(root_link.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, keeper, 0));
    const bool entered = root >= 0 && handle >= 0 && setns(handle, wanted) == 0 &&
                         fchdir(root) == 0 && chroot(".") == 0;
    const int error = errno;
    close(handle);
    close(root);
    errno = error;
    return entered;
}

void take_environment(const std::string& text) {
    clearenv();
    for (std::size_t i = 0; i < text.size(); i += std::strlen(&text[i]) + 1) {
        const std::string variable = &text[i];
        const std::size_t sign = variable.find('=');
        setenv(variable.substr(0, sign).c_str(), variable.substr(sign + 1).c_str(), 1);
    }
}

std::string own_directory() {
    char path[PATH_MAX];
    return getcwd(path, sizeof path) ? path : "/";
}

[[noreturn]] void run(std::vector<std::string> command, const std::string& environment,
                      const std::string& directory) {
    take_environment(environment);
    if (chdir(directory.c_str()) != 0 && chdir("/") != 0) {
        _exit(cannot_enter);
    }
    if (command.empty()) {
        const char* shell = std::getenv("SHELL");
        command = {shell ? shell : "/bin/sh"};
    }
    exec_or_exit(command);
    _exit(cannot_enter);
}

}  // namespace

std::string offer_world(const std::string& directory) {
    std::ofstream file(directory + "/" + environment_file);
    for (char** variable = environ; *variable; ++variable) {
        file << *variable << '\0';
    }
    file.close();
    return file.good() && chdir(directory.c_str()) == 0 ? "" : std::strerror(errno);
}

int enter_world(pid_t keeper, std::vector<std::string> command) {
    const std::string offer = "/proc/" + std::to_string(keeper) + "/cwd/" + environment_file;
    const std::string environment = file_text(offer);
    const std::string directory = own_directory();
    if (environment.empty()) {
        complain("process " + std::to_string(keeper) + " keeps no world, or not for you");
        return cannot_enter;
    }
    if (!enter_namespaces(keeper)) {
        complain("the world of process " + std::to_string(keeper) +
                 " cannot be entered: " + std::strerror(errno));
        return cannot_enter;
    }
    // The process that enters stays in its own list of processes; its children do not.
    const pid_t child = fork();
    if (child == 0) {
        run(std::move(command), environment, directory);
    }
    // What is typed at the terminal is for those inside.
    signal(SIGINT, SIG_IGN);
    signal(SIGQUIT, SIG_IGN);
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return cannot_enter;
        }
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace vask_test
