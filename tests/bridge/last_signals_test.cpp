// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>

#include "bridge/lifecycle_support.h"
#include "vask_test/googletest.h"
#include "vask_test/timeout_factor.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

/** What a child has given to the bus before it ended comes before its end. */
namespace {

constexpr int signals_sent = 20;
const char* const gate = "/tmp/last_signals_gate";

typedef std::vector<std::string> story;

/** "1", "2" and so on, then the end. */
story whole_story(int signals = signals_sent, const std::string& end = "crash") {
    story lines;
    for (int i = 1; i <= signals; ++i) {
        lines.push_back(std::to_string(i));
    }
    lines.push_back(end);
    return lines;
}

double now_msec() {
    return vask_object::vask_gettime(VASK_TIME_MSEC);
}

/** Ends a process that is nobody's child here. */
class process_end {
public:
    explicit process_end(pid_t pid) : m_pid(pid) {}
    ~process_end() {
        kill(m_pid, SIGKILL);
        wait_until_without_loop([this] { return has_ended(m_pid); });
    }
    process_end(const process_end&) = delete;
    process_end& operator=(const process_end&) = delete;

private:
    const pid_t m_pid;
};

class narrating_bridge : public recording_bridge {
public:
    explicit narrating_bridge(story& told) : m_told(told) {
        set_child_sig_cb(1, static_cast<child_sig_cb>(&narrating_bridge::hear));
    }

    void child_exit_cb(bool is_main) override {
        m_told.emplace_back(is_main ? "exit" : "exit of the other");
        recording_bridge::child_exit_cb(is_main);
    }
    void child_crash_cb(bool is_main) override {
        m_told.emplace_back(is_main ? "crash" : "crash of the other");
        recording_bridge::child_crash_cb(is_main);
    }
    void terminate_worker_impl() override {
        ++requests;
        recording_bridge::terminate_worker_impl();
    }

    /** What every signal does beyond being noted. */
    std::function<void(const std::string& data)> on_signal;

    int requests = 0;

private:
    void hear(const char* data) {
        const std::string text = data;
        m_told.push_back(text);
        if (on_signal) {
            // The bridge, and the function with it, may go meanwhile.
            const auto reaction = on_signal;
            reaction(text);
        }
    }

    story& m_told;
};

class last_signals : public lifecycle_fixture {
protected:
    ~last_signals() override { wake_bus(); }

    void meet(recording_bridge& of) {
        of.init_proxy();
        ASSERT_TRUE(of.spawn_and_settle());
    }

    /** Returns when the main worker has raised its signals and ended, unnoticed. */
    void let_child_end(int signals = signals_sent) {
        const int pid = bridge->get_child_pid();
        bridge->send_cmd_no_reply(CHILD_RAISE_SIGNALS_AND_EXIT, std::to_string(signals));
        dbus_connection_flush(connection);
        ASSERT_TRUE(wait_until_without_loop([pid] { return has_ended(pid); }));
    }

    void meet_and_let_child_end(int signals = signals_sent) {
        ASSERT_NO_FATAL_FAILURE(meet(*bridge));
        ASSERT_NO_FATAL_FAILURE(let_child_end(signals));
    }

    /** The same, but the bus is stopped before the first signal. */
    void meet_and_let_child_end_on_stopped_bus() {
        ASSERT_NO_FATAL_FAILURE(meet(*bridge));
        const int pid = bridge->get_child_pid();
        bridge->send_cmd_no_reply(CHILD_RAISE_SIGNALS_AND_EXIT_LATER,
                                  std::to_string(signals_sent) + " " + gate);
        dbus_connection_flush(connection);
        ASSERT_TRUE(wait_until_without_loop([] { return access(gate, F_OK) == 0; }));
        stop_bus();
        unlink(gate);
        ASSERT_TRUE(wait_until_without_loop([pid] { return has_ended(pid); }));
    }

    /** Runs the main loop until the end of the main worker's process was noticed. */
    void let_end_be_noticed() {
        const std::string noticed = "_child_watch: " + std::to_string(bridge->get_child_pid());
        ASSERT_TRUE(wait_until([this, &noticed] {
            return testing::Value(own_lines(log),
                                  Contains(line("DBG", "vask_app_bridge", noticed)));
        }));
    }

