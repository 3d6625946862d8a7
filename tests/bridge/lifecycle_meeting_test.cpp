// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bridge/lifecycle_support.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using bridge_meeting = lifecycle_fixture;
using bridge_bus_watch = lifecycle_fixture;

namespace {

/** Lets a stopped process go on after a while, whatever the test's process does meanwhile. */
void wake_later(pid_t pid, int msec) {
    if (fork() == 0) {
        usleep(static_cast<useconds_t>(msec) * 1000);
        kill(pid, SIGCONT);
        _exit(0);
    }
}

/** Sends ten MiB of commands, without letting the main loop run. */
void fill_connection(recording_bridge& bridge) {
    const std::string argument(1024 * 1024, 'x');
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, argument));
    }
}

const log_line connected_line = line("DBG", "bridge", "The child has connected to the bus");
const log_line disconnect_line = line("DBG", "bridge", "Disconnect NameOwnerChanged signal");

bool has_owner(const std::string& name) {
    DBusConnection* connection = dbus_bus_get(DBUS_BUS_SESSION, nullptr);
    const bool result = dbus_bus_name_has_owner(connection, name.c_str(), nullptr);
    dbus_connection_unref(connection);
    return result;
}

/** Whatever the bus has to say about names until now has been said after that. */
void hear_all_news_of_the_bus() {
    recording_bridge messenger(false, "messenger");
    ASSERT_TRUE(messenger.spawn_and_meet());
    drain_main_loop();
}

void crash(recording_bridge& bridge) {
    const std::size_t count = bridge.ends.size() + 1;
    kill(bridge.get_child_pid(), SIGKILL);
    ASSERT_TRUE(bridge.wait_for_ends(count));
}

}  // namespace

TEST_F(bridge_meeting, Gives_the_child_an_address_and_a_bus_proxy_and_ends_the_watch) {
    recording_bridge bridge;
    bridge.spawn_child();
    ASSERT_TRUE(bridge.wait_until_met());
    EXPECT_THAT(bridge.get_child_bus_addr(), StartsWith(":1."));
    EXPECT_NE(bridge.main_worker()->get_bus_proxy(), nullptr);
    EXPECT_EQ(bridge.m_bus_daemon_proxy, nullptr);
    EXPECT_NE(bridge.m_bus_connection, nullptr);
    EXPECT_THAT(own_lines(log), Contains(connected_line).Times(1));
    EXPECT_THAT(own_lines(log), Contains(disconnect_line).Times(1));
}

TEST_F(bridge_meeting, Brings_the_geometry_first_and_then_the_commands_in_order) {
    recording_bridge bridge;
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_CHANGED);
    bridge.spawn_child();
    bridge.send_cmd_no_reply(CHILD_ECHO, "one");
    bridge.set_window(1, 2, 3, 4, 5);
    bridge.send_cmd_no_reply(CHILD_ECHO, "two");
    ASSERT_TRUE(bridge.wait_until_met());
    EXPECT_THAT(bridge.journal(),
                ElementsAre("SetWindow 1 2 3 4 5", "Command 1 one", "Command 1 two"));
}

TEST_F(bridge_meeting, Does_not_happen_without_a_bus_watch) {
    recording_bridge bridge(true);
    bridge.spawn_child();
    ASSERT_TRUE(wait_until([&bridge] { return has_owner(bridge.child_name()); }));
    hear_all_news_of_the_bus();
    EXPECT_EQ(bridge.get_child_bus_addr(), nullptr);
    EXPECT_EQ(bridge.main_worker()->get_bus_proxy(), nullptr);
}

TEST_F(bridge_meeting, Happens_when_the_watch_begins_before_the_child_joins) {
    recording_bridge bridge(true);
    bridge.init_proxy();
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_EQ(bridge.ask(CHILD_ECHO, "hello"), "hello");
}

TEST_F(bridge_meeting, Happens_to_the_successor_of_a_crashed_child_if_the_watch_was_renewed) {
    recording_bridge bridge;
    ASSERT_TRUE(bridge.spawn_and_meet());
    crash(bridge);
    bridge.init_proxy();
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_EQ(bridge.ask(CHILD_ECHO, "hello again"), "hello again");
}

