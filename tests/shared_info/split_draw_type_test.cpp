// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

#include "vask_object.h"
#include "vask_shared_info.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class split_draw_type : public testing::Test {
protected:
    static int of(int rotation, int screen_width, int screen_height, int x, int y, int width,
                  int height) {
        return vask_object::calc_split_draw_type(static_cast<vask_monitor_rotation_type>(rotation),
                                                 screen_width, screen_height, x, y, width, height);
    }

    log_catcher log;
};

}  // namespace

TEST_F(split_draw_type, In_rotation_0_is_1_for_the_lower_half) {
    EXPECT_EQ(of(0, 800, 600, 0, 300, 10, 10), 1);
    EXPECT_EQ(of(0, 800, 600, 0, 599, 10, 1), 1);
    EXPECT_EQ(of(0, 800, 600, 0, 5000, 10, 10), 1);
}

TEST_F(split_draw_type, In_rotation_0_is_0_for_the_upper_half) {
    EXPECT_EQ(of(0, 800, 600, 0, 0, 10, 290), 0);
    EXPECT_EQ(of(0, 800, 600, 0, 0, 10, 299), 0);
    EXPECT_EQ(of(0, 800, 600, 0, -100, 10, 399), 0);
}

TEST_F(split_draw_type, In_rotation_0_is_2_for_what_touches_or_crosses_the_middle) {
    EXPECT_EQ(of(0, 800, 600, 0, 0, 10, 300), 2);
    EXPECT_EQ(of(0, 800, 600, 0, 299, 10, 1), 2);
    EXPECT_EQ(of(0, 800, 600, 0, 299, 10, 2), 2);
    EXPECT_EQ(of(0, 800, 600, 0, 0, 800, 600), 2);
}

TEST_F(split_draw_type, In_rotation_1_is_1_for_the_left_half) {
    EXPECT_EQ(of(1, 800, 600, 0, 0, 399, 10), 1);
    EXPECT_EQ(of(1, 800, 600, -10, 0, 5, 10), 1);
}

TEST_F(split_draw_type, In_rotation_1_is_0_for_the_right_half) {
    EXPECT_EQ(of(1, 800, 600, 400, 0, 10, 10), 0);
    EXPECT_EQ(of(1, 800, 600, 799, 0, 10, 10), 0);
}

TEST_F(split_draw_type, In_rotation_1_is_2_for_what_touches_or_crosses_the_middle) {
    EXPECT_EQ(of(1, 800, 600, 0, 0, 400, 10), 2);
    EXPECT_EQ(of(1, 800, 600, 399, 0, 2, 10), 2);
}

TEST_F(split_draw_type, In_rotation_2_is_1_for_the_upper_half) {
    EXPECT_EQ(of(2, 800, 600, 0, 0, 10, 299), 1);
}

TEST_F(split_draw_type, In_rotation_2_is_0_for_the_lower_half) {
    EXPECT_EQ(of(2, 800, 600, 0, 300, 10, 10), 0);
}

TEST_F(split_draw_type, In_rotation_2_is_2_for_what_touches_or_crosses_the_middle) {
    EXPECT_EQ(of(2, 800, 600, 0, 0, 10, 300), 2);
    EXPECT_EQ(of(2, 800, 600, 0, 299, 10, 2), 2);
}

TEST_F(split_draw_type, In_rotation_3_is_1_for_the_right_half) {
    EXPECT_EQ(of(3, 800, 600, 400, 0, 10, 10), 1);
}

TEST_F(split_draw_type, In_rotation_3_is_0_for_the_left_half) {
    EXPECT_EQ(of(3, 800, 600, 0, 0, 399, 10), 0);
}

TEST_F(split_draw_type, In_rotation_3_is_2_for_what_touches_or_crosses_the_middle) {
    EXPECT_EQ(of(3, 800, 600, 0, 0, 400, 10), 2);
    EXPECT_EQ(of(3, 800, 600, 399, 0, 2, 10), 2);
}

TEST_F(split_draw_type, Halves_an_odd_screen_towards_zero) {
    EXPECT_EQ(of(0, 801, 601, 0, 300, 10, 10), 1);
    EXPECT_EQ(of(0, 801, 601, 0, 0, 10, 300), 2);
    EXPECT_EQ(of(3, 801, 601, 400, 0, 10, 10), 1);
    EXPECT_EQ(of(3, 801, 601, 0, 0, 400, 10), 2);
    EXPECT_EQ(of(0, -3, -3, 0, -1, 0, 0), 1);
    EXPECT_EQ(of(0, -3, -3, 0, -3, 0, 1), 0);
}

// Both tests hold for a rectangle that ends before it begins.
TEST_F(split_draw_type, Is_1_for_an_inside_out_rectangle_on_both_sides) {
    for (const int rotation : {0, 1, 2, 3}) {
        EXPECT_EQ(of(rotation, 800, 600, 500, 400, -300, -300), 1) << rotation;
    }
}

TEST_F(split_draw_type, Holds_for_sums_beyond_the_range_of_int) {
    EXPECT_EQ(of(0, 800, 600, 0, 1, 10, INT_MAX), 2);
    EXPECT_EQ(of(1, 800, 600, 1, 0, INT_MAX, 10), 2);
    EXPECT_EQ(of(2, 800, 600, 0, 1, 10, INT_MAX), 2);
    EXPECT_EQ(of(3, 800, 600, 1, 0, INT_MAX, 10), 2);
    EXPECT_EQ(of(0, 800, 600, 0, INT_MIN, 10, -1), 0);
    EXPECT_EQ(of(1, 800, 600, INT_MIN, 0, -1, 10), 1);
    EXPECT_EQ(of(2, 800, 600, 0, INT_MIN, 10, -1), 1);
    EXPECT_EQ(of(3, 800, 600, INT_MIN, 0, -1, 10), 0);
    EXPECT_EQ(of(0, INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX), 1);
    EXPECT_EQ(of(0, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN), 0);
}

TEST_F(split_draw_type, Logs_nothing_for_a_known_rotation) {
    for (const int rotation : {0, 1, 2, 3}) {
        of(rotation, 800, 600, 0, 0, 10, 10);
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(split_draw_type, Is_1_for_an_unknown_rotation) {
    for (const int rotation : {4, 5, 7, -1, INT_MAX, INT_MIN}) {
        log.clear();
        EXPECT_EQ(of(rotation, 800, 600, 0, 0, 10, 290), 1);
        EXPECT_THAT(log.lines(),
                    ElementsAre(line("ERR", "vask_object",
                                     "Unknown monitor_ration: " + std::to_string(rotation))));
    }
}
