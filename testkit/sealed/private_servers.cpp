// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "private_servers.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace vask_test {

namespace {

constexpr int cannot_start = 125;
constexpr int no_program = 127;

// No service directories: the bus starts nothing on request.
const char bus_configuration[] = R"(
  <type>session</type>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">1000000000</limit>
  <limit name="max_completed_connections">10000</limit>
  <limit name="max_incomplete_connections">1000</limit>
  <limit name="max_connections_per_user">10000</limit>
  <limit name="max_names_per_connection">50000</limit>
  <limit name="max_match_rules_per_connection">50000</limit>
  <limit name="max_replies_per_connection">50000</limit>
</busconfig>
)";

void write_to_log(const std::string& path) {
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int log = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(null, STDIN_FILENO);
    dup2(log, STDOUT_FILENO);
    dup2(log, STDERR_FILENO);
}

}  // namespace

void exec_or_exit(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    const int error = errno;
    std::perror(arguments[0]);
    _exit(error == ENOENT ? no_program : cannot_start);
}

pid_t spawn(const std::vector<std::string>& command, const sigset_t& mask,
            const std::function<void()>& prepare) {
    const pid_t pid = fork();
    if (pid != 0) {
        return pid;
    }
    setsid();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prepare();
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    exec_or_exit(command);
    return -1;
}

void private_server::start_bus(const sigset_t& mask) {
    const std::string file = m_directory + "/bus.conf";
    std::ofstream(file) << "<busconfig>\n  <listen>unix:path=" << m_directory << "/bus</listen>"
                        << bus_configuration;
    start("bus",
          {"dbus-daemon", "--config-file=" + file, "--nofork", "--nopidfile", "--print-address"},
          mask);
}

void private_server::start_display(const sigset_t& mask) {
    start("display",
          {"Xvfb", "-screen", "0", "640x480x24", "-nolisten", "tcp", "-noreset", "-displayfd"},
          mask);
}

void private_server::start(const std::string& name, std::vector<std::string> command,
                           const sigset_t& mask) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    const std::string fd = std::to_string(ends[1]);
    if (command.back() == "--print-address") {
        command.back() += "=" + fd;
    } else {
        command.push_back(fd);
    }
    m_log_path = m_directory + "/" + name + ".log";
    m_pid = spawn(command, mask, [&] {
        write_to_log(m_log_path);
        fcntl(ends[1], F_SETFD, 0);
    });
    close(ends[1]);
    m_announcement = ends[0];
}

std::string private_server::wait_for_address(int deadline_msec) {
    using clock = std::chrono::steady_clock;
    const auto deadline = clock::now() + std::chrono::milliseconds(deadline_msec);
    std::string text;
    while (text.find('\n') == std::string::npos) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now()).count();
        pollfd announcement = {m_announcement, POLLIN, 0};
        char buffer[256];
        ssize_t length = 0;
        if (left > 0 && poll(&announcement, 1, static_cast<int>(left)) > 0) {
            length = read(m_announcement, buffer, sizeof buffer);
        }
        if (length <= 0) {
            return "";
        }
        text.append(buffer, static_cast<size_t>(length));
    }
    // The pipe stays open: a server that still writes to it must not get SIGPIPE.
    return text.substr(0, text.find('\n'));
}

std::string private_server::log() const {
    std::ifstream file(m_log_path);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace vask_test
