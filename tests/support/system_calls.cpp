// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "system_calls.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ostream>

namespace vask_test {

namespace {

call_counts count_between_marks(pid_t pid) {
    call_counts counts;
    bool counting = false;
    int status = 0;
    ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD);
    while (ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr) == 0 && waitpid(pid, &status, 0) == pid &&
           WIFSTOPPED(status)) {
        __ptrace_syscall_info info = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof(info), &info);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY) {
            continue;
        }
        const auto number = static_cast<long>(info.entry.nr);
        const auto argument = static_cast<int>(info.entry.args[0]);
        if (number == SYS_close && argument == system_call_mark::end_argument) {
            counts.complete = counting;
            counting = false;
        }
        if (counting) {
            ++counts.by_number[number];
            ++counts.all;
        }
        counting =
            counting || (number == SYS_close && argument == system_call_mark::begin_argument);
    }
    if (WIFEXITED(status)) {
        counts.exit_status = WEXITSTATUS(status);
    }
    return counts;
}

/** A process that is about to do this and stands still, or has ended; its status tells. */
pid_t start_under_trace(const std::function<void()>& action, int* status) {
    std::fflush(stdout);
    const pid_t pid = fork();
    if (pid < 0) {
        std::abort();
    }
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            _exit(1);
        }
        raise(SIGSTOP);
        action();
        _exit(0);
    }
    waitpid(pid, status, 0);
    return pid;
}

}  // namespace

int call_counts::of(long number) const {
    const auto found = by_number.find(number);
    return found == by_number.end() ? 0 : found->second;
}

void PrintTo(const call_counts& counts, std::ostream* out) {
    for (const auto& [number, count] : counts.by_number) {
        *out << "call " << number << ": " << count << " times, ";
    }
}

call_counts count_system_calls(const std::function<void()>& action) {
    int status = 0;
    const pid_t pid = start_under_trace(action, &status);
    return WIFSTOPPED(status) ? count_between_marks(pid) : call_counts();
}

interrupted_run interrupt_before_call(int number, const std::function<void()>& action,
                                      const std::function<void()>& meanwhile) {
    interrupted_run run;
    const pid_t pid = start_under_trace(action, &run.status);
    ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    bool counting = false;
    while (WIFSTOPPED(run.status) && !run.reached &&
           ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr) == 0 &&
           waitpid(pid, &run.status, 0) == pid) {
        __ptrace_syscall_info info = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof(info), &info);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY) {
            continue;
        }
        if (counting && number-- == 0) {
            run.reached = true;
        }
        counting =
            counting || (info.entry.nr == SYS_close &&
                         static_cast<int>(info.entry.args[0]) == system_call_mark::begin_argument);
    }
    if (run.reached) {
        meanwhile();
        ptrace(PTRACE_DETACH, pid, nullptr, nullptr);
        waitpid(pid, &run.status, 0);
    }
    return run;
}

}  // namespace vask_test
