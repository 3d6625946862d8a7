// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "support/open_app.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const log_line invalid_index = line("ERR", "app", "arg_iter: index is invalid");

/** The cursor stands on the first of the three arguments. */
class argument_iterator : public testing::Test {
protected:
    argument_iterator() { app.arg_iter_begin(); }

    open_app app{command_line{"program", "one", "two", "three"}};
    log_catcher log;
};

class number_arguments : public testing::Test {
protected:
    int as_int(const std::string& text) { return open(text).arg_iter_get_int(0); }
    unsigned int as_hex(const std::string& text) { return open(text).arg_iter_get_uint_hex(0); }

    log_catcher log;

private:
    struct app_at_first_argument : open_app {
        explicit app_at_first_argument(const std::string& text)
            : open_app(command_line{"program", text}) {
            arg_iter_begin();
        }
    };
    app_at_first_argument open(const std::string& text) { return app_at_first_argument(text); }
};

}  // namespace

TEST_F(argument_iterator, Visits_the_arguments_without_the_program_name) {
    std::vector<std::string> visited;
    for (app.arg_iter_begin(); !app.arg_iter_end(); app.arg_iter_inc(1)) {
        visited.push_back(app.arg_iter_elem());
    }
    EXPECT_THAT(visited, ElementsAre("one", "two", "three"));
    EXPECT_EQ(app.get_arg_num(), 3);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(argument_iterator, Is_at_its_end_only_behind_the_last_argument) {
    app.arg_iter_inc(2);
    EXPECT_FALSE(app.arg_iter_end());
    app.arg_iter_inc(1);
    EXPECT_TRUE(app.arg_iter_end());
    app.arg_iter_inc(1);
    EXPECT_TRUE(app.arg_iter_end());
}

TEST_F(argument_iterator, Moves_backwards_too) {
    app.arg_iter_inc(2);
    app.arg_iter_inc(-1);
    EXPECT_EQ(app.arg_iter_elem(), "two");
}

TEST_F(argument_iterator, Begins_anew) {
    app.arg_iter_inc(2);
    app.arg_iter_begin();
    EXPECT_EQ(app.arg_iter_elem(), "one");
}

TEST_F(argument_iterator, Counts_the_arguments_behind_the_cursor) {
    EXPECT_EQ(app.arg_iter_num_rest(), 2);
    app.arg_iter_inc(2);
    EXPECT_EQ(app.arg_iter_num_rest(), 0);
    app.arg_iter_inc(1);
    EXPECT_EQ(app.arg_iter_num_rest(), -1);
    app.arg_iter_inc(-4);
    EXPECT_EQ(app.arg_iter_num_rest(), 3);
}

TEST_F(argument_iterator, Gives_out_the_argument_itself) {
    app.arg_iter_elem() = "changed";
    EXPECT_STREQ(app.arg_iter_get_char_p(0), "changed");
}

TEST_F(argument_iterator, Keeps_copies_of_the_command_line) {
    std::string first = "first";
    char* argv[] = {nullptr, &first[0], nullptr};
    open_app copying(2, argv);
    first = "later";
    argv[1] = nullptr;
    copying.arg_iter_begin();
    EXPECT_EQ(copying.arg_iter_elem(), "first");
}

TEST_F(argument_iterator, Has_getters_that_do_not_move_the_cursor) {
    app.arg_iter_elem();
    app.arg_iter_get_int(1);
    app.arg_iter_get_char_p(2);
    app.arg_iter_get_uint_hex(1);
    EXPECT_EQ(app.m_arg_index, 0);
}

TEST_F(argument_iterator, Has_getters_that_count_from_the_cursor) {
    app.arg_iter_inc(1);
    EXPECT_STREQ(app.arg_iter_get_char_p(-1), "one");
    EXPECT_STREQ(app.arg_iter_get_char_p(0), "two");
    EXPECT_STREQ(app.arg_iter_get_char_p(1), "three");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(argument_iterator, Tests_an_index_against_the_number_of_arguments) {
    EXPECT_TRUE(app.arg_iter_chk_idx(0, true));
    EXPECT_TRUE(app.arg_iter_chk_idx(2, true));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_FALSE(app.arg_iter_chk_idx(3, true));
    EXPECT_THAT(log.lines(), ElementsAre(invalid_index));
}

TEST_F(argument_iterator, Tests_silently_on_request) {
    EXPECT_FALSE(app.arg_iter_chk_idx(3, false));
    EXPECT_FALSE(app.arg_iter_chk_idx(INT_MAX, false));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(argument_iterator, Takes_a_negative_index_for_the_cursor) {
    EXPECT_TRUE(app.arg_iter_chk_idx(-1, true));
    EXPECT_TRUE(app.arg_iter_chk_idx(INT_MIN, true));
    app.arg_iter_inc(3);
    EXPECT_FALSE(app.arg_iter_chk_idx(-1, true));
    EXPECT_FALSE(app.arg_iter_chk_idx(INT_MIN, false));
    EXPECT_THAT(log.lines(), ElementsAre(invalid_index));
}

TEST_F(argument_iterator, Tests_only_the_upper_bound) {
    app.arg_iter_inc(-1);
    EXPECT_TRUE(app.arg_iter_chk_idx(-1, true));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(argument_iterator, Gives_failure_values_behind_the_last_argument) {
    app.arg_iter_inc(3);
    EXPECT_EQ(app.arg_iter_elem(), "");
    EXPECT_EQ(app.arg_iter_get_int(0), 0);
    EXPECT_EQ(app.arg_iter_get_char_p(0), nullptr);
    EXPECT_EQ(app.arg_iter_get_uint_hex(0), 0u);
    EXPECT_THAT(log.lines(),
                ElementsAre(invalid_index, invalid_index, invalid_index, invalid_index));
}

TEST_F(argument_iterator, Gives_failure_values_for_an_offset_that_leads_out) {
    EXPECT_EQ(app.arg_iter_get_int(3), 0);
    EXPECT_EQ(app.arg_iter_get_char_p(3), nullptr);
    EXPECT_EQ(app.arg_iter_get_uint_hex(3), 0u);
    EXPECT_THAT(log.lines(), ElementsAre(invalid_index, invalid_index, invalid_index));
}

TEST_F(argument_iterator, Gives_failure_values_for_a_negative_index_that_passes_the_test) {
    EXPECT_EQ(app.arg_iter_get_int(-1), 0);
    EXPECT_EQ(app.arg_iter_get_char_p(-1), nullptr);
    EXPECT_EQ(app.arg_iter_get_uint_hex(-1), 0u);
    app.arg_iter_inc(-1);
    EXPECT_EQ(app.arg_iter_elem(), "");
    EXPECT_EQ(app.arg_iter_get_int(0), 0);
    EXPECT_EQ(app.arg_iter_get_char_p(0), nullptr);
    EXPECT_EQ(app.arg_iter_get_uint_hex(0), 0u);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(argument_iterator, Complains_about_a_negative_index_while_the_cursor_is_out_of_range) {
    app.arg_iter_inc(3);
    EXPECT_EQ(app.arg_iter_get_int(-4), 0);
    EXPECT_EQ(app.arg_iter_get_char_p(-4), nullptr);
    EXPECT_EQ(app.arg_iter_get_uint_hex(-4), 0u);
    EXPECT_THAT(log.lines(), ElementsAre(invalid_index, invalid_index, invalid_index));
}

TEST_F(argument_iterator, Reaches_arguments_again_from_before_the_first) {
    app.arg_iter_inc(-2);
    EXPECT_STREQ(app.arg_iter_get_char_p(2), "one");
    EXPECT_FALSE(app.arg_iter_end());
    app.arg_iter_inc(2);
    EXPECT_EQ(app.arg_iter_elem(), "one");
}

TEST_F(argument_iterator, Stays_behind_the_end_however_far_it_is_moved_forward) {
    app.arg_iter_inc(INT_MAX);
    app.arg_iter_inc(INT_MAX);
    EXPECT_TRUE(app.arg_iter_end());
    EXPECT_LT(app.arg_iter_num_rest(), -1);
    EXPECT_FALSE(app.arg_iter_chk_idx(-1, false));
    EXPECT_EQ(app.arg_iter_elem(), "");
    EXPECT_EQ(app.arg_iter_get_char_p(INT_MAX), nullptr);
    EXPECT_EQ(app.arg_iter_get_int(INT_MAX), 0);
    EXPECT_EQ(app.arg_iter_get_uint_hex(INT_MAX), 0u);
}

TEST_F(argument_iterator, Stays_before_the_first_argument_however_far_it_is_moved_back) {
    app.arg_iter_inc(INT_MIN);
    app.arg_iter_inc(INT_MIN);
    EXPECT_FALSE(app.arg_iter_end());
    EXPECT_GT(app.arg_iter_num_rest(), 2);
    EXPECT_EQ(app.arg_iter_elem(), "");
    EXPECT_EQ(app.arg_iter_get_char_p(INT_MIN), nullptr);
    EXPECT_EQ(app.arg_iter_get_int(INT_MIN), 0);
    EXPECT_EQ(app.arg_iter_get_uint_hex(INT_MIN), 0u);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(argument_iterator, Gives_out_an_empty_element_whatever_was_written_to_it) {
    app.arg_iter_inc(3);
    std::string& element = app.arg_iter_elem();
    element = "written by a caller";
    EXPECT_EQ(app.arg_iter_elem(), "");
    EXPECT_EQ(&app.arg_iter_elem(), &element);
}

TEST_F(argument_iterator, Requires_a_number_of_arguments_behind_the_cursor) {
    EXPECT_TRUE(app.arg_iter_chk_num_rest(2, "too few\n"));
    EXPECT_TRUE(app.arg_iter_chk_num_rest(0, "too few\n"));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_FALSE(app.arg_iter_chk_num_rest(3, "too few\n"));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "app", "too few")));
}

TEST_F(argument_iterator, Compares_the_required_number_with_its_sign) {
    app.arg_iter_inc(3);
    EXPECT_TRUE(app.arg_iter_chk_num_rest(-1, "too few\n"));
    EXPECT_FALSE(app.arg_iter_chk_num_rest(0, "too few\n"));
}

TEST_F(argument_iterator, Takes_the_message_for_the_format) {
    EXPECT_FALSE(app.arg_iter_chk_num_rest(9, "100%% too few\n"));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "app", "100% too few")));
}

