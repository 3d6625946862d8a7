// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "vask_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::MatchesRegex;

namespace {

off_t length_of_standard_output() {
    return lseek(STDOUT_FILENO, 0, SEEK_END);
}

}  // namespace

TEST(message_header, Begins_a_line_that_the_caller_goes_on_with) {
    vask_object::my_pid = 812;
    log_catcher log;
    vask_object::vask_p_header("player", VASK_P_NOTICE, nullptr);
    printf("one ");
    printf("two\n");
    EXPECT_EQ(log.text(), "[player:812] NOTICE: one two\n");
}

TEST(message_header, Is_not_compared_with_the_print_level) {
    vask_object::my_pid = 812;
    vask_object::print_msg_level = VASK_P_EMERG;
    log_catcher log;
    vask_object::vask_p_header("a", VASK_P_DBG, nullptr);
    EXPECT_EQ(log.text(), "[a:812] DBG: ");
}

TEST(message_header, Shows_the_given_address_when_that_flag_is_set) {
    vask_object::my_pid = 812;
    vask_object::print_flags = VASK_P_FLAG_ADDR;
    log_catcher log;
    vask_object::vask_p_header("a", VASK_P_ERR, reinterpret_cast<const void*>(0xabc0));
    EXPECT_EQ(log.text(), "[a:812:0xabc0] ERR: ");
}

TEST(message_header, Shows_the_time_when_that_flag_is_set) {
    vask_object::my_pid = 812;
    vask_object::print_flags = VASK_P_FLAG_TIME;
    log_catcher log;
    vask_object::vask_p_header("a", VASK_P_ERR, nullptr);
    EXPECT_THAT(log.text(), MatchesRegex("[0-9]+\\.[0-9]{6} \\[a:812\\] ERR: "));
}

TEST(message_header, Shows_levels_outside_the_enumeration_as_null_without_a_further_line) {
    vask_object::my_pid = 812;
    log_catcher log;
    vask_object::vask_p_header("a", static_cast<vask_print_level>(8), nullptr);
    vask_object::vask_p_header("a", static_cast<vask_print_level>(-1), nullptr);
    vask_object::vask_p_header("a", static_cast<vask_print_level>(1000000), nullptr);
    EXPECT_EQ(log.text(), "[a:812] (null): [a:812] (null): [a:812] (null): ");
}

TEST(message_header, Is_not_flushed) {
    log_catcher log;
    vask_object::vask_p_header("a", VASK_P_ERR, nullptr);
    EXPECT_EQ(length_of_standard_output(), 0);
    fflush(stdout);
    EXPECT_GT(length_of_standard_output(), 0);
}
