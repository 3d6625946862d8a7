// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <cerrno>
#include <string>

#include "foundation/paused_child.h"
#include "support/named_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

int policy_of(pid_t pid) {
    return sched_getscheduler(pid);
}

int real_time_priority_of(pid_t pid) {
    sched_param param = {};
    sched_getparam(pid, &param);
    return param.sched_priority;
}

int nice_of(pid_t pid) {
    return getpriority(PRIO_PROCESS, static_cast<id_t>(pid));
}

bool may_schedule() {
    const paused_child probe;
    const sched_param highest = {99};
    return sched_setscheduler(probe.pid(), SCHED_RR, &highest) == 0 &&
           setpriority(PRIO_PROCESS, static_cast<id_t>(probe.pid()), -20) == 0;
}

class priority : public testing::Test {
protected:
    void SetUp() override {
        if (!may_schedule()) {
            GTEST_SKIP() << "needs the right to raise scheduling priorities";
        }
    }

    void expect_ordinary(int nice_value) const {
        EXPECT_EQ(policy_of(child.pid()), SCHED_OTHER);
        EXPECT_EQ(nice_of(child.pid()), nice_value);
    }

    const paused_child child;
    named_object object{"player"};
    log_catcher log;
};

std::string text_for(const std::string& text, pid_t pid) {
    return text + ": PID: " + std::to_string(pid) + ", ";
}

}  // namespace

TEST_F(priority, Below_the_lowest_nice_value_is_round_robin) {
    EXPECT_TRUE(object.set_priority(child.pid(), -21));
    EXPECT_EQ(policy_of(child.pid()), SCHED_RR);
    EXPECT_EQ(real_time_priority_of(child.pid()), 1);
    EXPECT_EQ(object.get_priority(child.pid()), -21);
}

TEST_F(priority, Of_the_highest_strength_is_round_robin_99) {
    EXPECT_TRUE(object.set_priority(child.pid(), -119));
    EXPECT_EQ(policy_of(child.pid()), SCHED_RR);
    EXPECT_EQ(real_time_priority_of(child.pid()), 99);
    EXPECT_EQ(object.get_priority(child.pid()), -119);
}

TEST_F(priority, Beyond_the_highest_strength_is_refused_by_the_kernel) {
    EXPECT_FALSE(object.set_priority(child.pid(), -120));
    EXPECT_THAT(log.lines(),
                ElementsAre(line("WARN", "player",
                                 text_for("Failed to call sched_setscheduler", child.pid()) +
                                     "PRIO: -120, err: " + std::to_string(EINVAL) + " (RT)")));
    EXPECT_EQ(policy_of(child.pid()), SCHED_OTHER);
}

TEST_F(priority, Of_the_lowest_nice_value_is_not_real_time) {
    EXPECT_TRUE(object.set_priority(child.pid(), -20));
    expect_ordinary(-20);
    EXPECT_EQ(object.get_priority(child.pid()), -20);
}

TEST_F(priority, In_the_range_of_nice_values_is_one) {
    for (const int number : {-19, -1, 0, 1, 5, 19}) {
        EXPECT_TRUE(object.set_priority(child.pid(), number));
        expect_ordinary(number);
        EXPECT_EQ(object.get_priority(child.pid()), number);
    }
    EXPECT_EQ(log.text(), "");
}

TEST_F(priority, Above_the_nice_values_is_cut_by_the_kernel) {
    for (const int number : {20, 999, 1001, 2000}) {
        EXPECT_TRUE(object.set_priority(child.pid(), 0));
        EXPECT_TRUE(object.set_priority(child.pid(), number));
        expect_ordinary(19);
        EXPECT_EQ(object.get_priority(child.pid()), 19);
    }
}

TEST_F(priority, Of_1000_is_idle) {
    EXPECT_TRUE(object.set_priority(child.pid(), 1000));
    EXPECT_EQ(policy_of(child.pid()), SCHED_IDLE);
    EXPECT_EQ(object.get_priority(child.pid()), 1000);
}