TEST_F(argument_iterator, Fails_silently_without_a_message) {
    EXPECT_FALSE(app.arg_iter_chk_num_rest(9, nullptr));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(argument_iterator, Leaves_the_application_alone_when_arguments_are_missing) {
    app.arg_iter_inc(1);
    EXPECT_FALSE(app.arg_iter_chk_num_rest(2, "one more, please\n"));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "app", "one more, please")));
    EXPECT_FALSE(app.init_failed());
}

TEST_F(argument_iterator, Makes_run_fail_when_missing_arguments_are_fatal) {
    app.set_arg_error_fatal(true);
    app.arg_iter_inc(1);
    EXPECT_FALSE(app.arg_iter_chk_num_rest(2, "one more, please\n"));
    EXPECT_TRUE(app.init_failed());
    EXPECT_EQ(app.run(), 1);
    EXPECT_EQ(app.m_main_loop, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "app", "one more, please")));
}

TEST_F(argument_iterator, Is_fatal_without_a_message_too) {
    app.set_arg_error_fatal(true);
    EXPECT_FALSE(app.arg_iter_chk_num_rest(9, nullptr));
    EXPECT_TRUE(app.init_failed());
}

TEST_F(argument_iterator, Is_fatal_only_for_arguments_that_are_missing) {
    app.set_arg_error_fatal(true);
    EXPECT_TRUE(app.arg_iter_chk_num_rest(2, "too few\n"));
    EXPECT_FALSE(app.arg_iter_chk_idx(9, false));
    EXPECT_EQ(app.arg_iter_get_char_p(9), nullptr);
    EXPECT_FALSE(app.init_failed());
}