    void stop_bus() {
        ASSERT_GT(bus_daemon(), 0);
        m_stopped = bus_daemon();
        kill(m_stopped, SIGSTOP);
    }

    void wake_bus() {
        if (m_stopped != 0) {
            kill(m_stopped, SIGCONT);
            m_stopped = 0;
        }
    }

    bool wait_for_end() {
        return wait_until([this] { return told.size() && is_end(told.back()); });
    }

    static bool is_end(const std::string& text) {
        return text.find("crash") == 0 || text.find("exit") == 0;
    }

    story told;
    std::unique_ptr<narrating_bridge> bridge = std::make_unique<narrating_bridge>(told);
    DBusConnection* connection = [] {
        DBusConnection* shared = dbus_bus_get(DBUS_BUS_SESSION, nullptr);
        dbus_connection_unref(shared);
        return shared;
    }();

private:
    pid_t m_stopped = 0;
};

}  // namespace

TEST_F(last_signals, Come_before_the_end_when_the_parent_was_busy) {
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end());
    ASSERT_TRUE(wait_for_end());
    EXPECT_EQ(told, whole_story());
}

TEST_F(last_signals, Come_before_the_end_when_the_bus_has_not_read_them_yet) {
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end_on_stopped_bus());
    ASSERT_NO_FATAL_FAILURE(let_end_be_noticed());
    wake_bus();
    ASSERT_TRUE(wait_for_end());
    EXPECT_EQ(told, whole_story());
}

TEST_F(last_signals, Come_before_the_end_when_the_parent_is_busy_after_it_has_noticed_the_end) {
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end_on_stopped_bus());
    ASSERT_NO_FATAL_FAILURE(let_end_be_noticed());
    wake_bus();
    usleep(1500 * 1000);
    ASSERT_TRUE(wait_for_end());
    EXPECT_EQ(told, whole_story());
}

TEST_F(last_signals, Come_before_the_end_however_long_their_callbacks_take) {
    constexpr int many = 30;
    bridge->on_signal = [](const std::string&) { usleep(60 * 1000); };
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end(many));
    ASSERT_TRUE(wait_for_end());
    EXPECT_EQ(told, whole_story(many));
}

TEST_F(last_signals, Come_before_the_exit_of_a_child_that_was_asked_to_end) {
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end());
    bridge->terminate_worker();
    ASSERT_TRUE(wait_for_end());
    EXPECT_EQ(told, whole_story(signals_sent, "exit"));
}

TEST_F(last_signals, Come_before_the_end_of_a_child_that_ends_as_soon_as_it_is_met) {
    bridge->spawn_child();
    bridge->send_cmd_no_reply(CHILD_RAISE_SIGNALS_AND_EXIT, std::to_string(signals_sent));
    ASSERT_TRUE(wait_for_end());
    EXPECT_EQ(told, whole_story());
}

TEST_F(last_signals, Come_before_the_end_of_each_twin) {
    bridge->enable_twins_mode();
    ASSERT_TRUE(bridge->spawn_and_settle());
    for (int i = 0; i < 2; ++i) {
        ASSERT_NO_FATAL_FAILURE(let_child_end());
        bridge->switch_main_worker();
    }
    ASSERT_TRUE(bridge->wait_for_ends(2));
    story expected = whole_story();
    for (const std::string& text : whole_story(signals_sent, "crash of the other")) {
        expected.push_back(text);
    }
    std::sort(expected.begin(), expected.end());
    story sorted = told;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, expected);
    EXPECT_EQ(bridge->ends.size(), 2u);
    EXPECT_TRUE(is_end(told.back()));
}

TEST_F(last_signals, Of_one_child_leave_those_of_another_bridge_complete_and_in_order) {
    story told_other;
    narrating_bridge other(told_other);
    ASSERT_TRUE(other.spawn_and_settle());
    ASSERT_NO_FATAL_FAILURE(meet(*bridge));
    const int pid = bridge->get_child_pid();
    bridge->send_cmd_no_reply(CHILD_RAISE_SIGNALS_AND_EXIT, std::to_string(signals_sent));
    for (int i = 1; i <= signals_sent; ++i) {
        other.ask(CHILD_RAISE_SIGNAL, "1 " + std::to_string(i));
    }
    ASSERT_TRUE(wait_until_without_loop([pid] { return has_ended(pid); }));
    ASSERT_TRUE(wait_for_end());
    EXPECT_EQ(told, whole_story());
    ASSERT_TRUE(other.wait_for_signals(signals_sent));
    kill(other.get_child_pid(), SIGKILL);
    ASSERT_TRUE(other.wait_for_ends(1));
    EXPECT_EQ(told_other, whole_story());
}

