// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_FOREIGN_PROGRAM_H
#define VASK_TEST_FOREIGN_PROGRAM_H

#include <sys/types.h>

#include <string>

namespace vask_test {

/** A shell command that runs beside the main loop of the test, and ends with this object at the
 *  latest. */
class foreign_program {
public:
    explicit foreign_program(const std::string& command);
    ~foreign_program();
    foreign_program(const foreign_program&) = delete;
    foreign_program& operator=(const foreign_program&) = delete;

    /** Runs the main loop until the program has ended; its exit status, -1 when the deadline comes
     *  first, or 1000 plus the number of the signal that ended it. */
    int wait_for_end();

    /** What it has written to standard output and standard error so far. */
    const std::string& output();

    /** Waits, without the main loop, until its output holds a text; what follows as a number. */
    int number_after(const std::string& text);

private:
    bool has_ended();

    pid_t m_pid = -1;
    int m_output_fd = -1;
    bool m_ended = false;
    int m_status = 0;
    std::string m_output;
};

}  // namespace vask_test

#endif
