// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "support/named_object.h"

using testing::ElementsAre;

namespace {

/** What each write(2) to standard output carried. */
std::vector<std::string> writes_of(const std::function<void()>& action) {
    // In a pipe of this kind every write stays a packet of its own.
    int packets[2];
    if (pipe2(packets, O_DIRECT | O_CLOEXEC) != 0) {
        return {"no packet pipe"};
    }
    fflush(stdout);
    const int original = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(packets[1], STDOUT_FILENO);
    close(packets[1]);
    action();
    dup2(original, STDOUT_FILENO);
    close(original);

    std::vector<std::string> result;
    char buffer[4096];
    ssize_t length;
    while ((length = read(packets[0], buffer, sizeof buffer)) > 0) {
        result.emplace_back(buffer, static_cast<size_t>(length));
    }
    close(packets[0]);
    return result;
}

constexpr int filter_refused = 77;

/** The wait status of a child that is killed by SIGSYS if the action makes a system call. */
int status_without_system_calls(const std::function<void()>& action) {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
    };
    const sock_fprog filter = {sizeof program / sizeof program[0], program};

    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_DUMPABLE, 0);
        if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
            prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
            _exit(filter_refused);
        }
        action();
        syscall(SYS_exit_group, 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

bool filters_are_allowed() {
    const int status = status_without_system_calls([] {});
    return !WIFEXITED(status) || WEXITSTATUS(status) != filter_refused;
}

}  // namespace

TEST(printed_message, Costs_one_write_and_is_flushed_at_once) {
    vask_object::my_pid = 812;
    const named_object object("a");
    EXPECT_THAT(writes_of([&object] {
                    object.vask_p(VASK_P_ERR, "one %d\n", 1);
                    vask_object::vask_p("b", VASK_P_INFO, "two\n");
                    object.vask_p(VASK_P_ERR, "without line end");
                }),
                ElementsAre("[a:812] ERR: one 1\n", "[b:812] INFO: two\n",
                            "[a:812] ERR: without line end"));
}

TEST(printed_message, Costs_one_write_with_time_and_address_too) {
    vask_object::print_flags = VASK_P_FLAG_TIME | VASK_P_FLAG_ADDR;
    const named_object object("a");
    EXPECT_THAT(writes_of([&object] { object.vask_p(VASK_P_ERR, "one\n"); }),
                ElementsAre(testing::EndsWith("] ERR: one\n")));
}

TEST(printed_message, Costs_one_write_without_a_buffer_and_with_a_buffer_for_lines) {
    vask_object::my_pid = 812;
    for (const int mode : {_IONBF, _IOLBF}) {
        setvbuf(stdout, nullptr, mode, 0);
        EXPECT_THAT(
            writes_of([] { vask_object::vask_p("a", VASK_P_ERR, "%s %d\n%s", "one", 1, "two"); }),
            ElementsAre("[a:812] ERR: one 1\ntwo"));
    }
    setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
}

TEST(suppressed_message, Costs_no_system_call) {
    const named_object object("a");
    vask_object::vask_p("a", VASK_P_DBG, "reads the settings\n");
    if (!filters_are_allowed()) {
        GTEST_SKIP() << "needs the right to install a system call filter";
    }
    EXPECT_EQ(status_without_system_calls([&object] {
                  for (int i = 0; i < 1000; ++i) {
                      object.vask_p(VASK_P_DBG, "%s %d\n", "text", i);
                      vask_object::vask_p("a", VASK_P_DBG, "%s %d\n", "text", i);
                  }
              }),
              0);
}

TEST(suppressed_message, Is_told_from_a_printed_one_by_its_system_calls) {
    const named_object object("a");
    if (!filters_are_allowed()) {
        GTEST_SKIP() << "needs the right to install a system call filter";
    }
    const int status =
        status_without_system_calls([&object] { object.vask_p(VASK_P_ERR, "printed\n"); });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSYS) << status;
}
