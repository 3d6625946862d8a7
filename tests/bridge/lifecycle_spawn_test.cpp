// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>

#include "bridge/lifecycle_support.h"
#include "support/higher_nice_value.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::Not;

using bridge_construction = lifecycle_fixture;
using bridge_spawn = lifecycle_fixture;
using bridge_child_priority = lifecycle_fixture;

namespace {

const log_line entry_line =
    line("DBG", "bridge", "bool vask_app_bridge::spawn(strlist&, strlist&)");
const log_line failure_line = line("ERR", "bridge", "Failed to spawn");

const char* const reason_of_failure =
    "<vask_object_spawn:[0-9]+> Failed to spawn: Failed to (spawn|execute) child process "
    ".*/nonexistent/program.* \\(No such file or directory\\)";

bool spawn_nonexistent(vask_app_bridge& bridge) {
    strlist argv = {"/nonexistent/program"};
    strlist envs;
    return bridge.spawn(argv, envs);
}

int nice_value(pid_t pid) {
    return getpriority(PRIO_PROCESS, static_cast<id_t>(pid));
}

bool real_time_is_permitted() {
    sched_param param = {};
    param.sched_priority = 1;
    const bool permitted = sched_setscheduler(0, SCHED_RR, &param) == 0;
    param.sched_priority = 0;
    sched_setscheduler(0, SCHED_OTHER, &param);
    return permitted;
}

/** Of priority -500, which no kernel grants. */
log_line refused_priority_line(const vask_app_bridge& bridge) {
    return line("WARN", "bridge",
                "Failed to call sched_setscheduler: PID: " +
                    std::to_string(bridge.get_child_pid()) + ", PRIO: -500, err: 22 (RT)");
}

}  // namespace

TEST_F(bridge_construction, Logs_its_signature) {
    vask_app_bridge bridge("bridge", true);
    EXPECT_THAT(
        own_lines(log),
        ElementsAre(line("DBG", "bridge", "vask_app_bridge::vask_app_bridge(const char*, bool)")));
}

TEST_F(bridge_construction, Gives_a_bridge_without_children) {
    recording_bridge bridge(true);
    EXPECT_EQ(bridge.main_worker(), nullptr);
    EXPECT_EQ(bridge.get_child_proxy(), nullptr);
    EXPECT_EQ(bridge.get_child_pid(), -1);
    EXPECT_EQ(bridge.get_child_bus_addr(), nullptr);
    EXPECT_EQ(bridge.get_child_priority(), 0);
    EXPECT_FALSE(bridge.m_twins_mode);
    EXPECT_EQ(bridge.m_main_worker_index, 0);
    EXPECT_EQ(bridge.m_window_data_sent_count, 0u);
}

TEST_F(bridge_construction, Watches_the_bus) {
    recording_bridge bridge(false);
    EXPECT_NE(bridge.m_bus_connection, nullptr);
    EXPECT_NE(bridge.m_bus_daemon_proxy, nullptr);
    EXPECT_TRUE(bridge.is_watching_bus());
}

TEST_F(bridge_construction, Leaves_the_bus_alone_when_told_so) {
    recording_bridge bridge(true);
    EXPECT_FALSE(bridge.is_watching_bus());
    EXPECT_EQ(bridge.m_bus_connection, nullptr);
    EXPECT_EQ(bridge.m_bus_daemon_proxy, nullptr);
}

TEST_F(bridge_spawn, Returns_false_when_the_child_was_started) {
    recording_bridge bridge(true);
    EXPECT_FALSE(spawn_probe(bridge, {"sleep"}));
    ASSERT_GT(bridge.get_child_pid(), 0);
    EXPECT_FALSE(has_ended(bridge.get_child_pid()));
    EXPECT_EQ(count_children(), 1);
}

