// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "operation.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "life.h"

namespace vask_test {

namespace {

constexpr int most_slots = 3;
constexpr int most_values = 12;
constexpr int shortest_program = 6;
constexpr int longest_program = 60;

}  // namespace

std::string text_of(const program& steps) {
    std::string text;
    for (const operation& step : steps) {
        text += (text.empty() ? "" : "; ") + step.name + " " + std::to_string(step.slot) + " " +
                std::to_string(step.value);
    }
    return text;
}

program program_of(const std::string& text) {
    program steps;
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ';');) {
        std::istringstream words(part);
        operation step;
        if (!(words >> step.name >> step.slot >> step.value) || !life::knows(step.name)) {
            std::fprintf(stderr, "no step of a program: '%s'\n", part.c_str());
            std::abort();
        }
        steps.push_back(step);
    }
    return steps;
}

program random_program(std::mt19937& dice) {
    const auto number = [&dice](int from, int to) {
        return std::uniform_int_distribution<int>(from, to)(dice);
    };
    // A program about one family at a time goes deeper; one about all of them meets more.
    const std::vector<operation_kind>& kinds = life::kinds();
    const int family = number(0, life::families());
    std::vector<double> weights;
    for (const operation_kind& kind : kinds) {
        const bool is_meant =
            family == life::families() || kind.family == family || kind.family == common_family;
        weights.push_back(is_meant ? kind.weight : 0);
    }
    std::discrete_distribution<std::size_t> any(weights.begin(), weights.end());
    program steps(static_cast<std::size_t>(number(shortest_program, longest_program)));
    for (operation& step : steps) {
        step.name = kinds[any(dice)].name;
        step.slot = number(0, most_slots - 1);
        step.value = number(0, most_values - 1);
    }
    return steps;
}

}  // namespace vask_test
