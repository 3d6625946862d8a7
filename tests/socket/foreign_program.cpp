// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foreign_program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "vask_test/main_loop.h"

namespace vask_test {

foreign_program::foreign_program(const std::string& command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        std::abort();
    }
    m_output_fd = ends[0];
    m_pid = fork();
    if (m_pid == 0) {
        // Its own group, so that everything it starts can be ended.
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        fcntl(ends[1], F_SETFL, 0);
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    setpgid(m_pid, m_pid);
    close(ends[1]);
}

foreign_program::~foreign_program() {
    if (!m_ended) {
        kill(-m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    close(m_output_fd);
}

bool foreign_program::has_ended() {
    output();
    if (!m_ended) {
        m_ended = waitpid(m_pid, &m_status, WNOHANG) == m_pid;
    }
    return m_ended;
}

int foreign_program::wait_for_end() {
    if (!wait_until([this] { return has_ended(); })) {
        return -1;
    }
    output();
    return WIFSIGNALED(m_status) ? 1000 + WTERMSIG(m_status) : WEXITSTATUS(m_status);
}

const std::string& foreign_program::output() {
    char buffer[4096];
    ssize_t length;
    while ((length = read(m_output_fd, buffer, sizeof buffer)) > 0) {
        m_output.append(buffer, static_cast<size_t>(length));
    }
    return m_output;
}

int foreign_program::number_after(const std::string& text) {
    const auto is_there = [&] {
        const size_t begin = output().find(text);
        return begin != std::string::npos && m_output.find('\n', begin) != std::string::npos;
    };
    return wait_until_without_loop(is_there)
               ? std::atoi(m_output.c_str() + m_output.find(text) + text.size())
               : -1;
}

}  // namespace vask_test
