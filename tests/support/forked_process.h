// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_FORKED_PROCESS_H
#define VASK_TEST_FORKED_PROCESS_H

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "support/shared_value.h"
#include "vask_object.h"

/** A forked process that ends with the result of a function, and with this object at the latest. */
class forked_process {
public:
    explicit forked_process(const std::function<int()>& work) {
        std::fflush(stdout);
        m_pid = fork();
        if (m_pid < 0) {
            std::abort();
        }
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            // As in a program that was started, not only forked.
            vask_object::my_pid = getpid();
            _exit(work());
        }
    }
    ~forked_process() {
        if (!m_reaped) {
            kill_now();
        }
    }
    forked_process(const forked_process&) = delete;
    forked_process& operator=(const forked_process&) = delete;

    pid_t pid() const { return m_pid; }

    void kill_now() {
        kill(m_pid, SIGKILL);
        wait_for_end();
    }

    bool is_running() const {
        siginfo_t info = {};
        return waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOWAIT | WNOHANG) == 0 &&
               info.si_pid == 0;
    }

    /** The exit status, or minus the number of the signal that ended it. */
    int wait_for_end() {
        int status = 0;
        while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
        m_reaped = true;
        return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }

    /** Waits until it is dead, and leaves it to be reaped later. */
    void wait_until_zombie() const {
        siginfo_t info;
        while (waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOWAIT) != 0 &&
               errno == EINTR) {
        }
    }

private:
    pid_t m_pid = -1;
    bool m_reaped = false;
};

/** Blocks until a signal ends the process. */
[[noreturn]] inline void wait_for_a_signal() {
    for (;;) {
        pause();
    }
}

#endif
