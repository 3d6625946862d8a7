// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "bridge/lifecycle_support.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using bridge_wait = lifecycle_fixture;

namespace {

const std::string wait_signature = "bool vask_app_bridge::vask_wait_child_exit(unsigned int)";

double now_msec() {
    return vask_object::vask_gettime(VASK_TIME_MSEC);
}

/** Ends a child that the bridge has given up, and lets the main loop forget it. */
void end_forgotten_child(pid_t pid) {
    kill(pid, SIGKILL);
    EXPECT_TRUE(wait_until([pid] { return is_gone(pid); }));
    let_child_watches_run();
}

class bridge_wait_timeout : public lifecycle_fixture {
protected:
    /** Starts a child that does not end when it is told to, and tells it; its process id. */
    int terminate_stubborn_child(recording_bridge& bridge) {
        spawn_probe(bridge, {"stubborn"});
        EXPECT_TRUE(wait_until_ready());
        const int pid = bridge.get_child_pid();
        bridge.terminate_worker();
        return pid;
    }
};

}  // namespace

TEST_F(bridge_wait, Returns_true_at_once_without_a_worker) {
    recording_bridge bridge(true);
    log.clear();
    EXPECT_TRUE(bridge.vask_wait_child_exit(0));
    EXPECT_THAT(own_lines(log), IsEmpty());
}

TEST_F(bridge_wait, Takes_no_notice_of_a_worker_that_was_not_asked_to_end) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const int pid = bridge.get_child_pid();
    EXPECT_TRUE(bridge.vask_wait_child_exit(0));
    EXPECT_EQ(bridge.get_child_pid(), pid);
    EXPECT_FALSE(has_ended(pid));
}

TEST_F(bridge_wait, Blocks_until_the_child_is_gone) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"slow", "200"});
    ASSERT_TRUE(wait_until_ready());
    const int pid = bridge.get_child_pid();
    const double start = now_msec();
    bridge.terminate_worker();
    EXPECT_TRUE(bridge.vask_wait_child_exit(0));
    EXPECT_GE(now_msec() - start, 200);
    EXPECT_TRUE(is_gone(pid));
    EXPECT_EQ(bridge.main_worker(), nullptr);
}

TEST_F(bridge_wait, Succeeds_when_the_child_ends_before_the_time_is_over) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    bridge.terminate_worker();
    EXPECT_TRUE(bridge.vask_wait_child_exit(60000));
    EXPECT_EQ(bridge.main_worker(), nullptr);
}

TEST_F(bridge_wait, Calls_neither_callback_then_or_later) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    bridge.terminate_worker();
    ASSERT_TRUE(bridge.vask_wait_child_exit(0));
    let_child_watches_run();
    EXPECT_THAT(bridge.ends, IsEmpty());
}

TEST_F(bridge_wait, Leaves_a_slot_in_which_the_next_child_can_be_started) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    bridge.terminate_worker();
    ASSERT_TRUE(bridge.vask_wait_child_exit(0));
    bridge.spawn_child({"--exit", "0"});
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
}

TEST_F(bridge_wait, Keeps_the_count_of_geometry_until_it_is_told_to_forget_the_child) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    bridge.m_window_data_sent_count = 7;
    bridge.terminate_worker();
    ASSERT_TRUE(bridge.vask_wait_child_exit(0));
    EXPECT_EQ(bridge.m_window_data_sent_count, 7u);
    bridge.free_child_resource();
    EXPECT_EQ(bridge.m_window_data_sent_count, 0u);
}

TEST_F(bridge_wait, Waits_for_a_child_that_had_ended_already) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const int pid = bridge.get_child_pid();
    bridge.terminate_worker();
    ASSERT_TRUE(wait_until_without_loop([pid] { return has_ended(pid); }));
    EXPECT_TRUE(bridge.vask_wait_child_exit(0));
    EXPECT_TRUE(is_gone(pid));
    let_child_watches_run();
    EXPECT_THAT(bridge.ends, IsEmpty());
}

TEST_F(bridge_wait, Counts_the_end_of_a_child_that_somebody_else_has_reaped) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    kill(bridge.get_child_pid(), SIGKILL);
    reap_secretly(bridge.get_child_pid());
    bridge.terminate_worker();
    log.clear();
    EXPECT_TRUE(bridge.vask_wait_child_exit(0));
    EXPECT_THAT(own_lines(log),
                ElementsAre(line("ERR", "bridge", wait_signature + ": waitpid: errno: 10"),
                            line("DBG", "bridge", "virtual vask_object::~vask_object()")));
    EXPECT_EQ(bridge.main_worker(), nullptr);
    let_child_watches_run();
    EXPECT_THAT(bridge.ends, IsEmpty());
}

