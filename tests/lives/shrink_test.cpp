// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "shrink.h"

#include <gmock/gmock.h>

using namespace vask_test;

namespace {

bool has(const program& steps, const std::string& name) {
    for (const operation& step : steps) {
        if (step.name == name) {
            return true;
        }
    }
    return false;
}

program example() {
    return program_of(
        "bridge 0 1; loop 2 7; spawn 1 2; loop 0 3; kill 2 4; loop 1 1; window 1 5; terminate 0 3");
}

}  // namespace

TEST(shrinking, Leaves_only_the_steps_that_are_needed) {
    const program smallest = shrunk(example(), [](const program& steps) {
        return has(steps, "spawn") && has(steps, "terminate");
    });

    EXPECT_EQ(text_of(smallest), "spawn 0 0; terminate 0 0");
}

TEST(shrinking, Keeps_numbers_that_are_needed) {
    const program smallest = shrunk(example(), [](const program& steps) {
        return text_of(steps).find("kill 2 4") != std::string::npos;
    });

    EXPECT_EQ(text_of(smallest), "kill 2 4");
}

TEST(shrinking, Keeps_a_program_of_which_everything_is_needed) {
    const std::string all = text_of(example());

    EXPECT_EQ(
        text_of(shrunk(example(), [&](const program& steps) { return text_of(steps) == all; })),
        all);
}

TEST(random_programs, Are_the_same_for_the_same_seed) {
    std::mt19937 dice(5), same_dice(5), other_dice(6);

    const std::string text = text_of(random_program(dice));

    EXPECT_EQ(text, text_of(random_program(same_dice)));
    EXPECT_NE(text, text_of(random_program(other_dice)));
    EXPECT_EQ(text, text_of(program_of(text)));
}
