// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <string>

#include "bridge/lifecycle_support.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;

/** A process id is free as soon as the process was reaped. The bridge has not told of its end then,
 *  as long as the bus may still bring something from the child. */
namespace {

class recycled_pid : public lifecycle_fixture {
protected:
    void SetUp() override {
        bridge.enable_twins_mode();
        ASSERT_TRUE(bridge.spawn_and_settle());
        bridge.switch_main_worker();
        ASSERT_EQ(bridge.ask(CHILD_ECHO, "settled"), "settled");
        bridge.switch_main_worker();
    }

    ~recycled_pid() override { kill(bus_daemon(), SIGCONT); }

    int pid(int slot) const { return bridge.m_child_proxy[slot]->get_pid(); }

    /** One twin is gone. The other has ended, and its end is held up. */
    void let_end_of(int slot) {
        kill(pid(1 - slot), SIGKILL);
        ASSERT_TRUE(bridge.wait_for_ends(1));
        bridge.ends.clear();
        kill(bus_daemon(), SIGSTOP);
        kill(pid(slot), SIGKILL);
        const std::string noticed = "_child_watch: " + std::to_string(pid(slot));
        ASSERT_TRUE(wait_until([this, &noticed] {
            return testing::Value(own_lines(log),
                                  Contains(line("DBG", "vask_app_bridge", noticed)));
        }));
    }

    /** Starts the missing twin under the process id of the one that has ended. */
    void give_its_pid_to_the_other(int slot) {
        const std::string last_pid = std::to_string(pid(slot) - 1);
        const int fd = open("/proc/sys/kernel/ns_last_pid", O_WRONLY | O_CLOEXEC);
        // Where the file may be opened, the kernel still asks who writes.
        const ssize_t written = fd < 0 ? -1 : write(fd, last_pid.data(), last_pid.size());
        if (fd >= 0) {
            close(fd);
        }
        if (written < 0) {
            GTEST_SKIP() << "this process may not choose the ids of processes";
        }
        spawn_probe(bridge, {"sleep"});
        ASSERT_EQ(pid(1 - slot), pid(slot));
    }

    recording_bridge bridge;
};

}  // namespace

TEST_F(recycled_pid, Of_the_first_twin_leaves_the_end_of_the_second_the_second_s) {
    ASSERT_NO_FATAL_FAILURE(let_end_of(0));
    give_its_pid_to_the_other(0);
    if (IsSkipped() || HasFatalFailure()) {
        return;
    }
    kill(pid(1), SIGKILL);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(other_worker_crash));
    EXPECT_NE(bridge.m_child_proxy[0], nullptr);
    ASSERT_TRUE(bridge.wait_for_ends(2));
    EXPECT_THAT(bridge.ends, ElementsAre(other_worker_crash, main_worker_crash));
}

TEST_F(recycled_pid, Of_the_second_twin_leaves_the_first_alive) {
    ASSERT_NO_FATAL_FAILURE(let_end_of(1));
    give_its_pid_to_the_other(1);
    if (IsSkipped() || HasFatalFailure()) {
        return;
    }
    const int first = pid(0);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(other_worker_crash));
    ASSERT_EQ(bridge.get_child_pid(), first);
    EXPECT_FALSE(has_ended(first));
}
