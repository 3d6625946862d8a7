// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdio>
#include <stdexcept>

#include "bridge/lifecycle_support.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

const log_line not_all_line = line("DBG", "bridge", "Not all established yet.");
const log_line lost_line = line("INFO", "bridge", "The child has lost the connection!");
const log_line connected_line = line("DBG", "bridge", "The child has connected to the bus");
const log_line disconnect_line = line("DBG", "bridge", "Disconnect NameOwnerChanged signal");

const char* const gate = "/tmp/lifecycle_twins_gate";

class bridge_twins : public lifecycle_fixture {
protected:
    bridge_twins() { bridge.enable_twins_mode(); }

    ~bridge_twins() override { std::remove(gate); }

    int pid(int slot) const { return bridge.m_child_proxy[slot]->get_pid(); }

    bool is_met(int slot) const { return bridge.m_child_proxy[slot]->get_bus_addr() != nullptr; }

    void crash(int slot) {
        const std::size_t count = bridge.ends.size() + 1;
        kill(pid(slot), SIGKILL);
        ASSERT_TRUE(bridge.wait_for_ends(count));
    }

    /** Starts both, and meets the first while the second is held up on its way to the bus. */
    void meet_only_the_first() {
        bridge.spawn_child({"--join-after-file", gate});
        kill(pid(1), SIGSTOP);
        std::fclose(std::fopen(gate, "w"));
        ASSERT_TRUE(wait_until([this] { return is_met(0); }));
    }

    void let_the_second_come() { kill(pid(1), SIGCONT); }

    recording_bridge bridge;
};

}  // namespace

TEST_F(bridge_twins, Are_two_children_of_one_spawn_which_returns_true) {
    EXPECT_TRUE(bridge.spawn_child());
    ASSERT_NE(bridge.m_child_proxy[0], nullptr);
    ASSERT_NE(bridge.m_child_proxy[1], nullptr);
    EXPECT_NE(pid(0), pid(1));
    EXPECT_EQ(count_children(), 2);
    EXPECT_EQ(bridge.main_worker(), bridge.m_child_proxy[0]);
    EXPECT_EQ(bridge.get_child_pid(), pid(0));
}

TEST_F(bridge_twins, Are_not_tried_twice_when_the_first_start_fails) {
    strlist argv = {"/nonexistent/program"};
    strlist envs;
    EXPECT_TRUE(bridge.spawn(argv, envs));
    EXPECT_EQ(bridge.m_child_proxy[0], nullptr);
    EXPECT_EQ(bridge.m_child_proxy[1], nullptr);
    EXPECT_THAT(own_lines(log), Contains(line("ERR", "bridge", "Failed to spawn")).Times(1));
}

TEST_F(bridge_twins, Are_left_alone_by_another_spawn) {
    spawn_probe(bridge, {"sleep"});
    const int pids[] = {pid(0), pid(1)};
    EXPECT_TRUE(spawn_probe(bridge, {"sleep"}));
    EXPECT_EQ(pid(0), pids[0]);
    EXPECT_EQ(pid(1), pids[1]);
    EXPECT_EQ(count_children(), 2);
}

TEST_F(bridge_twins, Get_the_same_arguments_and_environment) {
    bridge.spawn_child({}, {"COLOUR=red"});
    ASSERT_TRUE(bridge.wait_until_met());
    const std::string first = bridge.ask(CHILD_REPORT_ENVIRONMENT);
    bridge.switch_main_worker();
    EXPECT_EQ(bridge.ask(CHILD_REPORT_ENVIRONMENT), first);
}

TEST_F(bridge_twins, Change_places_and_back) {
    spawn_probe(bridge, {"sleep"});
    EXPECT_TRUE(bridge.switch_main_worker());
    EXPECT_EQ(bridge.main_worker(), bridge.m_child_proxy[1]);
    EXPECT_EQ(bridge.get_child_proxy(), bridge.m_child_proxy[1]);
    EXPECT_EQ(bridge.get_child_pid(), pid(1));
    EXPECT_TRUE(bridge.switch_main_worker());
    EXPECT_EQ(bridge.get_child_pid(), pid(0));
}

TEST_F(bridge_twins, Change_places_even_when_there_are_none) {
    EXPECT_TRUE(bridge.switch_main_worker());
    EXPECT_EQ(bridge.get_child_pid(), -1);
    EXPECT_EQ(bridge.m_main_worker_index, 1);
}

TEST_F(bridge_twins, Do_not_change_places_outside_of_twins_mode) {
    recording_bridge single;
    spawn_probe(single, {"sleep"});
    const int only = single.get_child_pid();
    EXPECT_FALSE(single.switch_main_worker());
    EXPECT_EQ(single.get_child_pid(), only);
}

