// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/started_process.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <stdexcept>

#include "vask_test/main_loop.h"

namespace vask_test {

namespace {

constexpr int unknown_status = -1000;

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// Only one of each name, since an emulator of processors passes the last one of two on.
std::vector<std::string> environment_with(std::vector<std::string> variables) {
    const std::size_t wanted = variables.size();
    for (char** entry = environ; *entry; ++entry) {
        const std::string variable = *entry;
        const std::string beginning = variable.substr(0, variable.find('=') + 1);
        const auto end = variables.begin() + static_cast<std::ptrdiff_t>(wanted);
        if (std::none_of(variables.begin(), end, [&](const std::string& other) {
                return other.compare(0, beginning.size(), beginning) == 0;
            })) {
            variables.push_back(variable);
        }
    }
    return variables;
}

}  // namespace

started_process::started_process(const std::string& path, const std::vector<std::string>& arguments)
    : started_process(path, arguments, options()) {}

started_process::started_process(const std::string& path, const std::vector<std::string>& arguments,
                                 const options& wanted) {
    std::vector<std::string> texts = {wanted.argv0.empty() ? path : wanted.argv0};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv = pointers_to(texts);

    std::vector<std::string> variables = wanted.whole_environment;
    if (variables.empty()) {
        variables = environment_with(wanted.environment);
    }
    std::vector<char*> envp = pointers_to(variables);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (wanted.standard_output >= 0) {
        posix_spawn_file_actions_adddup2(&actions, wanted.standard_output, STDOUT_FILENO);
    }
    if (wanted.closes_descriptors) {
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    }
    const int failure =
        posix_spawnp(&m_pid, path.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
        throw std::runtime_error("cannot start " + path);
    }
}

started_process::~started_process() {
    kill_now();
}

void started_process::send(int signal) const {
    // When somebody else has waited for it, its number may be a stranger's.
    siginfo_t info;
    if (!m_ended &&
        waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0) {
        kill(m_pid, signal);
    }
}

bool started_process::poll(int flags) {
    if (m_ended) {
        return true;
    }
    int status = 0;
    pid_t result;
    do {
        result = waitpid(m_pid, &status, flags);
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        // Somebody else has waited for it.
        m_ended = true;
        m_status = unknown_status;
        return true;
    }
    if (result == 0) {
        return false;
    }
    if (WIFSTOPPED(status)) {
        return true;
    }
    m_ended = true;
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return true;
}

bool started_process::wait_until_stopped() {
    return wait_until_without_loop([this] { return poll(WNOHANG | WUNTRACED); }) && !m_ended;
}

int started_process::wait_for_end() {
    return wait_until_without_loop([this] { return poll(WNOHANG); }) ? m_status : unknown_status;
}

bool started_process::has_ended() {
    poll(WNOHANG);
    return m_ended;
}

void started_process::kill_now() {
    send(SIGKILL);
    poll(0);
}

}  // namespace vask_test
