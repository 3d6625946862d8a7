// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "socket_faults.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>
#include <thread>

using namespace vask_test;

namespace {

int call_poll() {
    return poll(nullptr, 0, 0);
}

}  // namespace

TEST(socket_faults, Fail_as_often_as_asked_for) {
    socket_fault fault("poll", ENOMEM, 2);
    EXPECT_EQ(call_poll(), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(call_poll(), -1);
    EXPECT_EQ(call_poll(), 0);
}

TEST(socket_faults, Are_not_taken_by_another_thread) {
    socket_fault fault("poll", ENOMEM);
    int polled = -1;
    std::thread([&] { polled = call_poll(); }).join();
    EXPECT_EQ(polled, 0);
    EXPECT_EQ(fault.left(), 1);
    EXPECT_EQ(call_poll(), -1);
}