TEST_F(argument_iterator, Can_be_made_harmless_again) {
    app.set_arg_error_fatal(true);
    app.set_arg_error_fatal(false);
    EXPECT_FALSE(app.arg_iter_chk_num_rest(9, nullptr));
    EXPECT_FALSE(app.init_failed());
}

TEST(no_arguments, Are_an_iterator_at_its_end) {
    open_app app(command_line{"program"});
    log_catcher log;
    app.arg_iter_begin();
    EXPECT_EQ(app.get_arg_num(), 0);
    EXPECT_TRUE(app.arg_iter_end());
    EXPECT_EQ(app.arg_iter_num_rest(), -1);
    EXPECT_EQ(app.arg_iter_elem(), "");
    EXPECT_THAT(log.lines(), ElementsAre(invalid_index));
}

TEST(no_arguments, Are_what_an_empty_command_line_gives) {
    char* argv[] = {nullptr};
    open_app app(0, argv);
    app.arg_iter_begin();
    EXPECT_EQ(app.get_arg_num(), 0);
    EXPECT_TRUE(app.arg_iter_end());
    EXPECT_EQ(app.arg_iter_num_rest(), -1);
    EXPECT_FALSE(app.m_no_sys_init);
}

TEST(no_arguments, Are_what_no_command_line_at_all_gives) {
    open_app app(0, nullptr);
    EXPECT_EQ(app.get_arg_num(), 0);
    EXPECT_FALSE(app.m_no_sys_init);
}

TEST_F(number_arguments, Are_read_up_to_the_first_other_character) {
    EXPECT_EQ(as_int("12abc"), 12);
    EXPECT_EQ(as_int(" -7"), -7);
    EXPECT_EQ(as_int("0x10"), 0);
}

TEST_F(number_arguments, Are_zero_without_a_number) {
    EXPECT_EQ(as_int("abc"), 0);
    EXPECT_EQ(as_int(""), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(number_arguments, Are_truncated_to_int) {
    if (sizeof(long) == sizeof(int)) {
        GTEST_SKIP() << "nothing to truncate";
    }
    EXPECT_EQ(as_int("4294967301"), 5);
    EXPECT_EQ(as_int("2147483648"), INT_MIN);
}

TEST_F(number_arguments, Stop_at_the_limits_of_long) {
    EXPECT_EQ(as_int("99999999999999999999"), static_cast<int>(LONG_MAX));
    EXPECT_EQ(as_int("-99999999999999999999"), static_cast<int>(LONG_MIN));
}

TEST_F(number_arguments, Are_hexadecimal_with_and_without_prefix) {
    EXPECT_EQ(as_hex("ff"), 255u);
    EXPECT_EQ(as_hex("0x1A"), 26u);
    EXPECT_EQ(as_hex("FFFFFFFF"), UINT_MAX);
    EXPECT_EQ(as_hex("1fzz"), 31u);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(number_arguments, Are_complained_about_when_they_are_not_hexadecimal) {
    EXPECT_EQ(as_hex("zz"), 0u);
    EXPECT_EQ(as_hex(""), 0u);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "app", "Failed to convert hexadecimal form 'zz'"),
                            line("ERR", "app", "Failed to convert hexadecimal form ''")));
}
