// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <unistd.h>

#include "bridge/lifecycle_support.h"

using namespace vask_test;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::ResultOf;

using bridge_crash = lifecycle_fixture;
using bridge_terminate = lifecycle_fixture;
using bridge_child_watch = lifecycle_fixture;

namespace {

/** Ends its child in a way of its own, and counts the requests. */
class impolite_bridge : public recording_bridge {
public:
    impolite_bridge() : recording_bridge(true) {}

    void terminate_worker_impl() override {
        ++requests;
        kill(get_child_pid(), SIGKILL);
    }

    int requests = 0;
};

}  // namespace

TEST_F(bridge_crash, Is_what_an_exit_with_status_0_is_when_nobody_asked_for_it) {
    recording_bridge bridge(true);
    bridge.spawn_child({"--exit", "0"});
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
}

TEST_F(bridge_crash, Is_an_exit_with_another_status) {
    recording_bridge bridge(true);
    bridge.spawn_child({"--exit", "3"});
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
}

TEST_F(bridge_crash, Is_an_end_by_a_signal) {
    recording_bridge bridge(true);
    bridge.spawn_child({"--abort"});
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
}

TEST_F(bridge_crash, Is_the_end_of_a_child_that_somebody_else_has_asked_to_end) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    vask_object::kill_process(bridge.get_child_pid());
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
}

TEST_F(bridge_crash, Is_reported_once) {
    recording_bridge bridge(true);
    bridge.spawn_child({"--exit", "0"});
    ASSERT_TRUE(bridge.wait_for_ends(1));
    let_child_watches_run();
    EXPECT_EQ(bridge.ends.size(), 1u);
}

TEST_F(bridge_crash, Leaves_an_empty_slot_and_no_process) {
    recording_bridge bridge(true);
    bridge.spawn_child({"--exit", "0"});
    const int pid = bridge.get_child_pid();
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_EQ(bridge.main_worker(), nullptr);
    EXPECT_EQ(bridge.get_child_pid(), -1);
    EXPECT_EQ(bridge.get_child_bus_addr(), nullptr);
    EXPECT_TRUE(is_gone(pid));
}

TEST_F(bridge_crash, Finds_the_slot_empty_in_its_callback_so_that_the_child_can_be_started_again) {
    class : public recording_bridge {
    public:
        using recording_bridge::recording_bridge;
        void child_crash_cb(bool is_main) override {
            recording_bridge::child_crash_cb(is_main);
            if (ends.size() < 5) {
                spawn_child({"--exit", "0"});
            }
        }
    } bridge(true);
    bridge.spawn_child({"--exit", "0"});
    ASSERT_TRUE(bridge.wait_for_ends(5));
    EXPECT_THAT(bridge.ends, Each(main_worker_crash));
    EXPECT_EQ(bridge.main_worker(), nullptr);
}

TEST_F(bridge_crash, Is_logged) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const std::string pid = std::to_string(bridge.get_child_pid());
    log.clear();
    kill(bridge.get_child_pid(), SIGKILL);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(
        own_lines(log),
        ElementsAre(
            line("DBG", "vask_app_bridge", "_child_watch: " + pid),
            line("DBG", "bridge", "void vask_app_bridge::child_watch(GPid, gint): " + pid),
            line("DBG", "bridge", "virtual vask_object::~vask_object()"),
            line("DBG", "bridge", "virtual void vask_app_bridge::child_crash_cb(bool): 1")));
}

TEST_F(bridge_crash, Resets_the_count_of_geometry_that_the_child_was_sent) {
    recording_bridge bridge(true);
    bridge.spawn_child({"--exit", "0"});
    bridge.m_window_data_sent_count = 7;
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_EQ(bridge.m_window_data_sent_count, 0u);
}

