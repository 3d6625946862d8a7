// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// How often an access enters the kernel, counted from outside.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include "support/interpose.h"
#include "support/shared_objects.h"
#include "support/system_calls.h"
#include "vask_object.h"

namespace {

class record_system_calls : public shared_info_test {
protected:
    void expect_none_in(const std::function<void()>& access) { expect_in(access, 0); }

    // Each access blocks the signals and lets them through again.
    void expect_two_masks_in(const std::function<void()>& access) { expect_in(access, 2); }

private:
    void expect_in(const std::function<void()>& access, int masks) {
        const vask_test::call_counts count = vask_test::count_system_calls([&access] {
            access();
            vask_test::system_call_mark::begin();
            for (int i = 0; i < 1000; ++i) {
                access();
            }
            vask_test::system_call_mark::end();
        });
        ASSERT_TRUE(count.complete);
        EXPECT_EQ(count.exit_status, 0);
        EXPECT_EQ(count.of(SYS_rt_sigprocmask), 1000 * masks);
        EXPECT_EQ(count.all, 1000 * masks) << testing::PrintToString(count);
    }
};

}  // namespace

TEST_F(record_system_calls, Are_none_in_the_getter_of_the_rotation) {
    expect_none_in([] { vask_object::get_monitor_rotation(); });
}

TEST_F(record_system_calls, Are_two_in_the_setter_of_the_rotation) {
    expect_two_masks_in([] { vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1); });
}

TEST_F(record_system_calls, Are_two_in_the_setter_of_the_flag) {
    expect_two_masks_in([] { vask_object::set_pseudo_portrait_flag(true); });
}

TEST_F(record_system_calls, Are_none_in_the_getter_of_the_flag) {
    expect_none_in([] { vask_object::get_pseudo_portrait_flag(); });
}

TEST_F(record_system_calls, Are_none_where_the_hardware_is_known) {
    expect_none_in([] {
        vask_object::get_vask_cpu_type(false);
        vask_object::get_vask_gpu_type(false);
    });
}

TEST_F(record_system_calls, Are_seen_where_there_are_some) {
    const vask_test::call_counts count = vask_test::count_system_calls([] {
        vask_test::system_call_mark::begin();
        vask_object::get_monitor_rotation();
        vask_test::system_call_mark::end();
        _exit(7);
    });
    EXPECT_TRUE(count.complete);
    EXPECT_EQ(count.by_number.count(vask_test::mmap_call), 1U);
    EXPECT_EQ(count.exit_status, 7);
}
