#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "bridge/recording_bridge.h"
#include "support/log_catcher.h"

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