TEST_F(bridge_meeting, Does_not_happen_to_the_successor_without_a_new_watch) {
    recording_bridge bridge;
    ASSERT_TRUE(bridge.spawn_and_meet());
    crash(bridge);
    bridge.spawn_child();
    ASSERT_TRUE(wait_until([&bridge] { return has_owner(bridge.child_name()); }));
    hear_all_news_of_the_bus();
    EXPECT_EQ(bridge.get_child_bus_addr(), nullptr);
    EXPECT_EQ(bridge.main_worker()->get_bus_proxy(), nullptr);
}

TEST_F(bridge_meeting, Happens_to_the_successor_of_a_child_that_was_never_met) {
    recording_bridge bridge;
    bridge.spawn_child({"--exit", "0"});
    ASSERT_TRUE(bridge.wait_for_ends(1));
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
}

TEST_F(bridge_meeting, Does_not_bring_the_successor_what_was_queued_for_its_predecessor) {
    recording_bridge bridge;
    bridge.spawn_child({"--exit", "0"});
    bridge.send_cmd_no_reply(CHILD_ECHO, "for the first");
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
    bridge.spawn_child();
    bridge.send_cmd_no_reply(CHILD_ECHO, "for the second");
    ASSERT_TRUE(bridge.wait_until_met());
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 for the second"));
}

TEST_F(bridge_meeting, Brings_the_geometry_to_the_successor_as_well) {
    recording_bridge bridge;
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_CHANGED);
    bridge.set_window(1, 2, 3, 4, 5);
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_EQ(bridge.m_window_data_sent_count, 1u);
    crash(bridge);
    EXPECT_EQ(bridge.m_window_data_sent_count, 0u);
    bridge.init_proxy();
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_THAT(bridge.journal(), ElementsAre("SetWindow 1 2 3 4 5"));
}

TEST_F(bridge_meeting, Is_followed_by_a_polite_end) {
    recording_bridge bridge;
    ASSERT_TRUE(bridge.spawn_and_meet());
    const std::string name = bridge.child_name();
    ASSERT_TRUE(has_owner(name));
    bridge.terminate_worker();
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_exit));
    EXPECT_TRUE(wait_until([&name] { return !has_owner(name); }));
}

TEST_F(bridge_meeting, Of_two_bridges_brings_each_its_own_child) {
    recording_bridge first(false, "first");
    recording_bridge second(false, "second");
    first.spawn_child();
    second.spawn_child();
    ASSERT_TRUE(first.wait_until_met());
    ASSERT_TRUE(second.wait_until_met());
    first.send_cmd_no_reply(CHILD_ECHO, "to the first");
    second.send_cmd_no_reply(CHILD_ECHO, "to the second");
    EXPECT_THAT(first.journal(), ElementsAre("Command 1 to the first"));
    EXPECT_THAT(second.journal(), ElementsAre("Command 1 to the second"));
}

TEST_F(bridge_meeting, Happens_although_commands_for_another_child_fill_the_connection) {
    recording_bridge busy(false, "busy");
    ASSERT_TRUE(busy.spawn_and_settle());
    vask_object::print_msg_level = VASK_P_WARN;
    ASSERT_NO_FATAL_FAILURE(fill_connection(busy));
    recording_bridge bridge;
    bridge.spawn_child();
    EXPECT_TRUE(bridge.wait_until_met());
}

TEST_F(bridge_meeting, Happens_although_the_bus_does_not_read_for_a_while) {
    recording_bridge busy(false, "busy");
    ASSERT_TRUE(busy.spawn_and_settle());
    ASSERT_GT(bus_daemon(), 0);
    vask_object::print_msg_level = VASK_P_WARN;
    ASSERT_NO_FATAL_FAILURE(fill_connection(busy));
    log.clear();
    kill(bus_daemon(), SIGSTOP);
    wake_later(bus_daemon(), 700);
    recording_bridge bridge;
    bridge.spawn_child();
    EXPECT_TRUE(bridge.wait_until_met());
    EXPECT_THAT(own_lines(log), IsEmpty());
    wait(nullptr);
}

