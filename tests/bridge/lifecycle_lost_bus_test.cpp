// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib-lowlevel.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "bridge/lifecycle_support.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

class bridge_with_lost_bus : public lifecycle_fixture {
protected:
    void SetUp() override {
        daemon = bus_daemon();
        if (daemon == 0) {
            GTEST_SKIP() << "there is no bus that may be ended";
        }
        leak_listener::accept_leftovers();
    }

    void lose_the_bus() {
        DBusConnection* connection = dbus_bus_get(DBUS_BUS_SESSION, nullptr);
        kill(daemon, SIGKILL);
        EXPECT_TRUE(wait_until([this, connection] {
            return is_gone(daemon) && !dbus_connection_get_is_connected(connection);
        }));
        dbus_connection_unref(connection);
        drain_main_loop();
    }

    pid_t daemon = 0;
};

}  // namespace

TEST_F(bridge_with_lost_bus, Lives_on_and_ends_a_child_that_was_not_met) {
    recording_bridge bridge;
    spawn_probe(bridge, {"sleep"});
    lose_the_bus();
    EXPECT_FALSE(has_ended(bridge.get_child_pid()));
    bridge.terminate_worker();
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_exit));
}

TEST_F(bridge_with_lost_bus, Is_deleted_with_a_child_that_was_not_met) {
    {
        recording_bridge bridge;
        spawn_probe(bridge, {"sleep"});
        lose_the_bus();
    }
    EXPECT_EQ(count_children(), 0);
}

TEST_F(bridge_with_lost_bus, Hears_that_the_child_has_ended_for_want_of_a_bus) {
    recording_bridge bridge;
    ASSERT_TRUE(bridge.spawn_and_meet());
    lose_the_bus();
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
    EXPECT_THAT(log.lines(),
                Contains(line("ERR", "bridge_child", "The connection to the session bus is lost")));
}

TEST_F(bridge_with_lost_bus, Is_deleted_with_a_child_that_was_met) {
    {
        recording_bridge bridge;
        ASSERT_TRUE(bridge.spawn_and_meet());
        bridge.ask(CHILD_IGNORE_SIGTERM);
        lose_the_bus();
    }
    EXPECT_EQ(count_children(), 0);
}

TEST_F(bridge_with_lost_bus, Fails_to_watch_anew_with_both_messages) {
    recording_bridge bridge;
    lose_the_bus();
    bridge.disconnect_name_owner_changed();
    log.clear();
    bridge.init_proxy();
    EXPECT_THAT(own_lines(log),
                ElementsAre(logged("ERR", "bridge",
                                   StartsWith("Failed to open DBUS session: Failed to connect to "
                                              "socket ")),
                            line("ERR", "bridge", "Failed to get DBUS proxy")));
    EXPECT_EQ(bridge.m_bus_connection, nullptr);
}

TEST_F(bridge_with_lost_bus, Starts_a_child_all_the_same) {
    recording_bridge bridge;
    lose_the_bus();
    EXPECT_FALSE(spawn_probe(bridge, {"sleep"}));
    kill(bridge.get_child_pid(), SIGKILL);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
}

TEST_F(bridge_with_lost_bus, Keeps_what_was_queued_when_it_is_told_of_its_child) {
    recording_bridge bridge;
    spawn_probe(bridge, {"sleep"});
    bridge.send_cmd_no_reply(7, "kept");
    const std::string name = bridge.child_name();
    lose_the_bus();
    bridge.name_owner_changed(nullptr, name.c_str(), "", ":1.7", nullptr);
    EXPECT_EQ(bridge.main_worker()->get_bus_proxy(), nullptr);
    child_cmd_buffer* cmd = bridge.main_worker()->dequeue_cmd();
    EXPECT_NE(cmd, nullptr);
    delete cmd;
}