TEST_F(bridge_wait, Passes_over_a_proxy_with_process_id_0_and_goes_on_with_the_next) {
    recording_bridge bridge(true);
    bridge.enable_twins_mode();
    spawn_probe(bridge, {"sleep"});
    const int first = bridge.get_child_pid();
    bridge.terminate_worker();
    ASSERT_TRUE(bridge.vask_wait_child_exit(0));
    ASSERT_TRUE(is_gone(first));
    vask_child_proxy proxy(bridge, "nobody", 0, 0);
    proxy.set_terminating();
    bridge.m_child_proxy[0] = &proxy;
    bridge.terminate_all_workers();
    log.clear();

    EXPECT_TRUE(bridge.vask_wait_child_exit(0));
    EXPECT_EQ(own_lines(log).at(0), line("DBG", "bridge", wait_signature + ": pid(0) == 0"));
    EXPECT_EQ(bridge.m_child_proxy[0], &proxy);
    EXPECT_EQ(bridge.m_child_proxy[1], nullptr);
    bridge.m_child_proxy[0] = nullptr;
}

TEST_F(bridge_wait_timeout, Is_told_by_the_result_and_logged) {
    recording_bridge bridge(true);
    const int pid = terminate_stubborn_child(bridge);
    log.clear();
    const double start = now_msec();
    EXPECT_FALSE(bridge.vask_wait_child_exit(50));
    EXPECT_GT(now_msec() - start, 50);
    EXPECT_THAT(own_lines(log),
                ElementsAre(line("INFO", "bridge", wait_signature + ": timeouted"),
                            line("DBG", "bridge", "virtual vask_object::~vask_object()")));
    end_forgotten_child(pid);
}

TEST_F(bridge_wait_timeout, Empties_the_slot_and_lets_the_process_live) {
    recording_bridge bridge(true);
    const int pid = terminate_stubborn_child(bridge);
    ASSERT_FALSE(bridge.vask_wait_child_exit(20));
    EXPECT_EQ(bridge.main_worker(), nullptr);
    EXPECT_FALSE(has_ended(pid));
    EXPECT_EQ(sigterm_record::sent, 1);
    end_forgotten_child(pid);
}

TEST_F(bridge_wait_timeout, Has_the_child_reaped_later_without_a_callback) {
    recording_bridge bridge(true);
    const int pid = terminate_stubborn_child(bridge);
    ASSERT_FALSE(bridge.vask_wait_child_exit(20));
    end_forgotten_child(pid);
    EXPECT_THAT(bridge.ends, IsEmpty());
}

TEST_F(bridge_wait_timeout, Has_the_child_reaped_even_when_the_bridge_is_gone_by_then) {
    int pid = 0;
    {
        recording_bridge bridge(true);
        pid = terminate_stubborn_child(bridge);
        ASSERT_FALSE(bridge.vask_wait_child_exit(20));
    }
    end_forgotten_child(pid);
}

TEST_F(bridge_wait_timeout, Leaves_a_slot_whose_next_child_is_not_taken_for_the_old_one) {
    recording_bridge bridge(true);
    const int old_pid = terminate_stubborn_child(bridge);
    ASSERT_FALSE(bridge.vask_wait_child_exit(20));
    spawn_probe(bridge, {"sleep"});
    const int new_pid = bridge.get_child_pid();
    end_forgotten_child(old_pid);
    EXPECT_THAT(bridge.ends, IsEmpty());
    EXPECT_EQ(bridge.get_child_pid(), new_pid);
}

TEST_F(bridge_wait_timeout, Is_counted_for_each_twin_anew) {
    recording_bridge bridge(true);
    bridge.enable_twins_mode();
    spawn_probe(bridge, {"stubborn"});
    ASSERT_TRUE(wait_until_ready(2));
    const int pids[] = {bridge.m_child_proxy[0]->get_pid(), bridge.m_child_proxy[1]->get_pid()};
    bridge.terminate_all_workers();
    log.clear();
    const double start = now_msec();
    EXPECT_FALSE(bridge.vask_wait_child_exit(100));
    EXPECT_GT(now_msec() - start, 200);
    EXPECT_THAT(own_lines(log),
                Contains(line("INFO", "bridge", wait_signature + ": timeouted")).Times(2));
    for (int pid : pids) {
        end_forgotten_child(pid);
    }
}

TEST_F(bridge_wait_timeout, Of_one_twin_does_not_keep_the_bridge_from_waiting_for_the_other) {
    recording_bridge bridge(true);
    bridge.enable_twins_mode();
    spawn_probe(bridge, {"stubborn"});
    ASSERT_TRUE(wait_until_ready(2));
    const int first = bridge.m_child_proxy[0]->get_pid();
    const int second = bridge.m_child_proxy[1]->get_pid();
    bridge.terminate_all_workers();
    kill(second, SIGKILL);
    ASSERT_TRUE(wait_until_without_loop([second] { return has_ended(second); }));
    EXPECT_FALSE(bridge.vask_wait_child_exit(20));
    EXPECT_EQ(bridge.m_child_proxy[0], nullptr);
    EXPECT_EQ(bridge.m_child_proxy[1], nullptr);
    EXPECT_FALSE(has_ended(first));
    EXPECT_TRUE(is_gone(second));
    end_forgotten_child(first);
}
