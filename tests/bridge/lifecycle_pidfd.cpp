// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include "bridge/lifecycle_support.h"
#include "support/forked_process.h"
#include "support/interpose.h"
#include "support/shared_value.h"

using namespace vask_test;

namespace {

const std::string wait_signature = "bool vask_app_bridge::vask_wait_child_exit(unsigned int)";

enum class reaping { none, before_glib_has_a_pidfd, after_it };

reaping while_watch_is_made = reaping::none;

void end_and_reap(pid_t pid) {
    kill(pid, SIGKILL);
    reap_secretly(pid);
}

enum class tracing { not_begun, refused, done };

/** Traces a process until its end, like a debugger. */
class tracer {
public:
    explicit tracer(pid_t pid)
        : m_process([this, pid]() -> int {
              const bool traces = ptrace(PTRACE_SEIZE, pid, nullptr, nullptr) == 0;
              *m_state = traces ? tracing::done : tracing::refused;
              while (true) {
                  pause();
              }
          }) {}

    bool has_it() {
        EXPECT_TRUE(wait_until([this] { return *m_state != tracing::not_begun; }));
        return *m_state == tracing::done;
    }
    void let_go() { m_process.kill_now(); }

private:
    shared_value<std::atomic<tracing>> m_state;
    forked_process m_process;
};

/** Nobody but the main loop and the bridge reaps children here, so what happens is certain. */
class kernel_with_pidfd : public lifecycle_fixture {
protected:
    void SetUp() override {
        const long descriptor = syscall(SYS_pidfd_open, getpid(), 0);
        if (descriptor < 0) {
            GTEST_SKIP() << "this kernel has no pidfd_open";
        }
        close(static_cast<int>(descriptor));
    }
};

}  // namespace

extern "C" guint g_child_watch_add(GPid pid, GChildWatchFunc function, gpointer data) {
    if (while_watch_is_made == reaping::before_glib_has_a_pidfd) {
        end_and_reap(pid);
    }
    const guint id = next_function<guint(GPid, GChildWatchFunc, gpointer)>("g_child_watch_add")(
        pid, function, data);
    if (while_watch_is_made == reaping::after_it) {
        end_and_reap(pid);
    }
    return id;
}

TEST_F(kernel_with_pidfd, Leaves_SIGCHLD_alone) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    struct sigaction action;
    sigaction(SIGCHLD, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
}

TEST_F(kernel_with_pidfd, Tells_of_the_end_of_a_child_that_is_reaped_while_its_watch_is_made) {
    for (reaping when : {reaping::before_glib_has_a_pidfd, reaping::after_it}) {
        recording_bridge bridge(true);
        while_watch_is_made = when;
        spawn_probe(bridge, {"sleep"});
        while_watch_is_made = reaping::none;
        ASSERT_TRUE(bridge.wait_for_ends(1));
        EXPECT_THAT(bridge.ends, testing::ElementsAre(main_worker_crash));
        EXPECT_EQ(bridge.get_child_pid(), -1);
    }
}

TEST_F(kernel_with_pidfd, Leaves_no_zombie_of_a_child_whose_end_is_held_back_by_a_tracer) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const pid_t pid = bridge.get_child_pid();
    tracer debugger(pid);
    if (!debugger.has_it()) {
        GTEST_SKIP() << "needs the right to trace a process";
    }
    kill(pid, SIGKILL);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_FALSE(is_gone(pid));
    debugger.let_go();
    EXPECT_TRUE(wait_until([pid] { return is_gone(pid); }));
}

TEST_F(kernel_with_pidfd, Is_named_by_the_source_that_waits_for_the_end) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const std::string child = std::to_string(bridge.get_child_pid());
    EXPECT_THAT(child_source_names(),
                testing::ElementsAre("vask: child " + child + ": end by pidfd"));
}

TEST_F(kernel_with_pidfd, Lets_the_bridge_tell_how_long_it_has_waited) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"slow", "150"});
    ASSERT_TRUE(wait_until_ready());
    bridge.terminate_worker();
    log.clear();
    const double start = vask_object::vask_gettime(VASK_TIME_MSEC);
    ASSERT_TRUE(bridge.vask_wait_child_exit(0));
    const double elapsed = vask_object::vask_gettime(VASK_TIME_MSEC) - start;

    const std::vector<log_line> lines = own_lines(log);
    const std::string beginning = wait_signature + ": waited time: ";
    ASSERT_EQ(lines.size(), 2u);
    ASSERT_EQ(lines[0].text.substr(0, beginning.size()), beginning);
    const std::string time = lines[0].text.substr(beginning.size());
    EXPECT_THAT(time, testing::MatchesRegex("[0-9]+\\.[0-9] \\(ms\\)"));
    EXPECT_EQ(lines[0].level, "DBG");
    EXPECT_EQ(lines[0].name, "bridge");
    EXPECT_GT(std::stod(time), 100);
    EXPECT_LE(std::stod(time), elapsed + 0.1);
    EXPECT_EQ(lines[1], line("DBG", "bridge", "virtual vask_object::~vask_object()"));
}

TEST_F(kernel_with_pidfd, Sees_the_whole_story_of_a_bridge_that_ends_with_its_child) {
    {
        vask_app_bridge bridge("bridge", true);
        spawn_probe(bridge, {"sleep"});
        log.clear();
    }
    const std::vector<log_line> lines = own_lines(log);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], line("DBG", "bridge", "virtual vask_app_bridge::~vask_app_bridge()"));
    EXPECT_EQ(lines[1],
              line("DBG", "bridge", "virtual void vask_app_bridge::terminate_worker_impl()"));
    EXPECT_EQ(lines[2].text.find(wait_signature + ": waited time: "), 0u);
    EXPECT_EQ(lines[3], line("DBG", "bridge", "virtual vask_object::~vask_object()"));
    EXPECT_EQ(lines[4], line("DBG", "bridge", "virtual vask_object::~vask_object()"));
}
