// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <sstream>

#include "bridge/lifecycle_support.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;

namespace {

class bridge_environment : public lifecycle_fixture {
protected:
    bridge_environment() : bridge(true) {
        vask_object::print_msg_level = VASK_P_ERR;
        while (environ[0] != nullptr) {
            unsetenv(std::string(environ[0], strcspn(environ[0], "=")).c_str());
        }
    }

    /** What a program prints that is run as a child. */
    std::string output_of(strlist argv, strlist envs) {
        log.clear();
        const std::size_t count = bridge.ends.size() + 1;
        bridge.spawn(argv, envs);
        EXPECT_TRUE(bridge.wait_for_ends(count));
        return log.text();
    }

    /** The environment of a child, in its order. */
    std::vector<std::string> child_environment(const strlist& envs = {}) {
        std::vector<std::string> entries;
        std::istringstream text(output_of({"/usr/bin/env"}, envs));
        for (std::string entry; std::getline(text, entry);) {
            entries.push_back(entry);
        }
        return entries;
    }

    recording_bridge bridge;
};

struct nest_level {
    const char* own;
    const char* of_child;
};

void PrintTo(const nest_level& level, std::ostream* out) {
    *out << '"' << level.own << '"';
}

class bridge_nest_level : public bridge_environment,
                          public testing::WithParamInterface<nest_level> {};

INSTANTIATE_TEST_SUITE_P(
    all, bridge_nest_level,
    testing::Values(nest_level{"0", "1"}, nest_level{"1", "2"}, nest_level{"2", "3"},
                    nest_level{"007", "8"}, nest_level{" 4", "5"}, nest_level{"+6", "7"},
                    nest_level{"-5", "-4"}, nest_level{"-1", "0"}, nest_level{"", "1"},
                    nest_level{"many", "1"}, nest_level{"3 or so", "4"}, nest_level{"0x10", "1"},
                    nest_level{"2147483646", "2147483647"}, nest_level{"2147483647", "2147483647"},
                    nest_level{"99999999999999999999", "2147483647"},
                    nest_level{"-99999999999999999999", "-2147483647"}));

}  // namespace

TEST_F(bridge_environment, Of_a_parent_without_variables_is_the_nest_level) {
    EXPECT_THAT(child_environment(), ElementsAre("VASK_NEST_LV=1"));
}

TEST_F(bridge_environment, Has_the_variables_of_the_parent_in_their_order) {
    setenv("ZEBRA", "striped", 1);
    setenv("APE", "", 1);
    setenv("MOLE", "a=b c", 1);
    EXPECT_THAT(child_environment(),
                ElementsAre("ZEBRA=striped", "APE=", "MOLE=a=b c", "VASK_NEST_LV=1"));
}

TEST_F(bridge_environment, Has_the_additions_of_the_caller_between_the_parent_and_the_nest_level) {
    setenv("ZEBRA", "striped", 1);
    EXPECT_THAT(child_environment({"YAK=woolly", "APE=hairy"}),
                ElementsAre("ZEBRA=striped", "YAK=woolly", "APE=hairy", "VASK_NEST_LV=1"));
}

TEST_F(bridge_environment, Leaves_out_the_nest_level_of_the_parent_wherever_it_stands) {
    setenv("ZEBRA", "striped", 1);
    setenv("VASK_NEST_LV", "2", 1);
    setenv("APE", "hairy", 1);
    EXPECT_THAT(child_environment(), ElementsAre("ZEBRA=striped", "APE=hairy", "VASK_NEST_LV=3"));
}

TEST_F(bridge_environment, Passes_on_a_nest_level_of_the_caller_and_counts_from_the_parent) {
    setenv("VASK_NEST_LV", "2", 1);
    EXPECT_THAT(child_environment({"VASK_NEST_LV=9"}),
                ElementsAre("VASK_NEST_LV=9", "VASK_NEST_LV=3"));
}

TEST_F(bridge_environment, Passes_on_variables_whose_names_only_begin_like_the_nest_level) {
    setenv("VASK_NEST_LVL", "7", 1);
    setenv("VASK_NEST_L", "8", 1);
    EXPECT_THAT(child_environment(),
                ElementsAre("VASK_NEST_LVL=7", "VASK_NEST_L=8", "VASK_NEST_LV=1"));
}

TEST_F(bridge_environment, Keeps_an_addition_behind_the_variable_of_the_parent) {
    setenv("COLOUR", "red", 1);
    EXPECT_THAT(child_environment({"COLOUR=blue"}),
                ElementsAre("COLOUR=red", "COLOUR=blue", "VASK_NEST_LV=1"));
}

TEST_F(bridge_environment, Shows_C_programs_the_first_of_two_entries) {
    setenv("COLOUR", "red", 1);
    EXPECT_EQ(output_of({lifecycle_probe_program, "getenv", "COLOUR"}, {"COLOUR=blue"}), "red");
}

TEST_F(bridge_environment, Shows_C_programs_a_nest_level_of_the_caller) {
    EXPECT_EQ(output_of({lifecycle_probe_program, "getenv", "VASK_NEST_LV"}, {"VASK_NEST_LV=9"}),
              "9");
}

TEST_F(bridge_environment, Of_the_parent_stays_what_it_was) {
    setenv("VASK_NEST_LV", "2", 1);
    child_environment({"COLOUR=blue"});
    EXPECT_STREQ(getenv("VASK_NEST_LV"), "2");
    EXPECT_EQ(getenv("COLOUR"), nullptr);
}

TEST_F(bridge_environment, Is_taken_anew_for_each_child) {
    setenv("COLOUR", "red", 1);
    child_environment();
    setenv("COLOUR", "green", 1);
    EXPECT_THAT(child_environment(), ElementsAre("COLOUR=green", "VASK_NEST_LV=1"));
}

TEST_P(bridge_nest_level, Of_the_child_is_one_more) {
    setenv("VASK_NEST_LV", GetParam().own, 1);
    EXPECT_THAT(child_environment(),
                ElementsAre("VASK_NEST_LV=" + std::string(GetParam().of_child)));
}
