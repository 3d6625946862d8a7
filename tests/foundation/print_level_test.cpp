// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "vask_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;

namespace {

const int level_at_load = vask_object::print_msg_level;
const unsigned int flags_at_load = vask_object::print_flags;
const int pid_at_load = vask_object::my_pid;

const char allowed_levels[] =
    "Allowed strings are 'EMERG' 'BUG' 'FATAL' 'ERR' 'WARN' 'NOTICE' 'INFO' 'DBG' , or 0 - 7\n";

struct setting {
    const char* name;
    const char* value;
    int result;
};

std::string name_of(const testing::TestParamInfo<setting>& info) {
    return info.param.name;
}

class accepted_level : public testing::TestWithParam<setting> {};
class refused_level : public testing::TestWithParam<setting> {};
class print_flags : public testing::TestWithParam<setting> {};

}  // namespace

TEST(process_wide_state, Is_unread_when_the_library_is_loaded) {
    EXPECT_EQ(level_at_load, -1);
    EXPECT_EQ(flags_at_load, 0U);
    EXPECT_EQ(pid_at_load, 0);
}

TEST(print_level, Is_INFO_when_the_variable_is_unset) {
    log_catcher log;
    vask_object object;
    EXPECT_EQ(vask_object::print_msg_level, VASK_P_INFO);
    EXPECT_EQ(log.text(), "");
}

TEST_P(accepted_level, Is_taken_without_a_word) {
    setenv("VASK_MSG_LV", GetParam().value, 1);
    log_catcher log;
    vask_object::set_print_msg_level_level();
    EXPECT_EQ(vask_object::print_msg_level, GetParam().result);
    EXPECT_EQ(log.text(), "");
}

INSTANTIATE_TEST_SUITE_P(print_level, accepted_level,
                         testing::Values(setting{"empty", "", 6}, setting{"EMERG", "EMERG", 0},
                                         setting{"BUG", "BUG", 1}, setting{"FATAL", "FATAL", 2},
                                         setting{"ERR", "ERR", 3}, setting{"WARN", "WARN", 4},
                                         setting{"NOTICE", "NOTICE", 5}, setting{"INFO", "INFO", 6},
                                         setting{"DBG", "DBG", 7}, setting{"zero", "0", 0},
                                         setting{"one", "1", 1}, setting{"seven", "7", 7},
                                         setting{"leading_zero", "07", 7},
                                         setting{"leading_blank", " 7", 7}),
                         name_of);

TEST_P(refused_level, Is_reported_and_gives_INFO) {
    setenv("VASK_MSG_LV", GetParam().value, 1);
    vask_object::print_msg_level = VASK_P_ERR;
    log_catcher log;
    vask_object::set_print_msg_level_level();
    EXPECT_EQ(vask_object::print_msg_level, VASK_P_INFO);
    EXPECT_EQ(log.text(), std::string("'") + GetParam().value +
                              "' is not invalid for VASK_MSG_LV.\n" + allowed_levels);
}

INSTANTIATE_TEST_SUITE_P(
    print_level, refused_level,
    testing::Values(setting{"eight", "8", 6}, setting{"lower_case", "dbg", 6},
                    setting{"trailing_letter", "3x", 6}, setting{"negative", "-1", 6},
                    setting{"trailing_blank", "7 ", 6}, setting{"only_a_blank", " ", 6},
                    setting{"blank_before_a_name", " DBG", 6}, setting{"hexadecimal", "0x3", 6},
                    setting{"beginning_of_a_name", "DB", 6},
                    setting{"longer_than_a_name", "DBGX", 6},
                    setting{"too_large_for_the_type", "18446744073709551617", 6},
                    setting{"conversions", "%s%n", 6}),
    name_of);

TEST(print_level, Is_reported_on_standard_output_even_if_messages_go_to_syslog) {
    setenv("VASK_SYSLOG", "1", 1);
    setenv("VASK_MSG_LV", "8", 1);
    log_catcher log;
    vask_object object;
    EXPECT_EQ(log.text(), std::string("'8' is not invalid for VASK_MSG_LV.\n") + allowed_levels);
}

TEST_P(print_flags, Are_read_letter_by_letter) {
    setenv("VASK_MSG_FLAGS", GetParam().value, 1);
    log_catcher log;
    vask_object::set_print_msg_level_flags();
    EXPECT_EQ(vask_object::print_flags, static_cast<unsigned int>(GetParam().result));
    EXPECT_EQ(log.text(), "");
}

