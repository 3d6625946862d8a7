// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_STARTED_PROCESS_H
#define VASK_TEST_STARTED_PROCESS_H

/**
 * @file
 * @brief A program that a test starts.
 */

#include <sys/types.h>

#include <string>
#include <vector>

namespace vask_test {

/** A program that ends with this object at the latest. Shares the standard output of the test. */
class started_process {
public:
    /** How to start it. */
    struct options {
        /** "NAME=value", in place of the test's own. */
        std::vector<std::string> environment;
        /** Empty for the path. */
        std::string argv0;
        /** A descriptor in place of the test's own, or -1. */
        int standard_output = -1;
        /** All variables, in place of those above and the test's own, unless empty. */
        std::vector<std::string> whole_environment = {};
        /** Whether all descriptors but the first three are closed for it. */
        bool closes_descriptors = false;
    };

    /** Throws std::runtime_error when it cannot be started. @param path  the program, searched in
     *  PATH @param arguments  without the program's name */
    started_process(const std::string& path, const std::vector<std::string>& arguments);
    /** Throws std::runtime_error when it cannot be started. @param path  the program, searched in
     *  PATH @param arguments  without the program's name @param wanted  how to start it */
    started_process(const std::string& path, const std::vector<std::string>& arguments,
                    const options& wanted);
    ~started_process();
    started_process(const started_process&) = delete;
    started_process& operator=(const started_process&) = delete;

    /** @return its process id, also when it has ended */
    pid_t pid() const { return m_pid; }
    /** @param signal  sent unless it has ended */
    void send(int signal) const;

    /** @return whether it is stopped within 30 seconds */
    bool wait_until_stopped();

    /** @return the exit status, minus the number of the signal that ended it, or -1000 if it runs
     *  after 30 seconds or somebody else has waited for it */
    int wait_for_end();

    /** Reaps it if it has. @return whether it has ended */
    bool has_ended();

    /** SIGKILL, and no zombie. */
    void kill_now();

private:
    bool poll(int flags);

    pid_t m_pid = -1;
    bool m_ended = false;
    int m_status = 0;
};

}  // namespace vask_test

#endif
