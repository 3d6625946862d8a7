// How often an access enters the kernel, counted from outside.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "shared_info/shared_objects.h"
#include "support/interpose.h"
#include "support/system_calls.h"
#include "vask_object.h"

namespace {

class record_system_calls : public shared_info_test {
protected:
    void expect_none_in(const std::function<void()>& access) {
        const vask_test::call_counts count = vask_test::count_system_calls([&access] {
            access();
            vask_test::system_call_mark::begin();
            for (int i = 0; i < 1000; ++i)
                access();
            vask_test::system_call_mark::end();
        });
        ASSERT_TRUE(count.complete);
        EXPECT_EQ(count.exit_status, 0);
        EXPECT_EQ(count.all, 0) << testing::PrintToString(count);
    }
};

}  // namespace

TEST_F(record_system_calls, Are_none_in_the_getter_of_the_rotation) {
    expect_none_in([] { vask_object::get_monitor_rotation(); });
}

TEST_F(record_system_calls, Are_none_in_the_setter_of_the_rotation) {
    expect_none_in([] { vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1); });
}

TEST_F(record_system_calls, Are_none_in_getter_and_setter_of_the_flag) {
    expect_none_in([] {
        vask_object::set_pseudo_portrait_flag(true);
        vask_object::get_pseudo_portrait_flag();
    });
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
