// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "bridge/lifecycle_support.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

/**
 * The main loop and the bridge may both want to know of a child's end, and either may be first.
 * Once proves nothing here.
 */
namespace {

constexpr int repetitions = 200;

class bridge_two_hundred_times : public lifecycle_fixture {
protected:
    bridge_two_hundred_times() { vask_object::print_msg_level = VASK_P_WARN; }

    // One comes when two wait for the same child.
    ~bridge_two_hundred_times() override { EXPECT_EQ(glib_warnings(), 0); }
};

using bridge_sigterm = lifecycle_fixture;

}  // namespace

TEST_F(bridge_two_hundred_times, Terminates_and_waits) {
    recording_bridge bridge(true);
    for (int i = 0; i < repetitions; ++i) {
        spawn_probe(bridge, {"sleep"});
        const int pid = bridge.get_child_pid();
        bridge.terminate_worker();
        ASSERT_TRUE(bridge.vask_wait_child_exit(0));
        ASSERT_TRUE(is_gone(pid));
        drain_main_loop();
    }
    let_child_watches_run();
    EXPECT_THAT(bridge.ends, IsEmpty());
}

TEST_F(bridge_two_hundred_times, Terminates_and_waits_with_a_time_out) {
    recording_bridge bridge(true);
    for (int i = 0; i < repetitions; ++i) {
        spawn_probe(bridge, {"sleep"});
        bridge.terminate_worker();
        bridge.vask_wait_child_exit(1);
        drain_main_loop();
    }
    ASSERT_TRUE(wait_until([] { return count_children() == 0; }));
    let_child_watches_run();
    EXPECT_THAT(bridge.ends, IsEmpty());
}

TEST_F(bridge_two_hundred_times, Terminates_and_hears_of_the_exit) {
    recording_bridge bridge(true);
    for (int i = 0; i < repetitions; ++i) {
        bridge.ends.clear();
        spawn_probe(bridge, {"sleep"});
        const int pid = bridge.get_child_pid();
        bridge.terminate_worker();
        ASSERT_TRUE(bridge.wait_for_ends(1));
        ASSERT_THAT(bridge.ends, ElementsAre(main_worker_exit));
        ASSERT_TRUE(is_gone(pid));
    }
}

TEST_F(bridge_two_hundred_times, Hears_of_a_crash) {
    recording_bridge bridge(true);
    for (int i = 0; i < repetitions; ++i) {
        bridge.ends.clear();
        spawn_probe(bridge, {"sleep"});
        const int pid = bridge.get_child_pid();
        kill(pid, SIGKILL);
        ASSERT_TRUE(bridge.wait_for_ends(1));
        ASSERT_THAT(bridge.ends, ElementsAre(main_worker_crash));
        ASSERT_TRUE(is_gone(pid));
    }
}

TEST_F(bridge_two_hundred_times, Hears_of_the_end_of_a_child_that_ends_at_once) {
    recording_bridge bridge(true);
    strlist argv = {"/bin/true"};
    strlist envs;
    for (int i = 0; i < repetitions; ++i) {
        bridge.ends.clear();
        bridge.spawn(argv, envs);
        ASSERT_TRUE(bridge.wait_for_ends(1));
        ASSERT_THAT(bridge.ends, ElementsAre(main_worker_crash));
    }
}

TEST_F(bridge_two_hundred_times, Terminates_a_child_that_may_be_dying_right_now) {
    recording_bridge bridge(true);
    strlist argv = {"/bin/true"};
    strlist envs;
    for (int i = 0; i < repetitions; ++i) {
        bridge.spawn(argv, envs);
        bridge.terminate_worker();
        ASSERT_TRUE(bridge.vask_wait_child_exit(0));
        ASSERT_EQ(count_children(), 0);
    }
    let_child_watches_run();
    EXPECT_THAT(bridge.ends, IsEmpty());
}

TEST_F(bridge_two_hundred_times, Is_deleted_with_a_child_that_may_be_dying_right_now) {
    strlist argv = {"/bin/true"};
    strlist envs;
    for (int i = 0; i < repetitions; ++i) {
        recording_bridge(true).spawn(argv, envs);
        ASSERT_EQ(count_children(), 0);
    }
    let_child_watches_run();
}

TEST_F(bridge_two_hundred_times, Sends_nothing_to_a_child_that_was_reaped) {
    for (int i = 0; i < repetitions; ++i) {
        recording_bridge bridge(true);
        spawn_probe(bridge, {"sleep"});
        const int pid = bridge.get_child_pid();
        kill(pid, SIGKILL);
        ASSERT_TRUE(wait_until_without_loop([pid] { return has_ended(pid); }));
        bridge.terminate_worker();
        ASSERT_TRUE(bridge.wait_for_ends(1));
        ASSERT_THAT(bridge.ends, ElementsAre(main_worker_exit));
    }
}

TEST_F(bridge_sigterm, Is_not_sent_after_somebody_else_has_reaped_the_child) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    kill(bridge.get_child_pid(), SIGKILL);
    reap_secretly(bridge.get_child_pid());
    bridge.terminate_worker();
    EXPECT_EQ(sigterm_record::sent, 0);
    EXPECT_TRUE(bridge.vask_wait_child_exit(0));
}

// Between the decision to send and the sending nobody else may reap the child: it dies right then.
TEST_F(bridge_sigterm, Cannot_be_overtaken_by_the_end_of_the_child) {
    constexpr int time_for_others_msec = 200;
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    sigterm_record::before_sending = [](pid_t pid) {
        kill(pid, SIGKILL);
        wait_until_without_loop([pid] { return is_gone(pid); }, time_for_others_msec);
    };
    bridge.terminate_worker();
    sigterm_record::before_sending = nullptr;
    EXPECT_EQ(sigterm_record::sent, 1);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_exit));
}
