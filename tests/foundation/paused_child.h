// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_PAUSED_CHILD_H
#define VASK_TEST_PAUSED_CHILD_H

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

/** A process that does nothing until it is killed, at the latest with this object. */
class paused_child {
public:
    paused_child() : m_pid(fork()) {
        if (m_pid != 0) {
            return;
        }
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) {
            pause();
        }
    }
    ~paused_child() { end(); }
    paused_child(const paused_child&) = delete;
    paused_child& operator=(const paused_child&) = delete;

    pid_t pid() const { return m_pid; }

    /** Kills it and leaves it unreaped. */
    void turn_into_zombie() const {
        kill(m_pid, SIGKILL);
        siginfo_t info;
        waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOWAIT);
    }

    /** Kills and reaps it; the pid stays readable. */
    void end() {
        if (m_ended) {
            return;
        }
        kill(m_pid, SIGKILL);
        wait_status();
    }

    /** Waits for its end and reaps it. */
    int wait_status() {
        int status = -1;
        waitpid(m_pid, &status, 0);
        m_ended = true;
        return status;
    }

private:
    const pid_t m_pid;
    bool m_ended = false;
};

/** No process has this id: the kernel gives out smaller ones only. */
constexpr int pid_of_nobody = 0x7fffffff;

#endif
