// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_IDLE_PROCESS_H
#define VASK_TEST_IDLE_PROCESS_H

#include <fstream>
#include <stdexcept>
#include <string>

#include "vask_test/main_loop.h"
#include "vask_test/started_process.h"

namespace vask_test {

/** Whoever starts a program goes on a moment before the program's command line is in its place;
 * where he forks, his own is there until then. */
inline void wait_for_command_line(pid_t pid, const std::string& argv0) {
    const std::string path = "/proc/" + std::to_string(pid) + "/cmdline";
    const bool is_there = wait_until_without_loop([&] {
        std::string first;
        return std::getline(std::ifstream(path), first, '\0') && first == argv0;
    });
    if (!is_there) {
        throw std::runtime_error("no command line in " + path);
    }
}

/** A process that does nothing, under an argv[0] of choice. */
class idle_process : public started_process {
public:
    explicit idle_process(const std::string& argv0)
        : started_process("sleep", {"1000"}, with(argv0)) {
        wait_for_command_line(pid(), argv0);
    }

private:
    static options with(const std::string& argv0) {
        options wanted;
        wanted.argv0 = argv0;
        return wanted;
    }
};

}  // namespace vask_test

#endif
