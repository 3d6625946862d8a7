// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The session bus goes away under a controller.

#include <dbus/dbus-glib-lowlevel.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <memory>
#include <string>

#include "controller/open_controller.h"
#include "controller/running_child.h"
#include "vask_test/googletest.h"
#include "vask_test/log_catcher.h"
#include "vask_test/main_loop.h"
#include "vask_test/process_list.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

/** Every test has a bus daemon of its own, which it ends. */
class controller_with_lost_bus : public testing::Test {
protected:
    void SetUp() override {
        // The connection that the test program holds goes as well.
        leak_listener::accept_leftovers();
        m_daemon = bus_daemon();
        ASSERT_GT(m_daemon, 0);
        ASSERT_TRUE(controller->make_proxy(child.pid(), false));
        // It does not notice what becomes of the bus.
        child.send(SIGSTOP);
    }

    void end_bus_daemon() { ASSERT_EQ(kill(m_daemon, SIGKILL), 0); }

    bool is_bus_daemon_gone() const { return kill(m_daemon, 0) != 0; }

    void lose_bus() {
        DBusConnection* connection = dbus_g_connection_get_connection(controller->m_connection);
        end_bus_daemon();
        ASSERT_TRUE(wait_until([&] { return !dbus_connection_get_is_connected(connection); }));
        drain_main_loop();
    }

    static log_line lost() {
        return line("ERR", "controller",
                    "Failed to call: cmd_id: 1. The connection to the session bus is lost");
    }

    static testing::Matcher<const log_line&> no_new_connection() {
        return logged("ERR", "controller", StartsWith("Failed to get DBUS connection: "));
    }

    log_catcher log;
    const running_child child{log};
    std::unique_ptr<open_controller> controller = std::make_unique<open_controller>();
    std::string reply = "untouched";

private:
    int m_daemon = 0;
};

}  // namespace

TEST_F(controller_with_lost_bus, Fails_a_command) {
    lose_bus();
    EXPECT_FALSE(controller->cmd_func(CONTROLLER_CHILD_ECHO, "x", &reply));
    EXPECT_EQ(reply, "untouched");
    EXPECT_THAT(log.lines(), ElementsAre(lost()));
}

TEST_F(controller_with_lost_bus, Fails_a_command_before_the_loss_was_noticed) {
    end_bus_daemon();
    EXPECT_FALSE(controller->cmd_func(CONTROLLER_CHILD_ECHO, "x", &reply));
    EXPECT_EQ(reply, "untouched");
    EXPECT_THAT(log.lines(), ElementsAre(logged("ERR", "controller",
                                                StartsWith("Failed to call: cmd_id: 1. "))));
}

TEST_F(controller_with_lost_bus, Fails_a_call) {
    lose_bus();
    EXPECT_FALSE(controller->call(CONTROLLER_CHILD_ECHO, "x", &reply));
    EXPECT_EQ(reply, "untouched");
    EXPECT_THAT(log.lines(), ElementsAre(lost()));
}

TEST_F(controller_with_lost_bus, Keeps_its_proxy_when_it_is_not_forced) {
    lose_bus();
    const DBusGProxy* const before = controller->m_proxy;
    EXPECT_TRUE(controller->make_proxy(child.pid(), false));
    EXPECT_EQ(controller->m_proxy, before);
    EXPECT_EQ(log.text(), "");
}

TEST_F(controller_with_lost_bus, Loses_its_proxy_by_force) {
    lose_bus();
    EXPECT_FALSE(controller->make_proxy(child.pid(), true));
    EXPECT_EQ(controller->m_proxy, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(no_new_connection()));
}

TEST_F(controller_with_lost_bus, Fails_a_command_of_a_proxy_made_before_the_loss_was_noticed) {
    end_bus_daemon();
    ASSERT_TRUE(wait_until_without_loop([this] { return is_bus_daemon_gone(); }));

    for (int i = 0; i < 3; ++i) {
        controller->make_proxy(child.pid(), true);
        EXPECT_FALSE(controller->cmd_func(CONTROLLER_CHILD_ECHO, "x", &reply));
        EXPECT_EQ(reply, "untouched");
    }
}

// A tool need not run a main loop, which would dispatch the loss.
TEST_F(controller_with_lost_bus, Loses_its_proxy_by_force_before_the_loss_was_dispatched) {
    DBusConnection* connection = dbus_g_connection_get_connection(controller->m_connection);
    end_bus_daemon();
    ASSERT_TRUE(wait_until_without_loop([&] {
        dbus_connection_read_write(connection, 0);
        return !dbus_connection_get_is_connected(connection);
    }));

    EXPECT_FALSE(controller->make_proxy(child.pid(), true));

    EXPECT_EQ(controller->m_proxy, nullptr);
    // The bus library may or may not have forgotten the connection by now.
    EXPECT_THAT(log.lines(), ElementsAre(no_new_connection()));
}

TEST_F(controller_with_lost_bus, Says_after_that_that_there_is_no_proxy) {
    lose_bus();
    EXPECT_FALSE(controller->make_proxy(child.pid(), true));
    log.clear();
    EXPECT_FALSE(controller->cmd_func(CONTROLLER_CHILD_ECHO, "x", &reply));
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "controller",
                                 "Failed to call: cmd_id: 1. There is no proxy to a child")));
}

TEST_F(controller_with_lost_bus, Can_be_deleted) {
    lose_bus();
    controller.reset();
    EXPECT_EQ(log.text(), "");
}

TEST_F(controller_with_lost_bus, Can_be_deleted_before_the_loss_was_noticed) {
    end_bus_daemon();
    controller.reset();
    EXPECT_EQ(log.text(), "");
}