TEST_F(bridge_twins, Get_commands_only_as_the_main_worker) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.ask(CHILD_ECHO, "to the first");
    bridge.switch_main_worker();
    bridge.ask(CHILD_ECHO, "to the second");
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 to the second"));
    bridge.switch_main_worker();
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 to the first"));
}

TEST_F(bridge_twins, Report_the_address_of_the_main_worker) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_STREQ(bridge.get_child_bus_addr(), bridge.m_child_proxy[0]->get_bus_addr());
    bridge.switch_main_worker();
    EXPECT_STREQ(bridge.get_child_bus_addr(), bridge.m_child_proxy[1]->get_bus_addr());
    EXPECT_STRNE(bridge.m_child_proxy[0]->get_bus_addr(), bridge.m_child_proxy[1]->get_bus_addr());
}

TEST_F(bridge_twins, Are_watched_for_until_both_are_met) {
    ASSERT_NO_FATAL_FAILURE(meet_only_the_first());
    EXPECT_FALSE(is_met(1));
    EXPECT_NE(bridge.m_bus_daemon_proxy, nullptr);
    EXPECT_THAT(own_lines(log), Contains(not_all_line));
    EXPECT_THAT(own_lines(log), Not(Contains(disconnect_line)));

    let_the_second_come();
    ASSERT_TRUE(bridge.wait_until_met());
    EXPECT_EQ(bridge.m_bus_daemon_proxy, nullptr);
    EXPECT_THAT(own_lines(log), Contains(disconnect_line).Times(1));
    EXPECT_THAT(own_lines(log), Contains(connected_line).Times(2));
}

TEST_F(bridge_twins, Notice_that_one_leaves_the_bus_while_the_other_is_not_met) {
    ASSERT_NO_FATAL_FAILURE(meet_only_the_first());
    DBusGProxy* bus_proxy = bridge.main_worker()->get_bus_proxy();
    bridge.ask(CHILD_RELEASE_NAME);
    ASSERT_TRUE(wait_until([this] { return !is_met(0); }));
    EXPECT_THAT(own_lines(log), Contains(lost_line).Times(1));
    EXPECT_EQ(bridge.main_worker()->get_bus_proxy(), bus_proxy);
    EXPECT_NE(bridge.m_bus_daemon_proxy, nullptr);

    let_the_second_come();
    ASSERT_TRUE(wait_until([this] { return is_met(1); }));
    EXPECT_FALSE(is_met(0));
    EXPECT_NE(bridge.m_bus_daemon_proxy, nullptr);
}

TEST_F(bridge_twins, Survive_the_crash_of_one_before_the_other_is_met) {
    ASSERT_NO_FATAL_FAILURE(meet_only_the_first());
    crash(0);
    let_the_second_come();
    ASSERT_TRUE(wait_until([this] { return is_met(1); }));
    EXPECT_EQ(bridge.m_bus_daemon_proxy, nullptr);
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
}

TEST_F(bridge_twins, Tell_which_of_them_has_crashed) {
    spawn_probe(bridge, {"sleep"});
    crash(1);
    crash(0);
    EXPECT_THAT(bridge.ends, ElementsAre(other_worker_crash, main_worker_crash));
}

TEST_F(bridge_twins, Show_in_the_log_that_it_was_not_the_main_worker) {
    spawn_probe(bridge, {"sleep"});
    crash(1);
    EXPECT_THAT(
        own_lines(log),
        Contains(line("DBG", "bridge", "virtual void vask_app_bridge::child_crash_cb(bool): 0")));

    bridge.switch_main_worker();
    bridge.terminate_all_workers();
    ASSERT_TRUE(bridge.wait_for_ends(2));
    EXPECT_THAT(
        own_lines(log),
        Contains(line("DBG", "bridge", "virtual void vask_app_bridge::child_exit_cb(bool): 0")));
}

TEST_F(bridge_twins, Tell_who_is_the_main_worker_at_the_time_of_the_crash) {
    spawn_probe(bridge, {"sleep"});
    bridge.switch_main_worker();
    crash(1);
    crash(0);
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash, other_worker_crash));
}

TEST_F(bridge_twins, Share_a_count_of_geometry_that_the_end_of_either_resets) {
    spawn_probe(bridge, {"sleep"});
    for (int slot : {1, 0}) {
        bridge.m_window_data_sent_count = 7;
        crash(slot);
        EXPECT_EQ(bridge.m_window_data_sent_count, 0u);
    }
}

