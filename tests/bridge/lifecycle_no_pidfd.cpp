// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

#include "bridge/lifecycle_support.h"

using namespace vask_test;

/**
 * On a kernel without pidfd_open GLib hears of the end of children by SIGCHLD, and a thread of its
 * own reaps them. Whatever is linked with this file sees such a kernel.
 */
namespace {

// Before anything of GLib runs.
__attribute__((constructor)) void forbid_pidfd_open() {
    sock_filter instructions[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_pidfd_open, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {sizeof(instructions) / sizeof(instructions[0]), instructions};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        std::abort();
    }
}

bool has_handler(int signal_number) {
    struct sigaction action;
    return sigaction(signal_number, nullptr, &action) == 0 && action.sa_handler != SIG_DFL &&
           action.sa_handler != SIG_IGN;
}

}  // namespace

TEST(kernel_without_pidfd, Refuses_pidfd_open) {
    EXPECT_EQ(syscall(SYS_pidfd_open, getpid(), 0), -1);
    EXPECT_EQ(errno, ENOSYS);
}

TEST(kernel_without_pidfd, Leaves_SIGCHLD_alone_all_the_same) {
    recording_bridge bridge(true);
    ASSERT_FALSE(has_handler(SIGCHLD));
    spawn_probe(bridge, {"sleep"});
    EXPECT_FALSE(has_handler(SIGCHLD));
}

TEST(kernel_without_pidfd, Is_named_by_the_source_that_looks_for_the_end) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const std::string child = std::to_string(bridge.get_child_pid());
    EXPECT_THAT(child_source_names(),
                testing::ElementsAre("vask: child " + child + ": end by polling"));
}
