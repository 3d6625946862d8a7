// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <limits.h>
#include <spawn.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "target.h"
#include "vask_app_bridge.h"

using vask_fuzz::input;
using vask_fuzz::require;

namespace {

// No process has it, so nobody is waited for or asked to end.
constexpr pid_t pid_of_child = 5000001;

std::vector<std::string> given_arguments;
std::vector<std::string> given_environment;

std::vector<std::string> copy_of(char* const* texts) {
    std::vector<std::string> copies;
    for (; *texts != nullptr; ++texts) {
        copies.emplace_back(*texts);
    }
    return copies;
}

std::string nest_level_below(const char* own) {
    const long level = own != nullptr ? strtol(own, nullptr, 10) : 0;
    const long below = std::clamp<long>(level, INT_MIN, INT_MAX - 1) + 1;
    return "VASK_NEST_LV=" + std::to_string(below);
}

}  // namespace

extern "C" int posix_spawn(pid_t* pid, const char*, const posix_spawn_file_actions_t*,
                           const posix_spawnattr_t*, char* const* argv, char* const* envp) {
    given_arguments = copy_of(argv);
    given_environment = copy_of(envp);
    *pid = pid_of_child;
    return 0;
}

void set_up_target() {
    vask_fuzz::output_of_library::discard();
}

// The parent's level, a variable of the parent, one for the child, and the child's arguments.
void run_target(input& input) {
    clearenv();
    if (input.flag()) {
        setenv("VASK_NEST_LV", input.text().c_str(), 1);
    }
    const std::string expected_level = nest_level_below(getenv("VASK_NEST_LV"));
    const std::string value = input.text();
    setenv("PARENT", value.c_str(), 1);
    strlist additions = {"CHILD=" + input.text()};
    strlist arguments = {"/program"};
    while (input.has_more()) {
        arguments.push_back(input.text());
    }

    vask_app_bridge bridge("parent", true);
    bridge.spawn(arguments, additions);

    const std::vector<std::string> expected_arguments(arguments.begin(), arguments.end());
    require(given_arguments == expected_arguments, "a child gets the arguments that were given");
    const std::vector<std::string> expected_environment = {"PARENT=" + value, additions.front(),
                                                           expected_level};
    require(given_environment == expected_environment,
            "a child gets its parent's environment, what was added, and a level more");
}