TEST_F(bridge_spawn, Gives_the_main_slot_a_proxy_of_the_child) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    ASSERT_NE(bridge.m_child_proxy[0], nullptr);
    EXPECT_EQ(bridge.m_child_proxy[1], nullptr);
    EXPECT_EQ(bridge.main_worker(), bridge.m_child_proxy[0]);
    EXPECT_EQ(bridge.get_child_proxy(), bridge.m_child_proxy[0]);
    EXPECT_EQ(bridge.main_worker()->get_pid(), bridge.get_child_pid());
    EXPECT_TRUE(bridge.main_worker()->is_mine(bridge.child_name().c_str()));
    EXPECT_FALSE(bridge.main_worker()->is_terminating());
    EXPECT_EQ(bridge.main_worker()->get_bus_proxy(), nullptr);
    EXPECT_EQ(bridge.get_child_bus_addr(), nullptr);
}

TEST_F(bridge_spawn, Is_logged_from_its_entry_to_the_new_proxy) {
    recording_bridge bridge(true);
    log.clear();
    spawn_probe(bridge, {"sleep"});
    const std::string pid = std::to_string(bridge.get_child_pid());
    const std::vector<log_line> lines = own_lines(log);
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines.front(), entry_line);
    EXPECT_EQ(lines[lines.size() - 2], line("DBG", "bridge", "Created child_proxy for " + pid));
    EXPECT_EQ(lines.back(),
              line("DBG", "bridge",
                   "D-Bus Interface of the child is 'com.example.vask.Child_" + pid + "'"));
}

TEST_F(bridge_spawn, Without_a_command_is_refused) {
    recording_bridge bridge(true);
    strlist argv;
    strlist envs;
    log.clear();
    EXPECT_FALSE(bridge.spawn(argv, envs));
    EXPECT_THAT(
        own_lines(log),
        ElementsAre(entry_line, line("ERR", "bridge", "The commad is not given (argv is empty)")));
    EXPECT_EQ(count_children(), 0);
}

TEST_F(bridge_spawn, Without_a_command_is_refused_for_twins_too) {
    recording_bridge bridge(true);
    bridge.enable_twins_mode();
    strlist argv;
    strlist envs;
    EXPECT_FALSE(bridge.spawn(argv, envs));
}

TEST_F(bridge_spawn, Returns_true_when_the_start_has_failed) {
    recording_bridge bridge(true);
    EXPECT_TRUE(spawn_nonexistent(bridge));
    EXPECT_EQ(bridge.main_worker(), nullptr);
    EXPECT_EQ(count_children(), 0);
}

TEST_F(bridge_spawn, Logs_a_failed_start_after_its_reason) {
    recording_bridge bridge(true);
    spawn_nonexistent(bridge);
    const std::vector<log_line> lines = own_lines(log);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_THAT(lines[lines.size() - 2], logged("ERR", "vask", MatchesRegex(reason_of_failure)));
    EXPECT_EQ(lines.back(), failure_line);
}

TEST_F(bridge_spawn, Can_be_repeated_after_a_failure) {
    recording_bridge bridge(true);
    spawn_nonexistent(bridge);
    EXPECT_FALSE(spawn_probe(bridge, {"sleep"}));
    EXPECT_GT(bridge.get_child_pid(), 0);
}

TEST_F(bridge_spawn, Starts_nothing_in_an_occupied_slot_and_returns_true) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const vask_child_proxy* proxy = bridge.main_worker();
    const int pid = bridge.get_child_pid();
    EXPECT_TRUE(spawn_probe(bridge, {"sleep"}));
    EXPECT_EQ(bridge.main_worker(), proxy);
    EXPECT_EQ(bridge.get_child_pid(), pid);
    EXPECT_EQ(count_children(), 1);
}

TEST_F(bridge_spawn, Does_not_fail_in_an_occupied_slot) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    log.clear();
    EXPECT_TRUE(spawn_nonexistent(bridge));
    EXPECT_THAT(own_lines(log), ElementsAre(entry_line));
}

TEST_F(bridge_spawn, Leaves_the_lists_of_the_caller_alone) {
    recording_bridge bridge(true);
    strlist argv = {lifecycle_probe_program, "sleep"};
    strlist envs = {"A=1", "VASK_NEST_LV=9"};
    bridge.spawn(argv, envs);
    EXPECT_THAT(argv, ElementsAre(lifecycle_probe_program, "sleep"));
    EXPECT_THAT(envs, ElementsAre("A=1", "VASK_NEST_LV=9"));
}

