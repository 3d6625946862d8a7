// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "support/source_line.h"
#include "vask_object.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Beyond 7-bit characters, where a char may be negative.
const char every_byte_above_127[] = "\x80\xA0\xC3\xFF";

}  // namespace

TEST(strip, Leaves_out_every_occurrence_of_the_character) {
    EXPECT_EQ(vask_object::strip("a-b-c", '-', ""), "abc");
    EXPECT_EQ(vask_object::strip("--a--", '-', ""), "a");
}

TEST(strip, Leaves_out_the_characters_of_the_set_as_well) {
    EXPECT_EQ(vask_object::strip("a-b-c", '-', "ab"), "c");
    EXPECT_EQ(vask_object::strip(" a\tb\r\n", ' ', "\t\r\n"), "ab");
}

TEST(strip, With_a_zero_character_leaves_out_the_set_alone) {
    EXPECT_EQ(vask_object::strip("a-b-c", '\0', ""), "a-b-c");
    EXPECT_EQ(vask_object::strip("a-b-c", '\0', "b"), "a--c");
}

TEST(strip, Of_nothing_or_of_dropped_characters_alone_is_empty) {
    EXPECT_EQ(vask_object::strip("", '-', "ab"), "");
    EXPECT_EQ(vask_object::strip("abba", '\0', "ab"), "");
}

TEST(strip, Takes_bytes_above_127_like_any_other) {
    EXPECT_EQ(vask_object::strip("a\xFF\xC3z", '\xFF', ""), "a\xC3z");
    EXPECT_EQ(vask_object::strip("a\x80\xFF\xA0z\xC3", 'a', every_byte_above_127), "z");
}

TEST(is_number, Is_true_for_decimal_digits) {
    EXPECT_TRUE(vask_object::is_number("0123456789"));
    EXPECT_TRUE(vask_object::is_number("00"));
    EXPECT_TRUE(vask_object::is_number(std::string(1000, '9').c_str()));
}

TEST(is_number, Is_true_for_the_empty_text) {
    EXPECT_TRUE(vask_object::is_number(""));
}

TEST(is_number, Is_false_for_anything_else) {
    for (const char* text :
         {"-1", "+1", "1.0", " 1", "1 ", "1\n", "0x1", "1e3", "a", "/", ":", "\xB2", "\xD9\xA1"}) {
        EXPECT_FALSE(vask_object::is_number(text)) << text;
    }
}

TEST(split, Gives_the_pieces_in_order_without_empty_ones) {
    EXPECT_THAT(vask_object::split(",a,,b,", ',', ""), ElementsAre("a", "b"));
    EXPECT_THAT(vask_object::split("one,two,three", ',', ""), ElementsAre("one", "two", "three"));
}

TEST(split, Separates_by_every_character_of_the_set_too) {
    EXPECT_THAT(vask_object::split("x y\tz", ' ', "\t"), ElementsAre("x", "y", "z"));
    EXPECT_THAT(vask_object::split("a;b:c,d", ',', ";:"), ElementsAre("a", "b", "c", "d"));
}

TEST(split, Gives_the_whole_text_when_nothing_separates_it) {
    EXPECT_THAT(vask_object::split("x y", ',', ""), ElementsAre("x y"));
}

TEST(split, Gives_nothing_for_an_empty_text_or_separators_alone) {
    EXPECT_THAT(vask_object::split("", ',', ""), IsEmpty());
    EXPECT_THAT(vask_object::split(",;,;", ',', ";"), IsEmpty());
}

TEST(split, Takes_bytes_above_127_like_any_other) {
    EXPECT_THAT(vask_object::split("a\xFF\x62\xC3\x80z", '\xFF', "\x80"),
                ElementsAre("a", "b\xC3", "z"));
    EXPECT_THAT(vask_object::split(every_byte_above_127, ',', ""),
                ElementsAre(every_byte_above_127));
}

TEST(split_first, Cuts_at_the_first_delimiter_only) {
    EXPECT_THAT(vask_object::split_first("key=value", '=', ""), ElementsAre("key", "value"));
    EXPECT_THAT(vask_object::split_first("key=a=b", '=', ""), ElementsAre("key", "a=b"));
}

TEST(split_first, May_give_empty_halves) {
    EXPECT_THAT(vask_object::split_first("=v", '=', ""), ElementsAre("", "v"));
    EXPECT_THAT(vask_object::split_first("k=", '=', ""), ElementsAre("k", ""));
    EXPECT_THAT(vask_object::split_first("=", '=', ""), ElementsAre("", ""));
}

