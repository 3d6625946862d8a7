// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "bridge/lifecycle_support.h"
#include "support/interpose.h"

using namespace vask_test;

/**
 * On a kernel without pidfd_open GLib hears of the end of children by SIGCHLD, and a thread of its
 * own reaps them. Whatever is linked with this file sees such a kernel.
 */
extern "C" long syscall(long number, ...) noexcept {
    if (number == SYS_pidfd_open) {
        errno = ENOSYS;
        return -1;
    }
    long arguments[6];
    va_list list;
    va_start(list, number);
    for (long& argument : arguments) {
        argument = va_arg(list, long);
    }
    va_end(list);
    // Looked up every time: where threads wait for a first time to end, they wait by this call.
    return next_function<long(long, ...)>("syscall")(
        number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
}

namespace {

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
