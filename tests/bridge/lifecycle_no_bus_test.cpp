// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "bridge/lifecycle_support.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

using bridge_without_bus = lifecycle_fixture;

const log_line cannot_open =
    line("ERR", "bridge",
         "Failed to open DBUS session: Failed to connect to socket /nonexistent/bus: No such file "
         "or directory");
const log_line no_proxy = line("ERR", "bridge", "Failed to get DBUS proxy");

}  // namespace

TEST_F(bridge_without_bus, Logs_its_signature_and_both_failures_and_is_constructed) {
    recording_bridge bridge(false);
    EXPECT_THAT(
        own_lines(log),
        ElementsAre(line("DBG", "bridge", "vask_app_bridge::vask_app_bridge(const char*, bool)"),
                    cannot_open, no_proxy));
    EXPECT_EQ(bridge.m_bus_connection, nullptr);
    EXPECT_EQ(bridge.m_bus_daemon_proxy, nullptr);
}

TEST_F(bridge_without_bus, Ends_neither_of_its_failure_lines) {
    vask_object::print_msg_level = VASK_P_ERR;
    recording_bridge bridge(false);
    EXPECT_EQ(log.text().find('\n'), std::string::npos);
}

TEST_F(bridge_without_bus, Tries_again_when_told_to) {
    recording_bridge bridge(false);
    vask_object::print_msg_level = VASK_P_ERR;
    log.clear();
    bridge.init_proxy();
    EXPECT_THAT(own_lines(log), ElementsAre(cannot_open, no_proxy));
}

TEST_F(bridge_without_bus, Says_that_it_does_not_watch) {
    recording_bridge bridge(false);
    EXPECT_FALSE(bridge.is_watching_bus());
    bridge.init_proxy();
    EXPECT_FALSE(bridge.is_watching_bus());
}

TEST_F(bridge_without_bus, Has_nothing_to_disconnect) {
    recording_bridge bridge(false);
    log.clear();
    bridge.disconnect_name_owner_changed();
    EXPECT_THAT(own_lines(log), ElementsAre());
}

TEST_F(bridge_without_bus, Starts_its_child_and_hears_of_a_crash) {
    recording_bridge bridge(false);
    EXPECT_FALSE(spawn_probe(bridge, {"sleep"}));
    kill(bridge.get_child_pid(), SIGKILL);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
}

TEST_F(bridge_without_bus, Ends_its_child_and_hears_of_the_exit) {
    recording_bridge bridge(false);
    spawn_probe(bridge, {"sleep"});
    bridge.terminate_worker();
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_exit));
}

TEST_F(bridge_without_bus, Keeps_commands_queued) {
    recording_bridge bridge(false);
    spawn_probe(bridge, {"sleep"});
    EXPECT_TRUE(bridge.send_cmd_no_reply(7, "kept"));
    bridge.flush_child_cmd_buffer(bridge.main_worker());
    child_cmd_buffer* cmd = bridge.main_worker()->dequeue_cmd();
    ASSERT_NE(cmd, nullptr);
    EXPECT_EQ(cmd->id, 7);
    EXPECT_EQ(cmd->argument, "kept");
    delete cmd;
}

TEST_F(bridge_without_bus, Makes_no_bus_proxy_even_if_it_is_told_of_its_child) {
    recording_bridge bridge(false);
    spawn_probe(bridge, {"sleep"});
    EXPECT_TRUE(bridge.send_cmd_no_reply(7, "kept"));
    bridge.name_owner_changed(nullptr, bridge.child_name().c_str(), "", ":1.1", nullptr);
    EXPECT_EQ(bridge.main_worker()->get_bus_proxy(), nullptr);
    child_cmd_buffer* cmd = bridge.main_worker()->dequeue_cmd();
    EXPECT_NE(cmd, nullptr);
    delete cmd;
}
