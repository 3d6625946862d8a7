// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <new>

#include "bridge/lifecycle_sigterm.h"
#include "bridge/lifecycle_support.h"
#include "bridge/recording_bridge.h"
#include "support/counted_memory.h"
#include "vask_test/process_list.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

class lifecycle_without_memory : public lifecycle_fixture {
protected:
    ~lifecycle_without_memory() override { allocation_that_fails = 0; }

    // False when memory has run out.
    static bool spawn_with_failing_allocation(recording_bridge& bridge, int number) {
        strlist argv = {bridge_child_program};
        strlist envs;
        allocation_that_fails = number;
        try {
            bridge.spawn(argv, envs);
        } catch (const std::bad_alloc&) {
            return false;
        }
        allocation_that_fails = 0;
        return true;
    }
};

}  // namespace

TEST_F(lifecycle_without_memory, Leaves_no_child_that_the_bridge_does_not_know) {
    int number = 1;
    for (bool has_spawned = false; !has_spawned; ++number) {
        recording_bridge bridge;
        has_spawned = spawn_with_failing_allocation(bridge, number);
        EXPECT_EQ(bridge.get_child_pid() > 0, has_spawned);
        EXPECT_EQ(count_children(), has_spawned ? 1 : 0);
        drain_main_loop();
    }
    EXPECT_GT(number, 10);
}

TEST_F(lifecycle_without_memory, Does_not_wait_for_an_unknown_child_of_another_user) {
    bool has_spawned = false;
    int left = 0;
    for (int number = 1; !has_spawned; ++number) {
        recording_bridge bridge;
        sigterm_record::refuses_sigkill = true;
        has_spawned = spawn_with_failing_allocation(bridge, number);
        sigterm_record::refuses_sigkill = false;
        for (const process_entry& child : list_processes()) {
            if (child.parent == getpid() && child.pid != bridge.get_child_pid()) {
                ++left;
                kill(child.pid, SIGKILL);
                waitpid(child.pid, nullptr, 0);
            }
        }
        drain_main_loop();
    }
    EXPECT_GT(left, 0);
}

TEST_F(lifecycle_without_memory, Reports_the_end_of_a_child_that_was_met) {
    recording_bridge bridge;
    ASSERT_TRUE(bridge.spawn_and_settle());
    bridge.ends.reserve(1);
    kill(bridge.get_child_pid(), SIGKILL);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(bridge.get_child_pid()), &info, WEXITED | WNOWAIT);
    allocation_that_fails = 1;
    EXPECT_TRUE(bridge.wait_for_ends(1));
    allocation_that_fails = 0;
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
}

TEST_F(lifecycle_without_memory, Ends_a_child_whose_meeting_failed) {
    auto bridge = std::make_unique<recording_bridge>();
    bridge->spawn_child();
    allocation_that_fails = 1;
    EXPECT_TRUE(wait_until([] { return allocation_that_fails == 0; }));
    bridge.reset();
    EXPECT_EQ(count_children(), 0);
}
