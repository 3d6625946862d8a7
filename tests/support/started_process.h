// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_STARTED_PROCESS_H
#define VASK_TEST_STARTED_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace vask_test {

/** A program that ends with this object at the latest. Shares the standard output of the test. */
class started_process {
public:
    struct options {
        std::vector<std::string> environment;  // "NAME=value", in place of the test's own
        std::string argv0;                     // empty for the path
        int standard_output = -1;
    };

    explicit started_process(const std::string& path, const std::vector<std::string>& arguments);
    started_process(const std::string& path, const std::vector<std::string>& arguments,
                    const options& wanted);
    ~started_process();
    started_process(const started_process&) = delete;
    started_process& operator=(const started_process&) = delete;

    pid_t pid() const { return m_pid; }
    void send(int signal) const;

    /** False when the deadline comes first. */
    bool wait_until_stopped();

    /** The exit status, minus the number of the signal that ended it, or -1000 at the deadline. */
    int wait_for_end();

    /** SIGKILL, and no zombie. */
    void kill_now();

private:
    bool poll(int flags);

    pid_t m_pid = -1;
    bool m_ended = false;
    int m_status = 0;
};

/** The path of one of the programs that are built for tests. */
std::string test_program(const std::string& name);

}  // namespace vask_test

#endif
