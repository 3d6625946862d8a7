// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What is returned and logged where the record cannot be had.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "shared_info/shared_info_faults.h"
#include "support/shared_objects.h"
#include "vask_object.h"

using namespace vask_test;
using shared_info_faults::now;
using shared_info_faults::seen;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class shared_record_failure : public shared_info_test {
protected:
    static void make_unmappable() {
        now.failing_call = "shm_open";
        now.failing_error = 13;
    }

    void make_unlockable() {
        info.map_shared_info(true);
        now.failing_call = "sem_wait";
        now.failing_error = 22;
    }

    static testing::Matcher<const log_line&> unmappable() {
        return error("Failed to call shm_open: 13 @ map_shared_info");
    }
    static testing::Matcher<const log_line&> unlockable() {
        return sem_error("Failed to sem_wait(): 22");
    }

    shared_info_faults::healed healed;
    own_shared_info info;
};

}  // namespace

TEST_F(shared_record_failure, To_wait_for_it_fails_the_lock) {
    make_unlockable();
    EXPECT_FALSE(info.lock_shared_info());
    EXPECT_THAT(log.lines(), ElementsAre(unlockable()));
}

TEST_F(shared_record_failure, To_map_it_fails_the_setter_of_the_rotation) {
    make_unmappable();
    EXPECT_FALSE(info.set_monitor_rotation(VASK_MONITOR_ROTATION_1));
    EXPECT_THAT(log.lines(), ElementsAre(unmappable()));
}

TEST_F(shared_record_failure, To_map_it_gives_no_rotation) {
    make_unmappable();
    EXPECT_EQ(info.get_monitor_rotation(), 4);
    EXPECT_THAT(log.lines(), ElementsAre(unmappable()));
}

TEST_F(shared_record_failure, To_map_it_leaves_the_flag_alone) {
    make_unmappable();
    info.set_pseudo_portrait_flag(true);
    EXPECT_THAT(log.lines(), ElementsAre(unmappable()));
    now.failing_call.clear();
    EXPECT_FALSE(info.get_pseudo_portrait_flag());
}

TEST_F(shared_record_failure, To_map_it_gives_no_flag) {
    make_unmappable();
    EXPECT_FALSE(info.get_pseudo_portrait_flag());
    EXPECT_THAT(log.lines(), ElementsAre(unmappable()));
}

TEST_F(shared_record_failure, To_map_it_is_an_error_of_the_hardware_types) {
    make_unmappable();
    for (const bool force : {false, true}) {
        log.clear();
        EXPECT_EQ(info.get_vask_cpu_type(force), 2);
        EXPECT_EQ(info.get_vask_gpu_type(force), 2);
        EXPECT_THAT(log.lines(), ElementsAre(unmappable(), unmappable()));
    }
}

TEST_F(shared_record_failure, To_map_it_is_passed_on_by_the_static_calls) {
    make_unmappable();
    EXPECT_FALSE(vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1));
    EXPECT_EQ(vask_object::get_monitor_rotation(), 4);
    EXPECT_FALSE(vask_object::get_pseudo_portrait_flag());
    vask_object::set_pseudo_portrait_flag(true);
    EXPECT_EQ(vask_object::get_vask_cpu_type(false), 2);
    EXPECT_EQ(vask_object::get_vask_gpu_type(false), 2);
    EXPECT_THAT(log.lines(), testing::SizeIs(6));
    EXPECT_THAT(log.lines(), testing::Each(unmappable()));
}

TEST_F(shared_record_failure, To_map_it_is_over_when_the_cause_is) {
    make_unmappable();
    EXPECT_EQ(info.get_monitor_rotation(), 4);
    now.failing_call.clear();
    EXPECT_EQ(info.get_monitor_rotation(), 5);
}

TEST_F(shared_record_failure, To_lock_it_fails_the_setter_of_the_rotation) {
    make_unlockable();
    EXPECT_FALSE(info.set_monitor_rotation(VASK_MONITOR_ROTATION_1));
    EXPECT_THAT(log.lines(), ElementsAre(unlockable()));
    EXPECT_EQ(record.int_at(0), 5);
}

