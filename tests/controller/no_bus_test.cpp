// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Controller and tool without a session bus.

#include <unistd.h>

#include <string>

#include "controller/open_controller.h"
#include "controller/tool_fixture.h"
#include "support/idle_process.h"
#include "support/library_lock_state.h"
#include "support/registry_object.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char bus_failure[] =
    "Failed to get DBUS connection: Failed to connect to socket /nonexistent/bus: No such file or "
    "directory";

class controller_without_bus : public testing::Test {
protected:
    void expect_no_proxy() const {
        EXPECT_EQ(controller.m_proxy, nullptr);
        EXPECT_EQ(controller.m_connection, nullptr);
        EXPECT_EQ(controller.m_pid, 0);
        EXPECT_EQ(reply, "untouched");
        EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "controller", bus_failure)));
    }

    shared_objects_removed cleanup;
    log_catcher log;
    open_controller controller;
    std::string reply = "untouched";
};

class tool_without_bus : public tool_test {
protected:
    const idle_process target{controller_child_name};
};

}  // namespace

TEST_F(controller_without_bus, Makes_no_proxy) {
    EXPECT_FALSE(controller.make_proxy(4711, false));
    expect_no_proxy();
}

TEST_F(controller_without_bus, Makes_no_proxy_by_force) {
    EXPECT_FALSE(controller.make_proxy(4711, true));
    expect_no_proxy();
}

TEST_F(controller_without_bus, Says_so_without_a_line_end) {
    controller.make_proxy(4711, false);
    EXPECT_EQ(log.text().back(), 'y');
}

TEST_F(controller_without_bus, May_try_again) {
    EXPECT_FALSE(controller.make_proxy(4711, false));
    EXPECT_FALSE(controller.make_proxy(4711, false));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "controller", bus_failure),
                                         line("ERR", "controller", bus_failure)));
}

TEST_F(controller_without_bus, Calls_nobody) {
    const idle_process target(controller_child_name);
    EXPECT_FALSE(controller.call(1, "x", &reply));
    expect_no_proxy();
}

TEST_F(controller_without_bus, Calls_nobody_who_is_registered) {
    registry_object(controller_child_name).append(getpid(), 5);
    EXPECT_FALSE(controller.call(1, "x", &reply));
    expect_no_proxy();
}

TEST_F(controller_without_bus, Calls_nobody_by_key) {
    registry_object(controller_child_name).append(getpid(), 5);
    EXPECT_FALSE(controller.call_by_key(5, 1, "x", &reply));
    expect_no_proxy();
}

TEST_F(controller_without_bus, Says_of_a_command_that_there_is_no_proxy) {
    EXPECT_FALSE(controller.cmd_func(1, "x", &reply));
    EXPECT_EQ(reply, "untouched");
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "controller",
                                 "Failed to call: cmd_id: 1. There is no proxy to a child")));
}

TEST_F(tool_without_bus, Fails_a_command) {
    EXPECT_EQ(tool.run_with({"tool", "note", "a"}), 1);
    EXPECT_THAT(tool.noted, IsEmpty());
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "tool", bus_failure)));
}

TEST_F(tool_without_bus, Does_not_warn_of_a_command_that_nobody_added) {
    EXPECT_EQ(tool.run_with({"tool", "unknown"}), 1);
    EXPECT_THAT(glib_log.entries, IsEmpty());
}

TEST_F(tool_without_bus, Lists_processes) {
    EXPECT_EQ(tool.run_with({"tool", "-l"}), 0);
    char expected[100];
    snprintf(expected, sizeof(expected), "List of processes: wanted_child\n  %6d\n", target.pid());
    EXPECT_EQ(log.text(), expected);
}
