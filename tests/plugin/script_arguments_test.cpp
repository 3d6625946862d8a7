// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The test of a script's arguments by their number and types.

#include "recorded_plugin.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class argument_check : public in_browser {
protected:
    NPObject* function = browser.make_function();
    vask_script script{"script"};
};

}  // namespace

TEST_F(argument_check, Accepts_arguments_of_the_right_types) {
    script_arguments args{"text", function};
    EXPECT_TRUE(
        script.check_script_args(2, args.data(), 2, NPVariantType_String, NPVariantType_Object));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(argument_check, Knows_every_type) {
    script_arguments args{std::monostate(), script_null(), true, 1, 0.5, "text", function};
    EXPECT_TRUE(script.check_script_args(
        7, args.data(), 7, NPVariantType_Void, NPVariantType_Null, NPVariantType_Bool,
        NPVariantType_Int32, NPVariantType_Double, NPVariantType_String, NPVariantType_Object));
}

TEST_F(argument_check, Accepts_no_arguments_where_there_should_be_none) {
    EXPECT_TRUE(script.check_script_args(0, nullptr, 0));
}

TEST_F(argument_check, Refuses_too_few_arguments) {
    script_arguments args{"text"};
    EXPECT_FALSE(
        script.check_script_args(1, args.data(), 2, NPVariantType_String, NPVariantType_Object));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "script",
                                              "The number of given arguments (1) is diffrent from "
                                              "expcted one (2)")));
    EXPECT_EQ(log.text().back(), '\n');
}

TEST_F(argument_check, Refuses_too_many_arguments) {
    script_arguments args{"text", 1, 2};
    EXPECT_FALSE(script.check_script_args(3, args.data(), 1, NPVariantType_String));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "script",
                                              "The number of given arguments (3) is diffrent from "
                                              "expcted one (1)")));
}

TEST_F(argument_check, Refuses_a_wrong_type) {
    script_arguments args{1, function};
    EXPECT_FALSE(
        script.check_script_args(2, args.data(), 2, NPVariantType_String, NPVariantType_Object));
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "script",
                                 "The type of NPVariant in the 0th argument: 3 is different from "
                                 "the exptected: 5")));
    EXPECT_EQ(log.text().back(), '\n');
}

TEST_F(argument_check, Stops_at_the_first_wrong_type) {
    script_arguments args{"text", 0.5, 1};
    EXPECT_FALSE(script.check_script_args(3, args.data(), 3, NPVariantType_String,
                                          NPVariantType_Object, NPVariantType_Object));
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "script",
                                 "The type of NPVariant in the 1th argument: 4 is different from "
                                 "the exptected: 6")));
}
