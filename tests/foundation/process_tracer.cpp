// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/process_tracer.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ostream>

namespace {

void count(int event, new_processes* made) {
    if (event == PTRACE_EVENT_FORK) {
        ++made->with_copied_memory;
    } else if (event == PTRACE_EVENT_VFORK) {
        ++made->with_shared_memory;
    } else if (event == PTRACE_EVENT_CLONE) {
        ++made->threads;
    }
}

}  // namespace

bool operator==(const new_processes& a, const new_processes& b) {
    return a.with_copied_memory == b.with_copied_memory &&
           a.with_shared_memory == b.with_shared_memory && a.threads == b.threads;
}

void PrintTo(const new_processes& made, std::ostream* out) {
    *out << made.with_copied_memory << " with copied memory, " << made.with_shared_memory
         << " with shared memory, " << made.threads << " threads";
}

bool trace_new_processes(const std::function<void()>& action, new_processes* made) {
    const pid_t tracee = fork();
    if (tracee == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            _exit(1);
        }
        raise(SIGSTOP);
        action();
        _exit(0);
    }
    int status = 0;
    waitpid(tracee, &status, 0);
    if (!WIFSTOPPED(status)) {
        return false;
    }
    ptrace(PTRACE_SETOPTIONS, tracee, nullptr,
           PTRACE_O_EXITKILL | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE);
    ptrace(PTRACE_CONT, tracee, nullptr, nullptr);
    for (;;) {
        const pid_t pid = waitpid(-1, &status, __WALL);
        if (pid != tracee) {
            ptrace(PTRACE_DETACH, pid, nullptr, nullptr);
            continue;
        }
        if (!WIFSTOPPED(status)) {
            return true;
        }
        const int event = status >> 16;
        count(event, made);
        ptrace(PTRACE_CONT, tracee, nullptr, event != 0 ? 0 : WSTOPSIG(status));
    }
}
