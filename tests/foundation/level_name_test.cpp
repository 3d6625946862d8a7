// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/source_line.h"
#include "vask_object.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::ElementsAre;

TEST(level_name, Is_known_for_every_level) {
    EXPECT_STREQ(vask_object::get_vask_p_level_string(VASK_P_EMERG), "EMERG");
    EXPECT_STREQ(vask_object::get_vask_p_level_string(VASK_P_BUG), "BUG");
    EXPECT_STREQ(vask_object::get_vask_p_level_string(VASK_P_FATAL), "FATAL");
    EXPECT_STREQ(vask_object::get_vask_p_level_string(VASK_P_ERR), "ERR");
    EXPECT_STREQ(vask_object::get_vask_p_level_string(VASK_P_WARN), "WARN");
    EXPECT_STREQ(vask_object::get_vask_p_level_string(VASK_P_NOTICE), "NOTICE");
    EXPECT_STREQ(vask_object::get_vask_p_level_string(VASK_P_INFO), "INFO");
    EXPECT_STREQ(vask_object::get_vask_p_level_string(VASK_P_DBG), "DBG");
}

TEST(level_name, Of_a_level_above_the_highest_is_null_and_logged) {
    log_catcher log;
    EXPECT_EQ(vask_object::get_vask_p_level_string(static_cast<vask_print_level>(8)), nullptr);
    EXPECT_EQ(vask_object::get_vask_p_level_string(static_cast<vask_print_level>(1000)), nullptr);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            logged("ERR", "vask", from_line_of("vask_object", "level is too high (8)")),
            logged("ERR", "vask", from_line_of("vask_object", "level is too high (1000)"))));
}

TEST(level_name, Of_a_negative_level_is_null_without_a_line) {
    log_catcher log;
    EXPECT_EQ(vask_object::get_vask_p_level_string(static_cast<vask_print_level>(-1)), nullptr);
    EXPECT_EQ(log.text(), "");
}

TEST(level_name, Numbers_are_those_of_syslog) {
    EXPECT_EQ(VASK_P_EMERG, 0);
    EXPECT_EQ(VASK_P_BUG, 1);
    EXPECT_EQ(VASK_P_FATAL, 2);
    EXPECT_EQ(VASK_P_ERR, 3);
    EXPECT_EQ(VASK_P_WARN, 4);
    EXPECT_EQ(VASK_P_NOTICE, 5);
    EXPECT_EQ(VASK_P_INFO, 6);
    EXPECT_EQ(VASK_P_DBG, 7);
}
