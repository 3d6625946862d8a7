// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SEALED_EXIT_WATCH_H
#define VASK_TEST_SEALED_EXIT_WATCH_H

#include <sys/types.h>

#include <string>

namespace vask_test {

/**
 * Holds a process at the moment when it ends, while it still has its descriptors: the kernel asks
 * before it lets the process, or one that it has started, go. A process that a signal ends is not
 * held.
 */
class exit_watch {
public:
    exit_watch();
    ~exit_watch();
    exit_watch(const exit_watch&) = delete;
    exit_watch& operator=(const exit_watch&) = delete;

    /** Between fork() and exec, in the process that is to be watched. */
    void begin_in_child() const;
    /** In the process that watches. Returns "" or why nothing can be watched. */
    std::string begin_in_parent();

    /** Whether the program has taken the place of the code that was to start it. */
    bool has_program_begun() const;

    /** To be polled for input, or -1. */
    int descriptor() const { return m_questions; }

    /** The process that ends, or 0 if it was killed meanwhile. It waits for let_go(). */
    pid_t next();
    void let_go();

    /** To be called when the descriptor reports that nobody is left who could end. */
    void end();

private:
    int m_channel[2] = {-1, -1};
    int m_questions = -1;
    unsigned long long m_waiting = 0;
};

}  // namespace vask_test

#endif
