// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "running_child.h"

#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <vector>

#include "support/test_program.h"
#include "vask_test/bus_client.h"
#include "vask_test/main_loop.h"
#include "vask_test/served_child.h"

namespace vask_test {

namespace {

std::vector<std::string> arguments_of(const running_child::options& wanted) {
    if (wanted.key.empty()) {
        return {};
    }
    return {wanted.key};
}

started_process::options started_as(const std::string& argv0) {
    started_process::options wanted;
    wanted.argv0 = argv0;
    return wanted;
}

}  // namespace

running_child::running_child(log_catcher& log, const options& wanted)
    : m_process(test_program("controller_child"), arguments_of(wanted), started_as(wanted.argv0)) {
    const log_line ready = line("", "", "ready " + std::to_string(pid()));
    const bool is_ready = wait_until_without_loop([&] {
        const std::vector<log_line> lines = log.lines();
        return std::find(lines.begin(), lines.end(), ready) != lines.end();
    });
    if (!is_ready) {
        throw std::runtime_error("the child did not get ready");
    }
    log.clear();
}

void running_child::end() {
    m_process.kill_now();
    wait_until_off_the_bus();
}

void running_child::end_unreaped() {
    m_process.send(SIGKILL);
    siginfo_t info;
    while (waitid(P_PID, static_cast<id_t>(pid()), &info, WEXITED | WNOWAIT) != 0 &&
           errno == EINTR) {
    }
    wait_until_off_the_bus();
}

void running_child::wait_until_off_the_bus() const {
    bus_client client;
    wait_until([&] { return !client.is_owned(child_name(pid())); });
}

}  // namespace vask_test
