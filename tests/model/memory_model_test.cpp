// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Whether the checker allows what C++ allows, shown by the usual small programs.

#include "model/memory_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::UnorderedElementsAre;

namespace {

enum location { data, flag, locations };

std::vector<std::vector<int>> executions(const std::vector<steps>& threads) {
    std::vector<std::vector<int>> result;
    for_each_execution(threads, std::vector<int>(locations, 0),
                       [&](const std::vector<int>& values) { result.push_back(values); });
    return result;
}

}  // namespace

TEST(memory_model, Lets_a_reader_see_the_flag_without_the_data_where_nothing_orders_them) {
    const steps writer = {{step::write, data, 1}, {step::write, flag, 1}};
    const steps reader = {{step::read, flag}, {step::read, data}};
    EXPECT_THAT(executions({writer, reader}),
                UnorderedElementsAre(ElementsAre(0, 0), ElementsAre(0, 1), ElementsAre(1, 0),
                                     ElementsAre(1, 1)));
}

TEST(memory_model, Needs_both_fences_to_forbid_that) {
    const steps writer = {
        {step::write, data, 1}, {step::release_fence, 0, 0, "release"}, {step::write, flag, 1}};
    const steps reader = {
        {step::read, flag}, {step::acquire_fence, 0, 0, "acquire"}, {step::read, data}};
    EXPECT_THAT(executions({writer, reader}), Not(Contains(ElementsAre(1, 0))));
    EXPECT_THAT(executions({without(writer, "release"), reader}), Contains(ElementsAre(1, 0)));
    EXPECT_THAT(executions({writer, without(reader, "acquire")}), Contains(ElementsAre(1, 0)));
}

TEST(memory_model, Needs_the_fences_at_their_places) {
    const steps early_release = {
        {step::release_fence}, {step::write, data, 1}, {step::write, flag, 1}};
    const steps late_acquire = {{step::read, flag}, {step::read, data}, {step::acquire_fence}};
    const steps writer = {{step::write, data, 1}, {step::release_fence}, {step::write, flag, 1}};
    const steps reader = {{step::read, flag}, {step::acquire_fence}, {step::read, data}};
    EXPECT_THAT(executions({early_release, reader}), Contains(ElementsAre(1, 0)));
    EXPECT_THAT(executions({writer, late_acquire}), Contains(ElementsAre(1, 0)));
}

TEST(memory_model, Orders_by_a_write_that_releases_and_a_read_that_acquires) {
    const steps writer = {{step::write, data, 1}, {step::release_write, flag, 1, "release"}};
    const steps reader = {{step::acquire_read, flag, 0, "acquire"}, {step::read, data}};
    EXPECT_THAT(executions({writer, reader}), Not(Contains(ElementsAre(1, 0))));
    EXPECT_THAT(executions({without(writer, "release"), reader}), Contains(ElementsAre(1, 0)));
    EXPECT_THAT(executions({writer, without(reader, "acquire")}), Contains(ElementsAre(1, 0)));
}

TEST(memory_model, Never_takes_back_what_one_location_has_shown) {
    const steps writer = {{step::write, data, 1}, {step::write, data, 2}};
    const steps reader = {{step::read, data}, {step::read, data}};
    EXPECT_THAT(executions({writer, reader}),
                UnorderedElementsAre(ElementsAre(0, 0), ElementsAre(0, 1), ElementsAre(0, 2),
                                     ElementsAre(1, 1), ElementsAre(1, 2), ElementsAre(2, 2)));
}

TEST(memory_model, Carries_an_order_over_a_thread_between) {
    const steps first = {{step::write, data, 1}, {step::release_write, flag, 1}};
    const steps second = {{step::acquire_read, flag}, {step::release_write, locations, 1}};
    const steps third = {{step::acquire_read, locations}, {step::read, data}};
    for_each_execution({first, second, third}, {0, 0, 0}, [](const std::vector<int>& values) {
        EXPECT_FALSE(values[0] == 1 && values[1] == 1 && values[2] == 0);
    });
}
