// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib-lowlevel.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <memory>
#include <string>

#include "bridge/recording_bridge.h"
#include "vask_test/googletest.h"
#include "vask_test/log_catcher.h"
#include "vask_test/main_loop.h"
#include "vask_test/resource_count.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

int pid_of_bus_daemon() {
    DBusGConnection* connection = dbus_g_bus_get(DBUS_BUS_SESSION, nullptr);
    DBusGProxy* bus = dbus_g_proxy_new_for_name(connection, "org.freedesktop.DBus",
                                                "/org/freedesktop/DBus", "org.freedesktop.DBus");
    guint pid = 0;
    dbus_g_proxy_call(bus, "GetConnectionUnixProcessID", nullptr, G_TYPE_STRING,
                      "org.freedesktop.DBus", G_TYPE_INVALID, G_TYPE_UINT, &pid, G_TYPE_INVALID);
    g_object_unref(bus);
    dbus_g_connection_unref(connection);
    return static_cast<int>(pid);
}

/** Every test has a bus daemon of its own, which it ends. */
class lost_bus : public testing::Test {
protected:
    void SetUp() override {
        // The connection that the test program holds goes as well.
        leak_listener::accept_leftovers();
        daemon = pid_of_bus_daemon();
        ASSERT_GT(daemon, 1);
        err.set_code(VASK_ERR_INVALID_URI);
        err.set_message("untouched");
    }

    void TearDown() override {
        bridge.reset();
        EXPECT_TRUE(wait_until([this] { return !dbus_connection_get_is_connected(connection); }));
        drain_main_loop();
        dbus_connection_unref(connection);
        EXPECT_THAT(before.difference(resource_count::take()), Not(HasSubstr("additional")));
    }

    void end_bus_daemon() { ASSERT_EQ(kill(daemon, SIGKILL), 0); }

    /** Meets a child and then loses the bus; the child is stopped, so that it does not notice. */
    void meet_child_and_lose_bus() {
        ASSERT_TRUE(bridge->spawn_and_meet());
        ASSERT_EQ(kill(bridge->get_child_pid(), SIGSTOP), 0);
        end_bus_daemon();
        ASSERT_TRUE(wait_until([this] { return !bridge->main_worker()->is_bus_alive(); }));
        log.clear();
    }

    void wake_child() { kill(bridge->get_child_pid(), SIGCONT); }

    void expect_error_untouched() const {
        EXPECT_EQ(err.get_code(), VASK_ERR_INVALID_URI);
        EXPECT_EQ(err.get_message(), "untouched");
    }

    log_catcher log;
    resource_count before = resource_count::take();
    std::unique_ptr<recording_bridge> bridge = std::make_unique<recording_bridge>();
    vask_error err;
    DBusConnection* connection = dbus_bus_get(DBUS_BUS_SESSION, nullptr);
    int daemon = 0;
};

}  // namespace

TEST_F(lost_bus, Fails_a_command) {
    meet_child_and_lose_bus();
    char untouched[] = "untouched";
    char* reply = untouched;

    EXPECT_FALSE(bridge->send_cmd(CHILD_ECHO, &reply, "hello", &err));

    EXPECT_EQ(reply, untouched);
    expect_error_untouched();
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "bridge",
                                 "Failed to send command 1: The connection to the session bus is "
                                 "lost")));
    wake_child();
}

TEST_F(lost_bus, Is_not_watched_any_more) {
    bridge->init_proxy();
    ASSERT_TRUE(bridge->is_watching_bus());
    end_bus_daemon();
    EXPECT_TRUE(wait_until([this] { return !bridge->is_watching_bus(); }));
}

TEST_F(lost_bus, Fails_a_command_without_reply) {
    meet_child_and_lose_bus();

    EXPECT_FALSE(bridge->send_cmd_no_reply(CHILD_ECHO, "hello", &err));

    expect_error_untouched();
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "bridge",
                                 "Failed to send command 1: The connection to the session bus is "
                                 "lost")));
    wake_child();
}

TEST_F(lost_bus, Fails_window_data) {
    meet_child_and_lose_bus();

    EXPECT_FALSE(bridge->send_window_data(true, &err));

    expect_error_untouched();
    EXPECT_EQ(bridge->m_window_data_sent_count, 0u);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "bridge",
                                 "Failed to send window data: The connection to the session bus "
                                 "is lost")));
    wake_child();
}

TEST_F(lost_bus, Fails_a_window_that_is_sent_by_itself) {
    bridge->set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);
    meet_child_and_lose_bus();

    bridge->set_window(1, 2, 3, 4, 5);

    EXPECT_EQ(bridge->get_window_width(), 3);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "bridge",
                                 "Failed to send window data: The connection to the session bus "
                                 "is lost")));
    wake_child();
}

