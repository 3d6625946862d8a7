// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A child that does not answer: the bus library's time-out is about 25 s.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "controller/open_controller.h"
#include "controller/running_child.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;

TEST(cmd_func_slow, Fails_when_the_child_does_not_answer) {
    log_catcher log;
    const running_child child(log);
    open_controller controller;
    ASSERT_TRUE(controller.make_proxy(child.pid(), false));
    child.send(SIGSTOP);
    std::string reply = "untouched";

    EXPECT_FALSE(controller.cmd_func(CONTROLLER_CHILD_ECHO, "x", &reply));

    EXPECT_EQ(reply, "untouched");
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("ERR", "controller",
                         "Failed to call: cmd_id: 1. Did not receive a reply. Possible causes "
                         "include: the remote application did not send a reply, the message bus "
                         "security policy blocked the reply, the reply timeout expired, or the "
                         "network connection was broken.")));
}
