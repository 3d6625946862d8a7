// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <printf.h>

#include <climits>
#include <string>

#include "vask_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

using formatter = std::string (*)(const char*, ...);

class formatted_text : public testing::TestWithParam<formatter> {};

std::string name_of(const testing::TestParamInfo<formatter>& info) {
    return info.param == vask_object::vask_sprintf ? "vask_sprintf" : "vask_snprintf";
}

formatter nested = nullptr;

/** A conversion that formats another text in the middle of the first. */
int print_nested(FILE* stream, const printf_info*, const void* const*) {
    return fprintf(stream, "(%s)", nested("%s", "inner text").c_str());
}

int no_arguments(const printf_info*, size_t, int*, int*) {
    return 0;
}

// The compiler knows nothing of the conversion.
std::string format_with_nested(formatter outer, formatter inner) {
    register_printf_specifier('Y', print_nested, no_arguments);
    nested = inner;
    const char* format = "outer %s %Y text";
    return outer(format, "begin");
}

}  // namespace

TEST_P(formatted_text, Has_its_arguments_filled_in) {
    EXPECT_EQ(GetParam()("%d %s %.1f %%", 7, "text", 0.5), "7 text 0.5 %");
    EXPECT_EQ(GetParam()("%s", ""), "");
}

TEST_P(formatted_text, Of_4095_characters_is_returned_whole) {
    const std::string text(4095, 'x');
    log_catcher log;
    EXPECT_EQ(GetParam()("%s", text.c_str()), text);
    EXPECT_EQ(log.text(), "");
}

TEST_P(formatted_text, Of_exactly_4096_characters_is_refused) {
    const std::string text(4096, 'x');
    log_catcher log;
    EXPECT_EQ(GetParam()("%s", text.c_str()), "");
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "vask_snprintf", "The length of input may be too long.")));
}

TEST_P(formatted_text, Of_more_characters_is_cut_to_4095) {
    log_catcher log;
    for (const size_t length : {4097U, 5000U}) {
        const std::string text(length, 'x');
        EXPECT_EQ(GetParam()("%s", text.c_str()), std::string(4095, 'x'));
    }
    EXPECT_EQ(log.text(), "");
}

TEST_P(formatted_text, That_cannot_be_formatted_is_empty_and_logged) {
    // No encoding of the C locale has this character.
    const wchar_t unknown[] = {0x20ac, 0};
    log_catcher log;
    EXPECT_EQ(GetParam()("%ls", unknown), "");
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "vask_snprintf", "Failed to call vsnprintf")));
}

TEST_P(formatted_text, Ends_at_its_first_zero_byte) {
    EXPECT_EQ(GetParam()("a%cb", '\0'), "a");
}

TEST_P(formatted_text, Survives_the_next_one) {
    const std::string first = GetParam()("%s", "first");
    const std::string second = GetParam()("%s", "second text");
    EXPECT_EQ(first, "first");
    EXPECT_EQ(second, "second text");
}

INSTANTIATE_TEST_SUITE_P(both, formatted_text,
                         testing::Values(vask_object::vask_sprintf, vask_object::vask_snprintf),
                         name_of);

TEST(formatted_text, Can_be_made_by_one_function_while_the_other_is_at_work) {
    EXPECT_EQ(format_with_nested(vask_object::vask_sprintf, vask_object::vask_snprintf),
              "outer begin (inner text) text");
    EXPECT_EQ(format_with_nested(vask_object::vask_snprintf, vask_object::vask_sprintf),
              "outer begin (inner text) text");
}
