// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_TARGET_H
#define VASKCTL_TARGET_H

#include <string>

namespace vaskctl {

// What names a child on the command line: a process id, a program, or PROGRAM:KEY.
class target {
public:
    // Throws a complaint for a text that can be none.
    explicit target(const std::string& text);

    // The child that is meant: of several that run a program, the one that has registered itself
    // with the smallest key, else the one with the smallest process id. Throws a complaint when
    // there is none. Who is registered but lives no more is not found.
    int find() const;

    const std::string& text() const { return m_text; }

private:
    int find_registered() const;
    int find_running() const;

    std::string m_text;
    int m_pid = 0;          // 0 where a program is wanted
    std::string m_program;  // not looked at where a process is wanted
    bool m_has_key = false;
    unsigned long long m_key = 0;
};

// Prints all that target understands in this system, one a line. Gives the exit status.
int print_targets(int timeout_msec);

}  // namespace vaskctl

#endif
