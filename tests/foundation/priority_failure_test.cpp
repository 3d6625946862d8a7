// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <cerrno>
#include <string>

#include "support/named_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;

// Failures that a test cannot cause, and numbers that not everybody may set: the test takes the
// kernel's place.

namespace {

struct {
    int policy = SCHED_OTHER;
    int real_time_priority = 0;
    int nice_value = 0;
    int error_of_getparam = 0;
    int error_of_setpriority = 0;
    int error_of_getpriority = 0;
    int nice_values_set = 0;
} kernel;

int result_of(int error) {
    if (error == 0) {
        return 0;
    }
    errno = error;
    return -1;
}

}  // namespace

extern "C" int sched_getscheduler(pid_t) noexcept {
    return kernel.policy;
}

extern "C" int sched_setscheduler(pid_t, int policy, const sched_param* param) noexcept {
    kernel.policy = policy;
    kernel.real_time_priority = param->sched_priority;
    return 0;
}

extern "C" int sched_getparam(pid_t, sched_param* param) noexcept {
    param->sched_priority = kernel.real_time_priority;
    return result_of(kernel.error_of_getparam);
}

extern "C" int setpriority(__priority_which_t, id_t, int nice_value) noexcept {
    kernel.nice_value = nice_value;
    ++kernel.nice_values_set;
    return result_of(kernel.error_of_setpriority);
}

extern "C" int getpriority(__priority_which_t, id_t) noexcept {
    return kernel.error_of_getpriority != 0 ? result_of(kernel.error_of_getpriority)
                                            : kernel.nice_value;
}

TEST(priority_failure, Of_sched_getparam_is_logged) {
    kernel.policy = SCHED_RR;
    kernel.error_of_getparam = EPERM;
    const named_object object("player");
    log_catcher log;
    EXPECT_EQ(object.get_priority(812), 2000);
    EXPECT_THAT(log.lines(), ElementsAre(line("WARN", "player",
                                              "Failed to call sched_getparam: PID: 812, err: " +
                                                  std::to_string(EPERM))));
}

TEST(priority_failure, Of_getpriority_is_logged) {
    kernel.error_of_getpriority = EACCES;
    const named_object object("player");
    log_catcher log;
    EXPECT_EQ(object.get_priority(812), 2000);
    EXPECT_THAT(log.lines(), ElementsAre(line("WARN", "player",
                                              "Failed to call getpriority: PID: 812, err: " +
                                                  std::to_string(EACCES))));
}

TEST(priority_failure, Of_setpriority_is_logged_after_the_return_to_the_ordinary_class) {
    kernel.policy = SCHED_RR;
    kernel.error_of_setpriority = EACCES;
    named_object object("player");
    log_catcher log;
    EXPECT_FALSE(object.set_priority(812, -5));
    EXPECT_THAT(log.lines(), ElementsAre(line("WARN", "player",
                                              "Failed to call setpriority: PID: 812, PRIO: -5, "
                                              "err: " +
                                                  std::to_string(EACCES))));
    EXPECT_EQ(kernel.policy, SCHED_OTHER);
}

TEST(priority_number, Below_the_nice_values_is_a_strength_of_round_robin) {
    named_object object("player");
    EXPECT_TRUE(object.set_priority(812, -21));
    EXPECT_EQ(kernel.policy, SCHED_RR);
    EXPECT_EQ(kernel.real_time_priority, 1);
    EXPECT_EQ(object.get_priority(812), -21);
    EXPECT_TRUE(object.set_priority(812, -119));
    EXPECT_EQ(kernel.real_time_priority, 99);
    EXPECT_EQ(object.get_priority(812), -119);
}

TEST(priority_number, Of_the_lowest_nice_value_is_not_real_time) {
    named_object object("player");
    EXPECT_TRUE(object.set_priority(812, -20));
    EXPECT_EQ(kernel.policy, SCHED_OTHER);
    EXPECT_EQ(kernel.real_time_priority, 0);
    EXPECT_EQ(kernel.nice_value, -20);
    EXPECT_EQ(object.get_priority(812), -20);
}

TEST(priority_number, Of_1000_is_the_idle_class_until_a_nice_value_is_set) {
    named_object object("player");
    EXPECT_TRUE(object.set_priority(812, 1000));
    EXPECT_EQ(kernel.policy, SCHED_IDLE);
    EXPECT_EQ(kernel.real_time_priority, 0);
    EXPECT_EQ(object.get_priority(812), 1000);
    EXPECT_TRUE(object.set_priority(812, 5));
    EXPECT_EQ(kernel.policy, SCHED_OTHER);
    EXPECT_EQ(object.get_priority(812), 5);
}

TEST(priority_number, Of_a_nice_value_of_minus_one_is_no_failure) {
    kernel.nice_value = -1;
    errno = ESRCH;
    const named_object object("player");
    log_catcher log;
    EXPECT_EQ(object.get_priority(812), -1);
    EXPECT_EQ(log.text(), "");
}

TEST(priority_number, Of_another_scheduling_class_is_not_known) {
    kernel.policy = SCHED_FIFO;
    const named_object object("player");
    log_catcher log;
    EXPECT_EQ(object.get_priority(812), 2000);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("WARN", "player",
                                 "Scheduling policy was set outside vask: PID: 812, policy: " +
                                     std::to_string(SCHED_FIFO))));
}

TEST(priority_number, Above_the_nice_values_is_handed_to_the_kernel_as_it_is) {
    named_object object("player");
    EXPECT_TRUE(object.set_priority(812, 999));
    EXPECT_EQ(kernel.nice_value, 999);
}

TEST(priority_number, Of_a_scheduling_class_sets_no_nice_value) {
    named_object object("player");
    EXPECT_TRUE(object.set_priority(812, -21));
    EXPECT_TRUE(object.set_priority(812, 1000));
    EXPECT_EQ(kernel.nice_values_set, 0);
}
