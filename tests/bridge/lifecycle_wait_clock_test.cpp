// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <vector>

#include "bridge/lifecycle_support.h"
#include "support/interpose.h"
#include "support/shown_clock.h"

using namespace vask_test;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::Ge;
using testing::Le;
using testing::SizeIs;

namespace {

// What this thread has done since its last wait began; GLib's thread sleeps and reads the clock
// too.
thread_local std::vector<useconds_t> naps;
thread_local int readings = 0;

/** The readings of the clock, counted from 0, that fail in this thread. */
struct reading_range {
    int first;
    int last;
};

constexpr reading_range none = {0, -1};
thread_local reading_range failing = none;

// A wait reads the clock once at its begin and once after each nap. Whoever reads it next, GLib
// perhaps, finds it repaired.
constexpr unsigned int timeout_msec = 50;
constexpr int last_nap = timeout_msec / 10 + 1;

/** A bridge that waits for the end of its child. */
class bridge_wait_polling : public lifecycle_fixture {
protected:
    bridge_wait_polling() {
        show_clock([](clockid_t clock, timespec* time) {
            const int reading = readings++;
            const bool fails = failing.first <= reading && reading <= failing.last;
            return fails ? fail_to_read_clock() : read_system_clock(clock, time);
        });
    }

    void ask_child_to_end(std::initializer_list<std::string> arguments) {
        spawn_probe(bridge, arguments);
        ASSERT_TRUE(wait_until_ready());
        bridge.terminate_worker();
        log.clear();
    }

    bool wait_while_fail(const reading_range& range, unsigned int timeout) {
        naps.clear();
        readings = 0;
        failing = range;
        const bool ended = bridge.vask_wait_child_exit(timeout);
        failing = none;
        return ended;
    }

    recording_bridge bridge{true};
};

/** The same with a child that does not end. */
class bridge_wait_polling_in_vain : public bridge_wait_polling {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ask_child_to_end({"stubborn"}));
        pid = bridge.get_child_pid();
    }

    void TearDown() override {
        kill(pid, SIGKILL);
        EXPECT_TRUE(wait_until([this] { return is_gone(pid); }));
        let_child_watches_run();
    }

    pid_t pid = 0;
};

}  // namespace

extern "C" int usleep(useconds_t usec) {
    naps.push_back(usec);
    return next_function<int(useconds_t)>("usleep")(usec);
}

TEST_F(bridge_wait_polling_in_vain, Sleeps_10_ms_between_two_looks_at_the_child) {
    EXPECT_FALSE(wait_while_fail(none, timeout_msec));
    EXPECT_THAT(naps, AllOf(SizeIs(Ge(1)), SizeIs(Le(last_nap)), Each(10000u)));
}

TEST_F(bridge_wait_polling_in_vain, Ends_with_its_time_when_the_clock_never_works) {
    EXPECT_FALSE(wait_while_fail({0, last_nap}, timeout_msec));
    EXPECT_THAT(naps, SizeIs(last_nap));
}

TEST_F(bridge_wait_polling_in_vain, Ends_with_its_time_when_the_clock_fails_at_first) {
    EXPECT_FALSE(wait_while_fail({0, 0}, timeout_msec));
    EXPECT_THAT(naps, SizeIs(Le(last_nap)));
}

TEST_F(bridge_wait_polling_in_vain, Ends_with_its_time_when_the_clock_fails_later) {
    EXPECT_FALSE(wait_while_fail({1, last_nap}, timeout_msec));
    EXPECT_THAT(naps, SizeIs(last_nap));
}

TEST_F(bridge_wait_polling, Tells_how_long_it_has_slept_when_the_clock_fails) {
    ASSERT_NO_FATAL_FAILURE(ask_child_to_end({"slow", "50"}));
    EXPECT_TRUE(wait_while_fail({1, INT_MAX}, 0));
    EXPECT_THAT(own_lines(log),
                Contains(line("DBG", "bridge",
                              "bool vask_app_bridge::vask_wait_child_exit(unsigned int): waited "
                              "time: " +
                                  std::to_string(naps.size() * 10) + ".0 (ms)")));
}