TEST_F(lost_bus, Leaves_the_queue_to_be_flushed_as_it_is) {
    meet_child_and_lose_bus();
    bridge->main_worker()->enqueue_cmd(new child_cmd_buffer(CHILD_ECHO, "waiting"));

    bridge->flush_child_cmd_buffer(bridge->main_worker());

    std::unique_ptr<child_cmd_buffer> cmd(bridge->main_worker()->dequeue_cmd());
    ASSERT_NE(cmd, nullptr);
    EXPECT_EQ(cmd->argument, "waiting");
    EXPECT_EQ(log.text(), "");
    wake_child();
}

TEST_F(lost_bus, Makes_no_bus_proxy) {
    meet_child_and_lose_bus();
    bridge->main_worker()->bus_setup(bridge->m_bus_connection);
    EXPECT_EQ(bridge->main_worker()->get_bus_proxy(), nullptr);
    wake_child();
}

TEST_F(lost_bus, Lets_a_bus_proxy_be_destroyed) {
    meet_child_and_lose_bus();
    bridge->main_worker()->bus_destroy();
    EXPECT_EQ(bridge->main_worker()->get_bus_proxy(), nullptr);
    wake_child();
}

TEST_F(lost_bus, Ends_the_child_which_counts_as_a_crash) {
    ASSERT_TRUE(bridge->spawn_and_meet());
    log.clear();

    end_bus_daemon();

    ASSERT_TRUE(bridge->wait_for_ends(1));
    EXPECT_THAT(bridge->ends, ElementsAre(main_worker_crash));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "bridge_child",
                                              "The connection to the session bus is lost")));
}

TEST_F(lost_bus, Lets_the_bridge_of_a_child_that_was_met_be_deleted) {
    meet_child_and_lose_bus();
    wake_child();
    bridge.reset();
}

TEST_F(lost_bus, Lets_the_bridge_of_a_child_that_was_never_met_be_deleted) {
    bridge->spawn_child({"--no-bus"});
    end_bus_daemon();
    ASSERT_TRUE(wait_until([this] { return !dbus_connection_get_is_connected(connection); }));
    bridge.reset();
}

TEST_F(lost_bus, Lets_the_bridge_be_deleted_before_the_loss_was_noticed) {
    ASSERT_TRUE(bridge->spawn_and_meet());
    end_bus_daemon();
    bridge.reset();
}

// The call is on its way, or can no longer be written, when the bus goes.
TEST_F(lost_bus, Fails_a_command_before_the_loss_was_noticed) {
    ASSERT_TRUE(bridge->spawn_and_meet());
    ASSERT_EQ(kill(bridge->get_child_pid(), SIGSTOP), 0);
    log.clear();
    end_bus_daemon();

    EXPECT_FALSE(bridge->send_cmd(CHILD_ECHO, nullptr, "hello", &err));

    expect_error_untouched();
    EXPECT_THAT(
        log.lines(),
        ElementsAre(logged("ERR", "bridge", testing::StartsWith("Failed to send command 1: "))));
    wake_child();
}

TEST_F(lost_bus, Takes_commands_without_reply_and_windows_until_it_was_noticed) {
    ASSERT_TRUE(bridge->spawn_and_meet());
    ASSERT_EQ(kill(bridge->get_child_pid(), SIGSTOP), 0);
    end_bus_daemon();

    for (int i = 0; i < 100; ++i) {
        bridge->send_cmd_no_reply(CHILD_ECHO, "hello", nullptr);
        bridge->send_window_data(true);
    }

    EXPECT_TRUE(wait_until([this] { return !bridge->main_worker()->is_bus_alive(); }));
    wake_child();
}

TEST_F(lost_bus, Fails_to_be_watched_again) {
    meet_child_and_lose_bus();
    drain_main_loop();

    bridge->init_proxy();

    EXPECT_EQ(bridge->m_bus_daemon_proxy, nullptr);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(logged("ERR", "bridge", testing::StartsWith("Failed to open DBUS session: ")),
                    line("ERR", "bridge", "Failed to get DBUS proxy")));
    wake_child();
}

TEST(connection_of_the_count, Is_given_up_once_it_is_lost) {
    leak_listener::accept_leftovers();
    DBusConnection* connection = dbus_bus_get(DBUS_BUS_SESSION, nullptr);
    dbus_connection_set_exit_on_disconnect(connection, FALSE);
    bool is_gone = false;
    dbus_int32_t slot = -1;
    dbus_connection_allocate_data_slot(&slot);
    dbus_connection_set_data(connection, slot, &is_gone,
                             [](void* gone) { *static_cast<bool*>(gone) = true; });
    ASSERT_EQ(kill(pid_of_bus_daemon(), SIGKILL), 0);
    ASSERT_TRUE(wait_until([&] { return !dbus_connection_get_is_connected(connection); }));
    drain_main_loop();
    dbus_connection_unref(connection);
    EXPECT_FALSE(is_gone);

    warm_up_process_resources();

    EXPECT_TRUE(is_gone);
    dbus_connection_free_data_slot(&slot);
}
