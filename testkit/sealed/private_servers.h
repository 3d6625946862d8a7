// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_PRIVATE_SERVERS_H
#define VASK_TEST_PRIVATE_SERVERS_H

#include <signal.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace vask_test {

/** Becomes the program, or ends with status 127. */
void exec_or_exit(const std::vector<std::string>& command);

/** Starts a program in a session of its own, with the signal mask given. It ends with its starter.
 *  The function runs in it first. */
pid_t spawn(const std::vector<std::string>& command, const sigset_t& mask,
            const std::function<void()>& prepare);

/** A server that announces on a pipe where it can be reached, once it can be. */
class private_server {
public:
    /** The directory is for its socket, its configuration and its log. */
    explicit private_server(const std::string& directory) : m_directory(directory) {}

    pid_t pid() const { return m_pid; }

    void start_bus(const sigset_t& mask);
    void start_display(const sigset_t& mask);

    /** The announced line, or "" when the server ended or needed too long. */
    std::string wait_for_address(int deadline_msec);
    std::string log() const;

private:
    void start(const std::string& name, std::vector<std::string> command, const sigset_t& mask);

    const std::string m_directory;
    std::string m_log_path;
    pid_t m_pid = -1;
    int m_announcement = -1;
};

}  // namespace vask_test

#endif
