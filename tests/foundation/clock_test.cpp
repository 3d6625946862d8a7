// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>
#include <time.h>

#include "support/shown_clock.h"
#include "vask_object.h"

using namespace vask_test;

namespace {

class vask_gettime : public testing::Test {
protected:
    ~vask_gettime() override { show_clock(nullptr); }

    static void stop_clock() {
        show_clock([](clockid_t clock, timespec* time) {
            *time = {clock == CLOCK_MONOTONIC ? 12 : 99, 345678901};
            return 0;
        });
    }
};

double seconds_of(const timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

}  // namespace

TEST_F(vask_gettime, Reads_the_monotonic_clock_in_the_wanted_unit) {
    stop_clock();
    EXPECT_DOUBLE_EQ(vask_object::vask_gettime(VASK_TIME_SEC), 12.345678901);
    EXPECT_DOUBLE_EQ(vask_object::vask_gettime(VASK_TIME_MSEC), 12345.678901);
    EXPECT_DOUBLE_EQ(vask_object::vask_gettime(VASK_TIME_USEC), 12345678.901);
    EXPECT_DOUBLE_EQ(vask_object::vask_gettime(VASK_TIME_NSEC), 12345678901.0);
}

TEST_F(vask_gettime, Answers_in_seconds_for_a_unit_outside_the_enumeration) {
    stop_clock();
    EXPECT_DOUBLE_EQ(vask_object::vask_gettime(static_cast<vask_time_unit>(4)), 12.345678901);
    EXPECT_DOUBLE_EQ(vask_object::vask_gettime(static_cast<vask_time_unit>(-1)), 12.345678901);
}

TEST_F(vask_gettime, Is_minus_one_in_every_unit_when_the_clock_cannot_be_read) {
    show_clock([](clockid_t, timespec*) { return fail_to_read_clock(); });
    for (const vask_time_unit unit :
         {VASK_TIME_SEC, VASK_TIME_MSEC, VASK_TIME_USEC, VASK_TIME_NSEC}) {
        EXPECT_EQ(vask_object::vask_gettime(unit), -1.0);
    }
}

#if __GLIBC_PREREQ(2, 34)
TEST_F(vask_gettime, Reads_a_clock_that_goes_on_after_2038) {
    static_assert(sizeof(time_t) == 8, "32 bits end in 2038");
    show_clock([](clockid_t, timespec* time) {
        *time = {static_cast<time_t>(0x100000000LL), 0};
        return 0;
    });
    EXPECT_DOUBLE_EQ(vask_object::vask_gettime(VASK_TIME_SEC), 4294967296.0);
}
#endif

TEST_F(vask_gettime, Agrees_with_the_clock_of_the_system) {
    timespec before;
    timespec after;
    clock_gettime(CLOCK_MONOTONIC, &before);
    const double seconds = vask_object::vask_gettime(VASK_TIME_SEC);
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_GE(seconds, seconds_of(before));
    EXPECT_LE(seconds, seconds_of(after));
}

TEST_F(vask_gettime, Has_units_with_the_published_numbers) {
    EXPECT_EQ(VASK_TIME_SEC, 0);
    EXPECT_EQ(VASK_TIME_MSEC, 1);
    EXPECT_EQ(VASK_TIME_USEC, 2);
    EXPECT_EQ(VASK_TIME_NSEC, 3);
}