TEST_F(shared_record_failure, To_lock_it_gives_no_rotation) {
    make_unlockable();
    EXPECT_EQ(info.get_monitor_rotation(), 4);
    EXPECT_THAT(log.lines(), ElementsAre(unlockable()));
}

TEST_F(shared_record_failure, To_lock_it_leaves_the_flag_alone) {
    make_unlockable();
    info.set_pseudo_portrait_flag(true);
    EXPECT_THAT(log.lines(), ElementsAre(unlockable(), error("Failed to call vask_sem_wait()")));
    EXPECT_EQ(record.bytes()[12], 0);
}

TEST_F(shared_record_failure, To_lock_it_gives_no_flag) {
    info.set_pseudo_portrait_flag(true);
    make_unlockable();
    EXPECT_FALSE(info.get_pseudo_portrait_flag());
    EXPECT_THAT(log.lines(), ElementsAre(unlockable(), error("Failed to call vask_sem_wait()")));
}

TEST_F(shared_record_failure, To_lock_it_is_an_error_of_the_hardware_types) {
    make_unlockable();
    for (const bool force : {false, true}) {
        log.clear();
        EXPECT_EQ(info.get_vask_cpu_type(force), 2);
        EXPECT_EQ(info.get_vask_gpu_type(force), 2);
        EXPECT_THAT(log.lines(), ElementsAre(unlockable(), unlockable()));
    }
    EXPECT_EQ(record.int_at(4), 0);
    EXPECT_EQ(record.int_at(8), 0);
}

TEST_F(shared_record_failure, To_lock_it_after_the_detection_is_an_error_of_the_hardware_types) {
    info.map_shared_info(true);
    now.failing_error = 22;
    // The first access gives the semaphore back, and the second cannot have it.
    now.before_post = [] { now.failing_call = "sem_wait"; };

    EXPECT_EQ(info.get_vask_cpu_type(false), 2);
    EXPECT_THAT(log.lines(), Contains(unlockable()).Times(1));
    log.clear();
    now.failing_call.clear();
    EXPECT_EQ(info.get_vask_gpu_type(true), 2);
    EXPECT_THAT(log.lines(), Contains(unlockable()).Times(1));

    EXPECT_EQ(record.int_at(4), 0);
    EXPECT_EQ(record.int_at(8), 0);
    EXPECT_EQ(record.sem_value(), 1);
}

TEST_F(shared_record_failure, To_lock_it_gives_no_semaphore_back) {
    make_unlockable();
    seen = shared_info_faults::counts();
    info.get_monitor_rotation();
    info.set_monitor_rotation(VASK_MONITOR_ROTATION_1);
    info.get_pseudo_portrait_flag();
    info.set_pseudo_portrait_flag(true);
    info.get_vask_cpu_type(true);
    EXPECT_EQ(seen.sem_post, 0);
    EXPECT_EQ(record.sem_value(), 1);
}

TEST_F(shared_record_failure, To_have_a_semaphore_is_told) {
    info.map_shared_info(true);
    sem_t* sem = info.m_shared_info_ctx->get_sem();
    info.m_shared_info_ctx->set_sem(nullptr);
    EXPECT_FALSE(info.lock_shared_info());
    EXPECT_FALSE(info.unlock_shared_info());
    EXPECT_EQ(info.get_monitor_rotation(), 4);
    EXPECT_FALSE(info.get_pseudo_portrait_flag());
    EXPECT_THAT(log.lines(),
                ElementsAre(error("sem == NULL"), error("sem == NULL"), error("sem == NULL"),
                            error("sem == NULL"), error("Failed to call vask_sem_wait()")));
    info.m_shared_info_ctx->set_sem(sem);
}

