// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Plays random programs on the library's classes until one fails or the time is over. A program
// that fails is shrunk and printed as a test.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "life_process.h"
#include "shrink.h"

using namespace vask_test;

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int shrinking_sec = 180;
constexpr std::size_t printed_output = 20000;

unsigned int any_seed() {
    const char* given = std::getenv("VASK_TEST_LIVES_SEED");
    return given ? static_cast<unsigned int>(std::strtoul(given, nullptr, 10))
                 : std::random_device{}();
}

struct options {
    unsigned int seed = any_seed();
    double seconds = 120;
    std::string program;
};

bool parse(int argc, char** argv, options* wanted) {
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--seed") {
            wanted->seed = static_cast<unsigned int>(std::strtoul(argv[i + 1], nullptr, 10));
        } else if (option == "--seconds") {
            wanted->seconds = std::strtod(argv[i + 1], nullptr);
        } else if (option == "--play") {
            wanted->program = argv[i + 1];
        } else {
            return false;
        }
    }
    return argc % 2 == 1;
}

double seconds_since(clock_type::time_point begin) {
    return std::chrono::duration<double>(clock_type::now() - begin).count();
}

void print(const life_end& end) {
    const std::size_t size = std::min(end.output.size(), printed_output);
    std::printf("%s\n%s\n", end.output.substr(end.output.size() - size).c_str(), end.fault.c_str());
    std::fflush(stdout);
}

int play(const std::string& text) {
    const life_end end = live(program_of(text));
    if (!end.fault.empty()) {
        print(end);
    }
    return end.fault.empty() ? 0 : 1;
}

// What depends on the moment is given a second try.
void print_smallest(const program& steps, const life_end& first, unsigned int seed) {
    const auto begin = clock_type::now();
    const program smallest = shrunk(steps, [&](const program& candidate) {
        for (int i = 0; i < 2 && seconds_since(begin) < shrinking_sec; ++i) {
            if (live(candidate).fault == first.fault) {
                return true;
            }
        }
        return false;
    });
    const life_end last = live(smallest);
    print(last.fault.empty() ? first : last);
    std::printf(
        "\n"
        "In tests/lives/found_lives_test.cpp:\n\n"
        "TEST(found_life, Of_seed_%u) {\n"
        "    EXPECT_EQ(fault_of(\"%s\"), \"\");\n"
        "}\n",
        seed, text_of(smallest).c_str());
}

int live_for(double seconds, unsigned int first_seed) {
    const auto begin = clock_type::now();
    unsigned int seed = first_seed;
    for (; seconds_since(begin) < seconds; ++seed) {
        std::mt19937 dice(seed);
        const program steps = random_program(dice);
        const life_end end = live(steps);
        if (!end.fault.empty()) {
            std::printf("seed %u: %s\n%s\n", seed, end.fault.c_str(), text_of(steps).c_str());
            std::fflush(stdout);
            print_smallest(steps, end, seed);
            return 1;
        }
    }
    std::printf("%u lives in %.0f s, from seed %u on\n", seed - first_seed, seconds_since(begin),
                first_seed);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    options wanted;
    if (!parse(argc, argv, &wanted)) {
        std::fprintf(stderr, "usage: lives [--seed N] [--seconds N] [--play PROGRAM]\n");
        return 2;
    }
    if (!wanted.program.empty()) {
        return play(wanted.program);
    }
    std::printf("seed %u\n", wanted.seed);
    std::fflush(stdout);
    return live_for(wanted.seconds, wanted.seed);
}