TEST_F(last_signals, That_have_arrived_come_before_the_end_although_the_bus_is_lost) {
    leak_listener::accept_leftovers();
    ASSERT_TRUE(bridge->spawn_and_settle());
    for (int i = 1; i <= signals_sent; ++i) {
        bridge->ask(CHILD_RAISE_SIGNAL, "1 " + std::to_string(i));
    }
    const int pid = bridge->get_child_pid();
    const pid_t daemon = bus_daemon();
    ASSERT_GT(daemon, 0);
    kill(pid, SIGKILL);
    kill(daemon, SIGKILL);
    ASSERT_TRUE(
        wait_until_without_loop([pid, daemon] { return has_ended(pid) && is_gone(daemon); }));
    ASSERT_TRUE(wait_for_end());
    EXPECT_EQ(told, whole_story());
    drain_main_loop();
}

TEST_F(last_signals, Are_waited_for_no_longer_than_about_a_second_when_the_bus_is_stopped) {
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end_on_stopped_bus());
    const double start = now_msec();
    ASSERT_TRUE(wait_for_end());
    EXPECT_GT(now_msec() - start, 900);
    EXPECT_LT(now_msec() - start, 5000);
    EXPECT_THAT(told, ElementsAre("crash"));
    wake_bus();
}

TEST_F(last_signals, Are_named_by_the_source_that_waits_for_them) {
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end_on_stopped_bus());
    ASSERT_NO_FATAL_FAILURE(let_end_be_noticed());
    const std::string child = std::to_string(bridge->get_child_pid());
    EXPECT_THAT(child_source_names(), ElementsAre("vask: child " + child + ": last signals"));
}

TEST_F(last_signals, Are_waited_for_no_longer_when_somebody_else_keeps_the_connection) {
    ASSERT_TRUE(bridge->spawn_and_settle());
    const process_end keeper(std::stoi(bridge->ask(CHILD_LEAVE_CONNECTION_OPEN)));
    const int pid = bridge->get_child_pid();
    kill(pid, SIGKILL);
    const double start = now_msec();
    ASSERT_TRUE(wait_for_end());
    EXPECT_GT(now_msec() - start, 900);
    EXPECT_LT(now_msec() - start, 4000);
}

TEST_F(last_signals, Are_not_waited_for_in_an_ordinary_end) {
    double shortest = 1e9;
    for (int i = 0; i < 10; ++i) {
        ASSERT_NO_FATAL_FAILURE(meet(*bridge));
        bridge->ends.clear();
        kill(bridge->get_child_pid(), SIGKILL);
        const double start = now_msec();
        ASSERT_TRUE(bridge->wait_for_ends(1));
        shortest = std::min(shortest, now_msec() - start);
    }
    // To wait for them takes a second at most.
    EXPECT_LT(shortest, std::min(50 * timeout_factor(), 500.0));
}

TEST_F(last_signals, Are_not_waited_for_when_the_child_has_given_up_its_name) {
    ASSERT_TRUE(bridge->spawn_and_settle());
    const process_end keeper(std::stoi(bridge->ask(CHILD_LEAVE_CONNECTION_OPEN)));
    bridge->send_cmd_no_reply(CHILD_RELEASE_NAME, "");
    const std::string name = bridge->child_name();
    ASSERT_TRUE(
        wait_until([&] { return !dbus_bus_name_has_owner(connection, name.c_str(), nullptr); }));
    drain_main_loop();
    kill(bridge->get_child_pid(), SIGKILL);
    const double start = now_msec();
    ASSERT_TRUE(wait_for_end());
    EXPECT_LT(now_msec() - start, 900);
}

TEST_F(last_signals, May_have_the_bridge_deleted) {
    bridge->on_signal = [this](const std::string& data) {
        if (data == "3") {
            bridge.reset();
        }
    };
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end());
    EXPECT_TRUE(wait_until([this] { return bridge == nullptr; }));
    let_child_watches_run();
    EXPECT_THAT(told, ElementsAre("1", "2", "3"));
    EXPECT_EQ(count_children(), 0);
}