TEST_F(priority, Comes_back_from_idle_to_a_nice_value) {
    EXPECT_TRUE(object.set_priority(child.pid(), 1000));
    EXPECT_TRUE(object.set_priority(child.pid(), 5));
    expect_ordinary(5);
    EXPECT_EQ(object.get_priority(child.pid()), 5);
}

TEST_F(priority, Comes_back_from_real_time_to_a_nice_value) {
    EXPECT_TRUE(object.set_priority(child.pid(), -50));
    EXPECT_TRUE(object.set_priority(child.pid(), -7));
    expect_ordinary(-7);
    EXPECT_EQ(object.get_priority(child.pid()), -7);
}

TEST_F(priority, Goes_from_real_time_to_idle_and_back) {
    EXPECT_TRUE(object.set_priority(child.pid(), -50));
    EXPECT_TRUE(object.set_priority(child.pid(), 1000));
    EXPECT_EQ(policy_of(child.pid()), SCHED_IDLE);
    EXPECT_TRUE(object.set_priority(child.pid(), -50));
    EXPECT_EQ(policy_of(child.pid()), SCHED_RR);
    EXPECT_EQ(real_time_priority_of(child.pid()), 30);
}

TEST_F(priority, Of_minus_one_is_told_from_a_failure_whatever_errno_held) {
    ASSERT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(child.pid()), -1), 0);
    errno = ESRCH;
    EXPECT_EQ(object.get_priority(child.pid()), -1);
    EXPECT_EQ(log.text(), "");
}

TEST_F(priority, Of_pid_0_is_that_of_the_caller) {
    const int inherited = nice_of(child.pid());
    EXPECT_TRUE(object.set_priority(0, 3));
    EXPECT_EQ(nice_of(getpid()), 3);
    EXPECT_EQ(object.get_priority(0), 3);
    expect_ordinary(inherited);
}

TEST_F(priority, That_somebody_else_has_set_cannot_be_told) {
    const sched_param strength = {1};
    const sched_param none = {0};
    ASSERT_EQ(sched_setscheduler(child.pid(), SCHED_FIFO, &strength), 0);
    EXPECT_EQ(object.get_priority(child.pid()), 2000);
    ASSERT_EQ(sched_setscheduler(child.pid(), SCHED_BATCH, &none), 0);
    EXPECT_EQ(object.get_priority(child.pid()), 2000);
    const std::string text = text_for("Scheduling policy was set outside vask", child.pid());
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("WARN", "player", text + "policy: " + std::to_string(SCHED_FIFO)),
                    line("WARN", "player", text + "policy: " + std::to_string(SCHED_BATCH))));
}

TEST(priority_of_nobody, Cannot_be_set) {
    named_object object("player");
    const std::string text = text_for("Failed to call sched_setscheduler", pid_of_nobody);
    const std::string error = "err: " + std::to_string(ESRCH);
    log_catcher log;
    EXPECT_FALSE(object.set_priority(pid_of_nobody, -21));
    EXPECT_FALSE(object.set_priority(pid_of_nobody, 1000));
    EXPECT_FALSE(object.set_priority(pid_of_nobody, 5));
    EXPECT_THAT(log.lines(),
                ElementsAre(line("WARN", "player", text + "PRIO: -21, " + error + " (RT)"),
                            line("WARN", "player", text + "PRIO: 1000, " + error + " (IDLE)"),
                            line("WARN", "player", text + "PRIO: 5, " + error + " (OTHER)")));
}

TEST(priority_of_nobody, Cannot_be_told) {
    const named_object object("player");
    log_catcher log;
    EXPECT_EQ(object.get_priority(pid_of_nobody), 2000);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("WARN", "player",
                                 text_for("Failed to call sched_getscheduler", pid_of_nobody) +
                                     "err: " + std::to_string(ESRCH))));
}