TEST_F(bridge_bus_watch, Handles_nothing_while_it_waits_for_the_bus) {
    recording_bridge talking(false, "talking");
    ASSERT_TRUE(talking.spawn_and_meet());
    talking.ask(CHILD_RAISE_SIGNAL, "1 hello");
    recording_bridge bridge;
    EXPECT_THAT(talking.signals, IsEmpty());
    ASSERT_TRUE(talking.wait_for_signals(1));
}

TEST_F(bridge_bus_watch, Says_that_the_bus_is_lost_while_it_waits_for_it) {
    leak_listener::accept_leftovers();
    recording_bridge bridge(true);
    dbus_connection_set_exit_on_disconnect(dbus_bus_get(DBUS_BUS_SESSION, nullptr), FALSE);
    const pid_t daemon = bus_daemon();
    ASSERT_GT(daemon, 0);
    kill(daemon, SIGSTOP);
    if (fork() == 0) {
        usleep(300 * 1000);
        kill(daemon, SIGKILL);
        _exit(0);
    }
    bridge.init_proxy();
    EXPECT_THAT(own_lines(log),
                Contains(logged("ERR", "bridge", StartsWith("The session bus does not answer: "))));
    drain_main_loop();
    wait(nullptr);
}

TEST_F(bridge_bus_watch, Begins_only_once) {
    recording_bridge bridge;
    DBusGProxy* proxy = bridge.m_bus_daemon_proxy;
    bridge.init_proxy();
    bridge.connect_name_owner_changed();
    EXPECT_EQ(bridge.m_bus_daemon_proxy, proxy);
}

TEST_F(bridge_bus_watch, Ends_and_leaves_the_connection) {
    recording_bridge bridge;
    DBusGConnection* connection = bridge.m_bus_connection;
    bridge.disconnect_name_owner_changed();
    EXPECT_EQ(bridge.m_bus_daemon_proxy, nullptr);
    EXPECT_EQ(bridge.m_bus_connection, connection);
    bridge.disconnect_name_owner_changed();
    EXPECT_EQ(bridge.m_bus_connection, connection);
}

TEST_F(bridge_bus_watch, Hears_nothing_after_its_end) {
    recording_bridge bridge;
    bridge.disconnect_name_owner_changed();
    bridge.spawn_child();
    ASSERT_TRUE(wait_until([&bridge] { return has_owner(bridge.child_name()); }));
    hear_all_news_of_the_bus();
    EXPECT_EQ(bridge.get_child_bus_addr(), nullptr);
}

TEST_F(bridge_bus_watch, Once_ended_does_not_notice_that_the_child_leaves_the_bus) {
    recording_bridge bridge;
    ASSERT_TRUE(bridge.spawn_and_meet());
    const std::string address = bridge.get_child_bus_addr();
    bridge.ask(CHILD_RELEASE_NAME);
    hear_all_news_of_the_bus();
    ASSERT_NE(bridge.get_child_bus_addr(), nullptr);
    EXPECT_EQ(bridge.get_child_bus_addr(), address);
}

TEST_F(bridge_bus_watch, Begun_anew_notices_that_the_child_leaves_and_comes_back) {
    recording_bridge bridge;
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.init_proxy();
    // The call goes to the name, so its owner can be told only beforehand that it shall return.
    bridge.send_cmd_no_reply(CHILD_RELEASE_NAME, "");
    bridge.send_cmd_no_reply(CHILD_REQUEST_NAME, "");
    const auto lost =
        Contains(line("INFO", "bridge", "The child has lost the connection!")).Times(1);
    ASSERT_TRUE(wait_until([&] { return testing::Value(own_lines(log), lost); }));
    ASSERT_TRUE(bridge.wait_until_met());
    EXPECT_THAT(own_lines(log), Contains(connected_line).Times(2));
    bridge.ask(CHILD_RAISE_SIGNAL, "3 once");
    bridge.ask(CHILD_RAISE_SIGNAL, "4 last");
    ASSERT_TRUE(wait_until(
        [&bridge] { return !bridge.signals.empty() && bridge.signals.back().first == 4; }));
    EXPECT_THAT(bridge.signals, ElementsAre(testing::Pair(3, "once"), testing::Pair(4, "last")));
}
