// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SEALED_OPTIONS_H
#define VASK_TEST_SEALED_OPTIONS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace vask_test {

/** What a program can leave behind. */
enum class leftover_kind { process, descriptor, shared_object, semaphore, bus_name };

/** "shared-objects": what --may-leave calls it. */
const char* plural_of(leftover_kind kind);

/** Something that may be left, with a pattern of the shell for what it is. */
struct allowance {
    leftover_kind kind;
    std::string pattern;
};

struct options {
    bool bus = false;
    bool display = false;
    bool keeps_failed_world = false;
    bool tells_of_world = false;
    bool shows_help = false;
    bool shows_version = false;
    pid_t world_to_enter = 0;
    double timeout_seconds = 120;
    std::vector<allowance> may_leave;
    std::vector<std::string> command;

    bool may_be_left(leftover_kind kind, const std::string& what) const;
    /** Whatever they are. */
    bool may_all_be_left(leftover_kind kind) const;
};

/** False when the command line makes no sense. */
bool parse(int argc, char** argv, options* result);

extern const char usage_text[];

}  // namespace vask_test

#endif