TEST_F(last_signals, May_throw) {
    bridge->on_signal = [](const std::string& data) { throw std::runtime_error("not " + data); };
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end());
    ASSERT_TRUE(wait_for_end());
    EXPECT_EQ(told, whole_story());
}

TEST_F(last_signals, Find_the_place_of_their_child_occupied) {
    int pid = 0;
    bridge->on_signal = [this, &pid](const std::string&) {
        EXPECT_TRUE(bridge->spawn_child());
        EXPECT_EQ(bridge->get_child_pid(), pid);
        EXPECT_FALSE(bridge->main_worker()->is_terminating());
    };
    ASSERT_NO_FATAL_FAILURE(meet(*bridge));
    pid = bridge->get_child_pid();
    ASSERT_NO_FATAL_FAILURE(let_child_end());
    ASSERT_TRUE(wait_for_end());
    EXPECT_EQ(told, whole_story());
    EXPECT_EQ(count_children(), 0);
}

TEST_F(last_signals, May_make_an_exit_of_the_end_and_ask_nobody) {
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end_on_stopped_bus());
    ASSERT_NO_FATAL_FAILURE(let_end_be_noticed());
    ASSERT_NE(bridge->main_worker(), nullptr);
    bridge->terminate_worker();
    bridge->terminate_worker_impl();
    EXPECT_TRUE(bridge->main_worker()->is_terminating());
    EXPECT_EQ(bridge->requests, 1);
    EXPECT_EQ(sigterm_record::sent, 0);
    EXPECT_EQ(sigterm_record::continued, 0);
    wake_bus();
    ASSERT_TRUE(wait_for_end());
    EXPECT_EQ(told, whole_story(signals_sent, "exit"));
}

TEST_F(last_signals, Are_dropped_by_a_wait_for_the_end_that_was_noticed_already) {
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end_on_stopped_bus());
    ASSERT_NO_FATAL_FAILURE(let_end_be_noticed());
    bridge->terminate_worker();
    log.clear();
    EXPECT_TRUE(bridge->vask_wait_child_exit(0));
    EXPECT_EQ(own_lines(log).at(0).level, "DBG") << "nobody has reaped the child behind its back";
    EXPECT_EQ(bridge->main_worker(), nullptr);
    wake_bus();
    bridge->spawn_child();
    EXPECT_GT(bridge->get_child_pid(), 0);
    let_child_watches_run();
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(last_signals, Are_dropped_with_the_bridge) {
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end_on_stopped_bus());
    ASSERT_NO_FATAL_FAILURE(let_end_be_noticed());
    bridge.reset();
    wake_bus();
    let_child_watches_run();
    EXPECT_THAT(told, IsEmpty());
    EXPECT_EQ(sigterm_record::sent, 0);
}

TEST_F(last_signals, May_run_a_main_loop_in_which_the_end_comes) {
    bridge->on_signal = [this](const std::string& data) {
        if (data == "3") {
            EXPECT_TRUE(wait_for_end());
        }
    };
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end());
    ASSERT_TRUE(wait_for_end());
    drain_main_loop();
    EXPECT_THAT(told, ElementsAre("1", "2", "3", "crash"));
    EXPECT_EQ(bridge->main_worker(), nullptr);
}

TEST_F(last_signals, Do_not_keep_the_callback_of_the_end_from_starting_and_meeting_a_successor) {
    class restarting_bridge : public narrating_bridge {
    public:
        using narrating_bridge::narrating_bridge;
        void child_crash_cb(bool is_main) override {
            narrating_bridge::child_crash_cb(is_main);
            init_proxy();
            spawn_child();
            met = wait_until_met();
        }
        bool met = false;
    };
    auto restarting = std::make_unique<restarting_bridge>(told);
    const restarting_bridge& observed = *restarting;
    bridge = std::move(restarting);
    ASSERT_NO_FATAL_FAILURE(meet_and_let_child_end());
    ASSERT_TRUE(wait_for_end());
    EXPECT_TRUE(observed.met);
    EXPECT_EQ(told, whole_story());
}