TEST_F(bridge_terminate, Ends_the_child_and_reports_an_exit) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const int pid = bridge.get_child_pid();
    bridge.terminate_worker();
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_exit));
    EXPECT_EQ(bridge.main_worker(), nullptr);
    EXPECT_TRUE(is_gone(pid));
}

TEST_F(bridge_terminate, Ends_a_stopped_child_and_reports_an_exit) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"slow", "50"});
    ASSERT_TRUE(wait_until_ready());
    kill(bridge.get_child_pid(), SIGSTOP);
    bridge.terminate_worker();
    EXPECT_EQ(sigterm_record::continued, 1);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_exit));
}

TEST_F(bridge_terminate, Does_not_disturb_whoever_traces_the_child) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"slow", "0"});
    ASSERT_TRUE(wait_until_ready());
    const int pid = bridge.get_child_pid();
    ASSERT_EQ(ptrace(PTRACE_SEIZE, pid, nullptr, nullptr), 0);
    bridge.terminate_worker();
    EXPECT_EQ(sigterm_record::sent, 1);
    EXPECT_EQ(sigterm_record::continued, 0);
    kill(pid, SIGKILL);
    EXPECT_TRUE(bridge.vask_wait_child_exit(0));
}

TEST_F(bridge_terminate, Wakes_nobody_when_the_child_was_reaped_right_after_its_SIGTERM) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    sigterm_record::after_sending = reap_secretly;
    bridge.terminate_worker();
    sigterm_record::after_sending = nullptr;
    EXPECT_EQ(sigterm_record::sent, 1);
    EXPECT_EQ(sigterm_record::continued, 0);
    EXPECT_TRUE(bridge.vask_wait_child_exit(0));
}

TEST_F(bridge_terminate, Does_not_wait_and_keeps_the_proxy_until_the_child_has_ended) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"slow", "200"});
    ASSERT_TRUE(wait_until_ready());
    const int pid = bridge.get_child_pid();
    bridge.terminate_worker();
    EXPECT_FALSE(has_ended(pid));
    ASSERT_NE(bridge.main_worker(), nullptr);
    EXPECT_TRUE(bridge.main_worker()->is_terminating());
    EXPECT_EQ(bridge.get_child_pid(), pid);
}

TEST_F(bridge_terminate, Is_logged_together_with_the_exit) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const std::string pid = std::to_string(bridge.get_child_pid());
    log.clear();
    bridge.terminate_worker();
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(
        own_lines(log),
        ElementsAre(line("DBG", "bridge", "virtual void vask_app_bridge::terminate_worker_impl()"),
                    line("DBG", "vask_app_bridge", "_child_watch: " + pid),
                    line("DBG", "bridge", "void vask_app_bridge::child_watch(GPid, gint): " + pid),
                    line("DBG", "bridge", "virtual vask_object::~vask_object()"),
                    line("DBG", "bridge", "virtual void vask_app_bridge::child_exit_cb(bool): 1")));
}

TEST_F(bridge_terminate, Sends_one_SIGTERM_however_often_it_is_asked) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"slow", "50"});
    ASSERT_TRUE(wait_until_ready());
    bridge.terminate_worker();
    bridge.terminate_worker();
    bridge.terminate_all_workers();
    EXPECT_EQ(sigterm_record::sent, 1);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    let_child_watches_run();
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_exit));
}

TEST_F(bridge_terminate, Does_nothing_without_a_worker) {
    recording_bridge bridge(true);
    log.clear();
    bridge.terminate_worker();
    bridge.terminate_all_workers();
    EXPECT_THAT(own_lines(log), IsEmpty());
    EXPECT_EQ(sigterm_record::sent, 0);
}

TEST_F(bridge_terminate, Has_no_process_to_signal_without_a_worker) {
    recording_bridge bridge(true);
    log.clear();
    bridge.terminate_worker_impl();
    EXPECT_EQ(sigterm_record::sent, 0);
    EXPECT_THAT(own_lines(log),
                ElementsAre(line("DBG", "bridge",
                                 "virtual void vask_app_bridge::terminate_worker_impl()")));
}

