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

// Most steps need an object that is at work already. By family.
const char* const beginnings[] = {
    "bridge 0 1; spawn 0 0; meet 0 0; ",
    "server 0 0; connect 0 0; connect 0 1; loop 0 6; read 0 1; read 1 1; read 2 1; ",
    "tool 0 0; ",
    "open 0 0; hold_object 0 0; ",
    "child 0 0; observe 0 0; ",
};

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
        if (part.find_first_not_of(' ') == std::string::npos) {
            continue;
        }
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
    program steps;
    if (family < life::families() && number(0, 2) > 0) {
        steps = program_of(beginnings[family]);
    }
    for (int more = number(shortest_program, longest_program); more > 0; --more) {
        const std::string& name = kinds[any(dice)].name;
        const int slot = number(0, most_slots - 1);
        steps.push_back({name, slot, number(0, most_values - 1)});
    }
    return steps;
}

}  // namespace vask_test