TEST_F(bridge_twins, Keep_the_main_place_of_a_crashed_worker_empty) {
    spawn_probe(bridge, {"sleep"});
    const int other = pid(1);
    crash(0);
    EXPECT_EQ(bridge.main_worker(), nullptr);
    EXPECT_EQ(bridge.get_child_pid(), -1);
    EXPECT_TRUE(bridge.switch_main_worker());
    EXPECT_EQ(bridge.get_child_pid(), other);
}

TEST_F(bridge_twins, Go_on_with_the_other_when_the_main_worker_has_crashed) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    crash(0);
    bridge.switch_main_worker();
    EXPECT_EQ(bridge.ask(CHILD_ECHO, "still here"), "still here");
}

TEST_F(bridge_twins, Get_a_successor_into_the_slot_of_the_one_that_has_crashed) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    const int first = pid(0);
    const int second = pid(1);
    bridge.switch_main_worker();
    bridge.ask(CHILD_ECHO, "remembered");
    crash(0);
    bridge.init_proxy();
    EXPECT_TRUE(bridge.spawn_child());
    EXPECT_EQ(count_children(), 2);
    EXPECT_NE(pid(0), first);
    EXPECT_EQ(pid(1), second);
    ASSERT_TRUE(bridge.wait_until_met());
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 remembered"));
    bridge.switch_main_worker();
    EXPECT_THAT(bridge.journal(), IsEmpty());
    EXPECT_EQ(bridge.m_bus_daemon_proxy, nullptr);
}

TEST_F(bridge_twins, End_one_by_one) {
    spawn_probe(bridge, {"sleep"});
    const int second = pid(1);
    bridge.terminate_worker();
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_exit));
    EXPECT_FALSE(has_ended(second));
    EXPECT_EQ(pid(1), second);
}

TEST_F(bridge_twins, End_both_when_all_are_asked_and_keep_the_main_place) {
    for (int main_index : {0, 1}) {
        bridge.ends.clear();
        spawn_probe(bridge, {"sleep"});
        bridge.m_main_worker_index = main_index;
        bridge.terminate_all_workers();
        EXPECT_EQ(bridge.m_main_worker_index, main_index);
        ASSERT_TRUE(bridge.wait_for_ends(2));
        EXPECT_THAT(bridge.ends,
                    testing::UnorderedElementsAre(main_worker_exit, other_worker_exit));
        EXPECT_EQ(bridge.m_child_proxy[0], nullptr);
        EXPECT_EQ(bridge.m_child_proxy[1], nullptr);
    }
}

TEST_F(bridge_twins, Are_asked_in_the_order_of_their_slots) {
    struct asking_bridge : recording_bridge {
        std::vector<int> asked;
        void terminate_worker_impl() override {
            asked.push_back(get_child_pid());
            vask_app_bridge::terminate_worker_impl();
        }
    } asking;
    asking.enable_twins_mode();
    spawn_probe(asking, {"sleep"});
    asking.switch_main_worker();
    const std::vector<int> pids = {asking.m_child_proxy[0]->get_pid(),
                                   asking.m_child_proxy[1]->get_pid()};
    asking.terminate_all_workers();
    EXPECT_EQ(asking.asked, pids);
    ASSERT_TRUE(asking.vask_wait_child_exit(0));
    EXPECT_THAT(asking.ends, IsEmpty());
    EXPECT_EQ(count_children(), 0);
}

TEST_F(bridge_twins, Keep_their_places_when_the_request_to_end_throws) {
    struct throwing_bridge : recording_bridge {
        void terminate_worker_impl() override { throw std::runtime_error("not now"); }
    } throwing;
    throwing.enable_twins_mode();
    spawn_probe(throwing, {"sleep"});
    throwing.switch_main_worker();
    EXPECT_THROW(throwing.terminate_all_workers(), std::runtime_error);
    EXPECT_EQ(throwing.m_main_worker_index, 1);
    for (vask_child_proxy* worker : throwing.m_child_proxy) {
        kill(worker->get_pid(), SIGKILL);
    }
    ASSERT_TRUE(throwing.wait_for_ends(2));
}

TEST_F(bridge_twins, Tell_an_exit_from_the_crash_of_the_other) {
    spawn_probe(bridge, {"sleep"});
    bridge.terminate_worker();
    kill(pid(1), SIGKILL);
    ASSERT_TRUE(bridge.wait_for_ends(2));
    EXPECT_THAT(bridge.ends, testing::UnorderedElementsAre(main_worker_exit, other_worker_crash));
}