TEST(split_first, Gives_one_element_without_a_delimiter) {
    EXPECT_THAT(vask_object::split_first("novalue", '=', ""), ElementsAre("novalue"));
    EXPECT_THAT(vask_object::split_first("", '=', ""), ElementsAre(""));
    EXPECT_THAT(vask_object::split_first(" \t", '=', " \t"), ElementsAre(""));
}

TEST(split_first, Removes_the_set_before_it_looks_for_the_delimiter) {
    EXPECT_THAT(vask_object::split_first(" key = a b\n", '=', " \n"), ElementsAre("key", "ab"));
    EXPECT_THAT(vask_object::split_first("k=v", '=', "="), ElementsAre("kv"));
}

TEST(valid_ip_addr, Is_four_numbers_up_to_255) {
    EXPECT_TRUE(vask_object::valid_ip_addr("192.168.0.1"));
    EXPECT_TRUE(vask_object::valid_ip_addr("0.0.0.0"));
    EXPECT_TRUE(vask_object::valid_ip_addr("255.255.255.255"));
    EXPECT_TRUE(vask_object::valid_ip_addr("001.0010.000000255.4"));
}

TEST(valid_ip_addr, Is_false_for_a_number_above_255) {
    EXPECT_FALSE(vask_object::valid_ip_addr("256.1.1.1"));
    EXPECT_FALSE(vask_object::valid_ip_addr("1.1.1.1000"));
}

TEST(valid_ip_addr, Is_false_for_another_count_of_pieces) {
    for (const char* text : {"", "1", "1.2.3", "1.2.3.4.5", "..."}) {
        EXPECT_FALSE(vask_object::valid_ip_addr(text)) << text;
    }
}

TEST(valid_ip_addr, Is_false_for_a_piece_that_is_no_number) {
    for (const char* text : {"a.b.c.d", " 1.2.3.4", "1.2.3.4 ", "1.-2.3.4", "1.+2.3.4", "0x1.2.3.4",
                             "1,2.3.4", "1.2.3.4:80"}) {
        EXPECT_FALSE(vask_object::valid_ip_addr(text)) << text;
    }
}

TEST(valid_ip_addr, Skips_empty_pieces) {
    EXPECT_TRUE(vask_object::valid_ip_addr("1..2.3.4"));
    EXPECT_TRUE(vask_object::valid_ip_addr(".1.2.3.4."));
}

TEST(valid_ip_addr, Takes_line_ends_and_tabs_for_dots) {
    EXPECT_TRUE(vask_object::valid_ip_addr("1.2.3.4\n"));
    EXPECT_TRUE(vask_object::valid_ip_addr("1.2.3.4\r\n"));
    EXPECT_TRUE(vask_object::valid_ip_addr("1\t2\r3\n4"));
}

TEST(valid_ip_addr, Looks_at_the_lower_32_bits_of_a_number) {
    if (sizeof(long) == 8) {
        EXPECT_TRUE(vask_object::valid_ip_addr("4294967297.0.0.1"));
    }
    EXPECT_FALSE(vask_object::valid_ip_addr("4294967295.0.0.1"));
}

TEST(calc_ge_pow2, Is_the_smallest_power_that_is_not_below_the_number) {
    EXPECT_EQ(vask_object::calc_ge_pow2(2), 2U);
    EXPECT_EQ(vask_object::calc_ge_pow2(3), 4U);
    EXPECT_EQ(vask_object::calc_ge_pow2(5), 8U);
    EXPECT_EQ(vask_object::calc_ge_pow2(64), 64U);
    EXPECT_EQ(vask_object::calc_ge_pow2(65), 128U);
}

TEST(calc_ge_pow2, Is_1_for_0_and_1) {
    EXPECT_EQ(vask_object::calc_ge_pow2(0), 1U);
    EXPECT_EQ(vask_object::calc_ge_pow2(1), 1U);
}

TEST(calc_ge_pow2, Reaches_up_to_the_31st_power) {
    log_catcher log;
    EXPECT_EQ(vask_object::calc_ge_pow2(1073741825U), 2147483648U);
    EXPECT_EQ(vask_object::calc_ge_pow2(2147483647U), 2147483648U);
    EXPECT_EQ(vask_object::calc_ge_pow2(2147483648U), 2147483648U);
    EXPECT_EQ(log.text(), "");
}

TEST(calc_ge_pow2, Is_0_and_logged_for_a_number_above_the_highest_power) {
    log_catcher log;
    EXPECT_EQ(vask_object::calc_ge_pow2(2147483649U), 0U);
    EXPECT_EQ(vask_object::calc_ge_pow2(UINT_MAX), 0U);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            logged("ERR", "vask",
                   from_line_of("vask_object_text", "Failed to calculate for 2147483649")),
            logged("ERR", "vask",
                   from_line_of("vask_object_text", "Failed to calculate for 4294967295"))));
}