INSTANTIATE_TEST_SUITE_P(print_flags, print_flags,
                         testing::Values(setting{"TA", "TA", 3}, setting{"AT", "AT", 3},
                                         setting{"T_among_others", "xTx", 1}, setting{"A", "A", 2},
                                         setting{"twice", "TT", 1}, setting{"lower_case", "ta", 0},
                                         setting{"empty", "", 0}),
                         name_of);

TEST(print_flags, Are_none_when_the_variable_is_unset) {
    vask_object object;
    EXPECT_EQ(vask_object::print_flags, 0U);
}

TEST(print_flags, Are_only_ever_added) {
    setenv("VASK_MSG_FLAGS", "T", 1);
    vask_object::set_print_msg_level_flags();
    setenv("VASK_MSG_FLAGS", "A", 1);
    vask_object::set_print_msg_level_flags();
    EXPECT_EQ(vask_object::print_flags,
              static_cast<unsigned int>(VASK_P_FLAG_TIME | VASK_P_FLAG_ADDR));
    unsetenv("VASK_MSG_FLAGS");
    vask_object::set_print_msg_level_flags();
    EXPECT_EQ(vask_object::print_flags,
              static_cast<unsigned int>(VASK_P_FLAG_TIME | VASK_P_FLAG_ADDR));
}

TEST(print_settings, Are_read_by_the_first_object) {
    setenv("VASK_MSG_LV", "WARN", 1);
    setenv("VASK_MSG_FLAGS", "A", 1);
    vask_object object;
    EXPECT_EQ(vask_object::print_msg_level, VASK_P_WARN);
    EXPECT_EQ(vask_object::print_flags, static_cast<unsigned int>(VASK_P_FLAG_ADDR));
}

TEST(print_settings, Are_read_by_the_first_static_message_even_if_it_is_suppressed) {
    setenv("VASK_MSG_LV", "WARN", 1);
    setenv("VASK_MSG_FLAGS", "A", 1);
    log_catcher log;
    vask_object::vask_p("vask", VASK_P_DBG, "quiet\n");
    EXPECT_EQ(vask_object::print_msg_level, VASK_P_WARN);
    EXPECT_EQ(vask_object::print_flags, static_cast<unsigned int>(VASK_P_FLAG_ADDR));
    EXPECT_EQ(log.text(), "");
}

TEST(print_settings, Are_not_read_by_a_message_of_an_object) {
    vask_object object;
    setenv("VASK_MSG_LV", "DBG", 1);
    vask_object::print_msg_level = -1;
    log_catcher log;
    object.vask_p(VASK_P_EMERG, "quiet\n");
    EXPECT_EQ(vask_object::print_msg_level, -1);
    EXPECT_EQ(log.text(), "");
    vask_object::print_msg_level = VASK_P_INFO;
}

TEST(print_settings, Are_read_again_only_when_that_is_asked_for) {
    setenv("VASK_MSG_LV", "ERR", 1);
    vask_object first;
    setenv("VASK_MSG_LV", "DBG", 1);
    setenv("VASK_MSG_FLAGS", "T", 1);
    log_catcher log;
    vask_object second;
    vask_object::vask_p("vask", VASK_P_WARN, "quiet\n");
    second.vask_p(VASK_P_WARN, "quiet\n");
    EXPECT_EQ(vask_object::print_msg_level, VASK_P_ERR);
    EXPECT_EQ(vask_object::print_flags, 0U);
    EXPECT_EQ(log.text(), "");

    vask_object::set_print_msg_level();
    EXPECT_EQ(vask_object::print_msg_level, VASK_P_DBG);
    EXPECT_EQ(vask_object::print_flags, static_cast<unsigned int>(VASK_P_FLAG_TIME));
}

TEST(print_settings, Are_not_changed_in_the_environment) {
    setenv("VASK_MSG_LV", "8", 1);
    setenv("VASK_MSG_FLAGS", "TA", 1);
    log_catcher log;
    vask_object::set_print_msg_level();
    EXPECT_STREQ(getenv("VASK_MSG_LV"), "8");
    EXPECT_STREQ(getenv("VASK_MSG_FLAGS"), "TA");
    EXPECT_EQ(getenv("VASK_SYSLOG"), nullptr);
}

TEST(print_level, Can_be_read_without_the_flags_and_the_flags_without_the_level) {
    setenv("VASK_MSG_LV", "ERR", 1);
    setenv("VASK_MSG_FLAGS", "T", 1);
    vask_object::set_print_msg_level_level();
    EXPECT_EQ(vask_object::print_flags, 0U);
    setenv("VASK_MSG_LV", "DBG", 1);
    vask_object::set_print_msg_level_flags();
    EXPECT_EQ(vask_object::print_msg_level, VASK_P_ERR);
}
