#include "shared_info/system_call_count.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ostream>

#include "foundation/registry_process.h"

namespace {

void count_between_marks(pid_t pid, system_call_count& count) {
    bool is_counting = false;
    int status = 0;
    int signal = 0;
    while (ptrace(PTRACE_SYSCALL, pid, nullptr, signal) == 0 && waitpid(pid, &status, 0) == pid) {
        if (WIFEXITED(status))
            count.exit_status = WEXITSTATUS(status);
        if (!WIFSTOPPED(status))
            return;
        signal = WSTOPSIG(status) == (SIGTRAP | 0x80) ? 0 : WSTOPSIG(status);
        __ptrace_syscall_info info = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof(info), &info);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY)
            continue;
        const auto number = static_cast<long>(info.entry.nr);
        const auto argument = static_cast<int>(info.entry.args[0]);
        if (number == SYS_close && argument == system_call_mark::end_argument) {
            count.is_complete = is_counting;
            is_counting = false;
        }
        if (is_counting) {
            ++count.by_number[number];
            ++count.all;
        }
        is_counting =
            is_counting || (number == SYS_close && argument == system_call_mark::begin_argument);
    }
}

}  // namespace

void PrintTo(const system_call_count& count, std::ostream* out) {
    for (const auto& [number, times] : count.by_number)
        *out << "call " << number << ": " << times << " times, ";
    *out << "exit status " << count.exit_status;
}

system_call_count count_system_calls(const std::function<int()>& work) {
    system_call_count count;
    forked_process process([&work] {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        return work();
    });
    int status = 0;
    waitpid(process.pid(), &status, 0);
    if (!WIFSTOPPED(status))
        return count;
    ptrace(PTRACE_SETOPTIONS, process.pid(), nullptr, PTRACE_O_TRACESYSGOOD);
    count_between_marks(process.pid(), count);
    return count;
}
