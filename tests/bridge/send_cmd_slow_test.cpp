// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "bridge/lifecycle_support.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;

TEST(slow_send_cmd, Fails_after_the_time_out_of_the_bus_library_when_the_child_is_stopped) {
    log_catcher log;
    recording_bridge bridge;
    ASSERT_TRUE(bridge.spawn_and_meet());
    ASSERT_EQ(kill(bridge.get_child_pid(), SIGSTOP), 0);
    char untouched[] = "untouched";
    char* reply = untouched;
    vask_error err;
    log.clear();

    const double start = vask_object::vask_gettime(VASK_TIME_SEC);
    EXPECT_FALSE(bridge.send_cmd(CHILD_ECHO, &reply, "hello", &err));
    const double needed = vask_object::vask_gettime(VASK_TIME_SEC) - start;

    EXPECT_GT(needed, 24);
    EXPECT_LT(needed, 60);
    EXPECT_EQ(reply, untouched);
    EXPECT_EQ(err.get_code(), VASK_ERR_NONE);
    EXPECT_EQ(err.get_message(), "");
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("ERR", "bridge",
                         "Failed to send command 1: Did not receive a reply. Possible causes "
                         "include: the remote application did not send a reply, the message bus "
                         "security policy blocked the reply, the reply timeout expired, or the "
                         "network connection was broken.")));

    // A stopped process does not hear that it shall end.
    kill(bridge.get_child_pid(), SIGCONT);
    EXPECT_EQ(bridge.ask(CHILD_ECHO, "awake"), "awake");
}

TEST(slow_bus, Holds_up_a_bridge_no_longer_than_the_time_out_of_the_bus_library) {
    log_catcher log;
    recording_bridge busy;
    ASSERT_TRUE(busy.spawn_and_settle());
    const pid_t daemon = bus_daemon();
    ASSERT_GT(daemon, 0);
    kill(daemon, SIGSTOP);
    const std::string argument(1024 * 1024, 'x');
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(busy.send_cmd_no_reply(CHILD_ECHO, argument));
    }
    log.clear();

    const double start = vask_object::vask_gettime(VASK_TIME_SEC);
    recording_bridge bridge;
    const double needed = vask_object::vask_gettime(VASK_TIME_SEC) - start;

    EXPECT_GT(needed, 24);
    EXPECT_LT(needed, 60);
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "bridge",
                                              "The session bus does not answer: The bus does not "
                                              "read")));
    kill(daemon, SIGCONT);
    bridge.init_proxy();
    bridge.spawn_child();
    EXPECT_TRUE(bridge.wait_until_met());
}