TEST_F(bridge_terminate, Does_nothing_for_a_child_that_has_exited_and_was_reported) {
    recording_bridge bridge(true);
    bridge.spawn_child({"--exit", "0"});
    ASSERT_TRUE(bridge.wait_for_ends(1));
    bridge.terminate_worker();
    EXPECT_EQ(sigterm_record::sent, 0);
}

TEST_F(bridge_terminate, Makes_an_exit_of_an_end_that_came_before_but_was_not_reported_yet) {
    recording_bridge bridge(true);
    bridge.spawn_child({"--exit", "0"});
    const int pid = bridge.get_child_pid();
    ASSERT_TRUE(wait_until_without_loop([pid] { return has_ended(pid); }));
    bridge.terminate_worker();
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_exit));
}

TEST_F(bridge_terminate, Leaves_it_to_the_subclass_how_the_child_is_ended) {
    impolite_bridge bridge;
    spawn_probe(bridge, {"stubborn"});
    bridge.terminate_worker();
    bridge.terminate_worker();
    EXPECT_EQ(bridge.requests, 1);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_exit));
    EXPECT_EQ(sigterm_record::sent, 0);
}

TEST_F(bridge_terminate, Has_no_process_to_signal_when_the_process_id_is_0) {
    recording_bridge bridge(true);
    vask_child_proxy proxy(bridge, "nobody", 0, 0);
    bridge.m_child_proxy[0] = &proxy;
    bridge.terminate_worker();
    EXPECT_TRUE(proxy.is_terminating());
    EXPECT_EQ(sigterm_record::sent, 0);
    bridge.m_child_proxy[0] = nullptr;
}

TEST_F(bridge_child_watch, Of_a_process_that_no_slot_holds_ends_the_parent) {
    const auto is_the_line = ResultOf(
        parse_log, ElementsAre(line("ERR", "bridge",
                                    "void vask_app_bridge::child_watch(GPid, gint): pid(4711): No "
                                    "such child.")));
    EXPECT_EXIT(
        {
            vask_object::print_msg_level = VASK_P_ERR;
            recording_bridge bridge(true);
            dup2(STDERR_FILENO, STDOUT_FILENO);
            bridge.child_watch(4711, 0);
        },
        testing::KilledBySignal(SIGABRT), is_the_line);
}

TEST_F(bridge_child_watch, Of_a_stranger_ends_the_parent_of_a_living_child_too) {
    EXPECT_EXIT(
        {
            recording_bridge bridge(true);
            spawn_probe(bridge, {"sleep"});
            dup2(STDERR_FILENO, STDOUT_FILENO);
            bridge.child_watch(bridge.get_child_pid() + 1, 0);
        },
        testing::KilledBySignal(SIGABRT), "No such child");
}

TEST_F(bridge_child_watch, Deletes_the_proxy_although_it_is_called_from_elsewhere) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const int pid = bridge.get_child_pid();
    kill(pid, SIGKILL);
    reap_secretly(pid);
    bridge.child_watch(pid, 0);
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
    let_child_watches_run();
    EXPECT_EQ(bridge.ends.size(), 1u);
}

TEST_F(bridge_child_watch, Logs_under_the_name_of_the_class_before_it_reaches_the_bridge) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const int pid = bridge.get_child_pid();
    kill(pid, SIGKILL);
    reap_secretly(pid);
    log.clear();
    vask_app_bridge::_child_watch(pid, 0, static_cast<vask_app_bridge*>(&bridge));
    const std::vector<log_line> lines = own_lines(log);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], line("DBG", "vask_app_bridge", "_child_watch: " + std::to_string(pid)));
    EXPECT_EQ(lines[1],
              line("DBG", "bridge",
                   "void vask_app_bridge::child_watch(GPid, gint): " + std::to_string(pid)));
}
