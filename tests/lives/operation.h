// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_OPERATION_H
#define VASK_TEST_OPERATION_H

#include <random>
#include <string>
#include <vector>

namespace vask_test {

/**
 * One step of a random program: what to do, to which object of its kind, and a number whose meaning
 * is the step's own. A step that makes no sense where it stands does nothing, so that any part of a
 * program is a program.
 */
struct operation {
    std::string name;
    int slot = 0;
    int value = 0;
};

using program = std::vector<operation>;

/** "spawn 0 3; loop 0 10" */
std::string text_of(const program& steps);

/** The other way round. Ends the process when the text is none. */
program program_of(const std::string& text);

/** Any program, the same for the same state of the dice. */
program random_program(std::mt19937& dice);

}  // namespace vask_test

#endif
