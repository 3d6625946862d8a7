// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <type_traits>

#include "vask_window_props.h"

static_assert(std::is_polymorphic<vask_window_props>::value, "it is deleted through its base");
static_assert(std::is_same<vask_window_id_t, unsigned long>::value, "an X window id");

namespace {

class window_properties : public testing::Test {
protected:
    void save_first() { props.save_window_data(1, 2, 3, 4, 5); }

    vask_window_props props;
};

}  // namespace

TEST_F(window_properties, Start_with_no_geometry) {
    EXPECT_EQ(props.get_window_x(), -1);
    EXPECT_EQ(props.get_window_y(), -1);
    EXPECT_EQ(props.get_window_width(), -1);
    EXPECT_EQ(props.get_window_height(), -1);
    EXPECT_EQ(props.get_window_xid(), 0ul);
    EXPECT_FALSE(props.is_window_data_changed());
}

TEST_F(window_properties, Keep_what_was_saved) {
    save_first();
    EXPECT_EQ(props.get_window_x(), 1);
    EXPECT_EQ(props.get_window_y(), 2);
    EXPECT_EQ(props.get_window_width(), 3);
    EXPECT_EQ(props.get_window_height(), 4);
    EXPECT_EQ(props.get_window_xid(), 5ul);
}

TEST_F(window_properties, Are_copied_out_together) {
    constexpr auto id = static_cast<vask_window_id_t>(0xfedcba9876543210ull);
    props.save_window_data(1, 2, 3, 4, id);
    int x = 0, y = 0, width = 0, height = 0;
    vask_window_id_t xid = 0;
    props.get_window_data(x, y, width, height, xid);
    EXPECT_EQ(x, 1);
    EXPECT_EQ(y, 2);
    EXPECT_EQ(width, 3);
    EXPECT_EQ(height, 4);
    EXPECT_EQ(xid, id);
}

TEST_F(window_properties, Change_with_the_first_geometry_even_if_it_is_all_zero) {
    props.save_window_data(0, 0, 0, 0, 0);
    EXPECT_TRUE(props.is_window_data_changed());
}

TEST_F(window_properties, Do_not_change_when_the_initial_values_are_saved) {
    props.save_window_data(-1, -1, -1, -1, 0);
    EXPECT_FALSE(props.is_window_data_changed());
}

TEST_F(window_properties, Are_unchanged_after_the_same_save_again) {
    save_first();
    EXPECT_TRUE(props.is_window_data_changed());
    save_first();
    EXPECT_FALSE(props.is_window_data_changed());
    EXPECT_EQ(props.get_window_width(), 3);
}

TEST_F(window_properties, Stay_changed_however_often_one_asks) {
    save_first();
    EXPECT_TRUE(props.is_window_data_changed());
    EXPECT_TRUE(props.is_window_data_changed());
}

TEST_F(window_properties, Change_with_any_single_value) {
    const int steps[][5] = {
        {9, 2, 3, 4, 5}, {9, 9, 3, 4, 5}, {9, 9, 9, 4, 5}, {9, 9, 9, 9, 5}, {9, 9, 9, 9, 9}};
    save_first();
    for (const auto& step : steps) {
        props.save_window_data(step[0], step[1], step[2], step[3],
                               static_cast<vask_window_id_t>(step[4]));
        EXPECT_TRUE(props.is_window_data_changed()) << testing::PrintToString(step);
    }
}

TEST_F(window_properties, Compare_the_whole_window_id) {
    if (sizeof(vask_window_id_t) == 4) {
        GTEST_SKIP() << "Window ids have 32 bits here.";
    }
    props.save_window_data(1, 2, 3, 4, 5);
    props.save_window_data(1, 2, 3, 4, static_cast<vask_window_id_t>(0x100000005ull));
    EXPECT_TRUE(props.is_window_data_changed());
}

TEST_F(window_properties, Change_back_too) {
    save_first();
    props.save_window_data(1, 2, 3, 4, 6);
    save_first();
    EXPECT_TRUE(props.is_window_data_changed());
}

TEST(window_properties_base, Ends_its_subclass_too) {
    struct noticing : vask_window_props {
        explicit noticing(bool* noticed) : ended(noticed) {}
        ~noticing() override { *ended = true; }
        bool* ended;
    };
    bool ended = false;
    const vask_window_props* props = new noticing(&ended);
    delete props;
    EXPECT_TRUE(ended);
}