TEST_F(shared_record_failure, To_give_the_semaphore_back_is_told_and_does_not_undo_the_access) {
    info.map_shared_info(true);
    now.failing_call = "sem_post";
    now.failing_error = 75;
    EXPECT_TRUE(info.set_monitor_rotation(VASK_MONITOR_ROTATION_1));
    EXPECT_FALSE(info.unlock_shared_info());
    EXPECT_EQ(record.int_at(0), 1);
    EXPECT_THAT(log.lines(), ElementsAre(sem_error("Failed to sem_post(): 75"),
                                         sem_error("Failed to sem_post(): 75")));
}

// The first who maps it fills it in before anybody else can look at it.
TEST_F(shared_record_failure, To_be_filled_in_is_never_seen) {
    std::int32_t rotation_at_first_post = -1;
    now.before_post = [&] {
        if (rotation_at_first_post == -1) {
            rotation_at_first_post = record.int_at(0);
        }
    };
    info.map_shared_info(true);
    EXPECT_EQ(rotation_at_first_post, 5);
    EXPECT_EQ(seen.sem_post, 1);
}

TEST_F(shared_record_failure, Is_none_when_signals_interrupt_the_wait_for_the_semaphore) {
    ASSERT_TRUE(info.set_monitor_rotation(VASK_MONITOR_ROTATION_1));
    for (const int interruptions : {1, 3}) {
        now.interrupted_waits = interruptions;
        EXPECT_EQ(info.get_monitor_rotation(), VASK_MONITOR_ROTATION_1);
        EXPECT_EQ(now.interrupted_waits, 0);
    }
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST_F(shared_record_failure, Is_none_and_nobody_sleeps_when_the_semaphore_is_held_for_a_moment) {
    ASSERT_TRUE(info.set_monitor_rotation(VASK_MONITOR_ROTATION_1));
    seen = shared_info_faults::counts();
    now.busy_tries = 2;
    EXPECT_EQ(info.get_monitor_rotation(), VASK_MONITOR_ROTATION_1);
    now.busy_tries = 2;
    EXPECT_TRUE(info.set_monitor_rotation(VASK_MONITOR_ROTATION_2));
    EXPECT_EQ(now.busy_tries, 0);
    EXPECT_EQ(seen.sleeping_waits, 0);
    EXPECT_EQ(record.int_at(0), 2);
}

TEST_F(shared_record_failure, Is_none_when_the_semaphore_is_held_for_longer_and_one_sleeps_then) {
    ASSERT_TRUE(info.set_monitor_rotation(VASK_MONITOR_ROTATION_1));
    seen = shared_info_faults::counts();
    now.busy_tries = 20;
    EXPECT_EQ(info.get_monitor_rotation(), VASK_MONITOR_ROTATION_1);
    EXPECT_EQ(seen.sleeping_waits, 1);
    now.busy_tries = 20;
    EXPECT_TRUE(info.set_monitor_rotation(VASK_MONITOR_ROTATION_2));
    EXPECT_EQ(seen.sleeping_waits, 2);
    EXPECT_EQ(record.int_at(0), 2);
}

TEST_F(shared_record_failure, Is_none_when_the_semaphore_is_taken_and_given_back_once_per_access) {
    info.map_shared_info(true);
    const auto expect_pairs = [](int pairs) {
        EXPECT_EQ(seen.sem_wait, pairs);
        EXPECT_EQ(seen.sem_post, pairs);
        seen = shared_info_faults::counts();
    };
    seen = shared_info_faults::counts();
    info.get_monitor_rotation();
    expect_pairs(1);
    info.set_monitor_rotation(VASK_MONITOR_ROTATION_1);
    expect_pairs(1);
    info.get_pseudo_portrait_flag();
    expect_pairs(1);
    info.set_pseudo_portrait_flag(true);
    expect_pairs(1);
    info.get_vask_cpu_type(true);
    expect_pairs(2);
    info.get_vask_cpu_type(false);
    expect_pairs(1);
    EXPECT_THAT(log.lines(), IsEmpty());
}
