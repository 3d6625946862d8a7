// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// How often a process enters the kernel to start a child, counted from outside.

#include <features.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/system_calls.h"
#include "vask_object.h"

using vask_test::call_counts;
using vask_test::count_system_calls;

namespace {

void start_true(const char* directory) {
    const strlist argv = {"/bin/true"};
    int pid = 0;
    if (!vask_object::spawn_async(&argv, nullptr, &pid, directory) ||
        waitpid(pid, nullptr, 0) != pid) {
        _exit(1);
    }
}

/** The wait for the child is one of them. */
call_counts count_in_spawn(const char* directory) {
    return count_system_calls([directory] {
        // What the first spawn takes from the allocator is there for the second.
        start_true(directory);
        vask_test::system_call_mark::begin();
        start_true(directory);
        vask_test::system_call_mark::end();
    });
}

class spawn_system_calls : public testing::Test {
protected:
    void SetUp() override {
#if !__GLIBC_PREREQ(2, 34)
        GTEST_SKIP() << "this C library cannot prepare the child without a fork";
#endif
    }
};

}  // namespace

TEST_F(spawn_system_calls, Are_no_more_than_eight_and_a_wait) {
    const call_counts counts = count_in_spawn(nullptr);
    ASSERT_TRUE(counts.complete);
    EXPECT_EQ(counts.of(SYS_wait4), 1) << testing::PrintToString(counts);
    EXPECT_LE(counts.all, 8 + 1) << testing::PrintToString(counts);
}

TEST_F(spawn_system_calls,
       Are_no_more_in_another_directory_with_an_inheritable_descriptor_and_a_blocked_signal) {
    const call_counts plain = count_in_spawn(nullptr);
    const int inheritable = dup(STDOUT_FILENO);
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigprocmask(SIG_BLOCK, &blocked, &before);

    const call_counts all = count_in_spawn("/");

    sigprocmask(SIG_SETMASK, &before, nullptr);
    close(inheritable);
    ASSERT_TRUE(all.complete);
    EXPECT_EQ(all.all, plain.all) << testing::PrintToString(all);
}
