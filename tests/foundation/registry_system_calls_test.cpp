// How often a lookup enters the kernel, counted from outside.

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>

#include <map>

#include "foundation/registry_member.h"

namespace {

// System calls that nobody else makes mark begin and end.
constexpr long begin_mark = -1000001;
constexpr long end_mark = -1000002;

void mark(long which) {
    syscall(SYS_close, which);
}

struct call_counts {
    std::map<long, int> by_number;
    int all = 0;
    bool complete = false;

    int of(long number) const {
        const auto found = by_number.find(number);
        return found == by_number.end() ? 0 : found->second;
    }
};

void PrintTo(const call_counts& counts, std::ostream* out) {
    for (const auto& [number, count] : counts.by_number)
        *out << "call " << number << ": " << count << " times, ";
}

call_counts count_between_marks(pid_t pid) {
    call_counts counts;
    bool counting = false;
    int status = 0;
    ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD);
    while (ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr) == 0 && waitpid(pid, &status, 0) == pid &&
           WIFSTOPPED(status)) {
        __ptrace_syscall_info info = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof(info), &info);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY)
            continue;
        const auto number = static_cast<long>(info.entry.nr);
        const auto argument = static_cast<int>(info.entry.args[0]);
        if (number == SYS_close && argument == end_mark) {
            counts.complete = counting;
            ptrace(PTRACE_DETACH, pid, nullptr, nullptr);
            break;
        }
        if (counting) {
            ++counts.by_number[number];
            ++counts.all;
        }
        counting = counting || (number == SYS_close && argument == begin_mark);
    }
    return counts;
}

class registry_system_calls : public registry_test {
protected:
    call_counts count_in_lookup(size_t entries) {
        forked_process reader([this, entries] {
            // What the first lookup takes from the allocator is there for the second.
            find();
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            raise(SIGSTOP);
            mark(begin_mark);
            const size_t found = find().size();
            mark(end_mark);
            return found == entries ? 0 : 1;
        });
        int status = 0;
        waitpid(reader.pid(), &status, 0);
        EXPECT_TRUE(WIFSTOPPED(status));
        const call_counts counts = count_between_marks(reader.pid());
        EXPECT_EQ(reader.wait_for_end(), 0) << "It has found something else.";
        return counts;
    }
};

}  // namespace

TEST_F(registry_system_calls, Are_one_for_each_entry_and_five_more) {
    for (const size_t entries : {1, 100, 200}) {
        registry_object("program").fill(entries, my_pid);
        const call_counts counts = count_in_lookup(entries);
        ASSERT_TRUE(counts.complete);
        EXPECT_EQ(counts.of(SYS_kill), static_cast<int>(entries));
        EXPECT_LE(counts.all, static_cast<int>(entries) + 5) << testing::PrintToString(counts);
    }
}
