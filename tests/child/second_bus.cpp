// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "second_bus.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace vask_test {

namespace {

std::string temporary_directory() {
    const char* directory = std::getenv("TMPDIR");
    return directory ? directory : "/tmp";
}

std::string write_configuration(second_bus::names policy) {
    const std::string directory = temporary_directory();
    const std::string path = directory + "/second_bus.conf";
    const char* own = policy == second_bus::names::denied ? "deny" : "allow";
    std::ofstream(path) << "<busconfig><type>session</type><listen>unix:dir=" << directory
                        << "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                           "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/><"
                        << own << " own=\"*\"/></policy></busconfig>\n";
    return path;
}

}  // namespace

second_bus::second_bus(names policy) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    started_process::options wanted;
    wanted.standard_output = ends[1];
    m_daemon = std::make_unique<started_process>(
        "dbus-daemon",
        std::vector<std::string>{"--config-file=" + write_configuration(policy), "--nofork",
                                 "--nopidfile", "--print-address=1"},
        wanted);
    close(ends[1]);
    char c;
    while (read(ends[0], &c, 1) == 1 && c != '\n') {
        m_address += c;
    }
    close(ends[0]);
    if (m_address.empty()) {
        throw std::runtime_error("no second bus");
    }
}

std::string second_bus::variable() const {
    return "DBUS_SESSION_BUS_ADDRESS=" + m_address;
}

}  // namespace vask_test