TEST_F(bridge_spawn, Runs_the_child_in_the_directory_of_the_parent) {
    ASSERT_EQ(chdir("/dev"), 0);
    vask_object::print_msg_level = VASK_P_ERR;
    recording_bridge bridge(true);
    strlist argv = {"/bin/pwd", "-P"};
    strlist envs;
    bridge.spawn(argv, envs);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_EQ(log.text(), "/dev\n");
}

TEST_F(bridge_spawn, Searches_no_path_for_the_program) {
    recording_bridge bridge(true);
    strlist argv = {"true"};
    strlist envs;
    EXPECT_TRUE(bridge.spawn(argv, envs));
    EXPECT_EQ(bridge.main_worker(), nullptr);
    EXPECT_THAT(own_lines(log), Contains(failure_line));
}

TEST_F(bridge_child_priority, Is_given_to_a_child_that_is_spawned_afterwards) {
    recording_bridge bridge(true);
    const int wanted = higher_nice_value();
    bridge.set_child_priority(wanted);
    EXPECT_EQ(bridge.get_child_priority(), wanted);
    spawn_probe(bridge, {"sleep"});
    EXPECT_EQ(nice_value(bridge.get_child_pid()), wanted);
}

TEST_F(bridge_child_priority, Reaches_both_twins) {
    recording_bridge bridge(true);
    bridge.enable_twins_mode();
    const int wanted = higher_nice_value();
    bridge.set_child_priority(wanted);
    spawn_probe(bridge, {"sleep"});
    EXPECT_EQ(nice_value(bridge.m_child_proxy[0]->get_pid()), wanted);
    EXPECT_EQ(nice_value(bridge.m_child_proxy[1]->get_pid()), wanted);
}

TEST_F(bridge_child_priority, Does_not_reach_a_child_that_runs_already) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    bridge.set_child_priority(higher_nice_value());
    EXPECT_EQ(nice_value(bridge.get_child_pid()), nice_value(getpid()));
}

TEST_F(bridge_child_priority, Of_0_leaves_the_child_with_what_it_inherits) {
    const int inherited = higher_nice_value();
    ASSERT_EQ(setpriority(PRIO_PROCESS, 0, inherited), 0);
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    EXPECT_EQ(nice_value(bridge.get_child_pid()), inherited);
}

TEST_F(bridge_child_priority, May_be_the_idle_class) {
    recording_bridge bridge(true);
    bridge.set_child_priority(1000);
    spawn_probe(bridge, {"sleep"});
    EXPECT_EQ(sched_getscheduler(bridge.get_child_pid()), SCHED_IDLE);
}

TEST_F(bridge_child_priority, May_be_real_time) {
    if (!real_time_is_permitted()) {
        GTEST_SKIP() << "no right to real-time scheduling";
    }
    recording_bridge bridge(true);
    bridge.set_child_priority(-30);
    spawn_probe(bridge, {"sleep"});
    sched_param param = {};
    EXPECT_EQ(sched_getscheduler(bridge.get_child_pid()), SCHED_RR);
    EXPECT_EQ(sched_getparam(bridge.get_child_pid(), &param), 0);
    EXPECT_EQ(param.sched_priority, 10);
}

TEST_F(bridge_child_priority, That_the_kernel_refuses_does_not_keep_the_child_from_running) {
    recording_bridge bridge(true);
    bridge.set_child_priority(-500);
    EXPECT_FALSE(spawn_probe(bridge, {"sleep"}));
    EXPECT_FALSE(has_ended(bridge.get_child_pid()));
    EXPECT_THAT(own_lines(log), Contains(refused_priority_line(bridge)));
}

TEST_F(bridge_child_priority, Is_set_before_the_proxy_is_made) {
    recording_bridge bridge(true);
    bridge.set_child_priority(-500);
    spawn_probe(bridge, {"sleep"});
    const std::vector<log_line> lines = own_lines(log);
    const auto refused = std::find(lines.begin(), lines.end(), refused_priority_line(bridge));
    ASSERT_NE(refused, lines.end());
    EXPECT_THAT(
        std::vector<log_line>(refused, lines.end()),
        Contains(line("DBG", "bridge",
                      "Created child_proxy for " + std::to_string(bridge.get_child_pid()))));
}
