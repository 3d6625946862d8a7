// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>

#include "bridge/lifecycle_support.h"
#include "vask_test/resource_count.h"

using namespace vask_test;

namespace {

constexpr int cycles = 500;
constexpr int warm_up_cycles = 100;

// What is in use at one moment varies by a few kilobytes; the smallest leak in every cycle is more.
constexpr long accepted_growth = 12 * 1024;

class bridge_cycles : public lifecycle_fixture {
protected:
    bridge_cycles() { vask_object::print_msg_level = VASK_P_WARN; }

    void run_cycle() {
        bridge.ends.clear();
        bridge.init_proxy();
        ASSERT_TRUE(bridge.spawn_and_meet());
        ASSERT_EQ(bridge.ask(CHILD_ECHO, "alive"), "alive");
        kill(bridge.get_child_pid(), SIGKILL);
        ASSERT_TRUE(bridge.wait_for_ends(1));
        ASSERT_THAT(bridge.ends, testing::ElementsAre(main_worker_crash));
        drain_main_loop();
    }

    void run_cycles(int count) {
        for (int i = 0; i < count; ++i) {
            ASSERT_NO_FATAL_FAILURE(run_cycle());
        }
    }

    static long heap_in_use() { return static_cast<long>(mallinfo2().uordblks); }

    recording_bridge bridge;
};

}  // namespace

TEST_F(bridge_cycles, Of_start_command_crash_and_restart_leave_nothing_behind) {
    ASSERT_NO_FATAL_FAILURE(run_cycles(warm_up_cycles));
    const resource_count before = resource_count::take();
    const long heap_before = heap_in_use();

    ASSERT_NO_FATAL_FAILURE(run_cycles(cycles));

    // Under a sanitizer both are 0, and its leak check at the end stands in.
    EXPECT_LE(heap_in_use() - heap_before, accepted_growth);
    EXPECT_EQ(before.difference(resource_count::take()), "");
    EXPECT_EQ(count_children(), 0);
}
