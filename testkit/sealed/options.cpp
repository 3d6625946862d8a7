// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "options.h"

#include <fnmatch.h>
#include <getopt.h>

#include <cmath>
#include <cstdlib>
#include <utility>

namespace vask_test {

const char usage_text[] =
    "usage: vask-sealed [--bus] [--display] [--timeout SECONDS] [--may-leave KIND[:PATTERN]]...\n"
    "                   [--keep] [--] PROGRAM [ARGUMENT]...\n"
    "       vask-sealed --enter PID [--] [PROGRAM [ARGUMENT]...]\n"
    "       vask-sealed --tell | --help | --version\n"
    "\n"
    "Runs a program in a world of its own and fails it for what it leaves behind there.\n"
    "KIND is one of processes, descriptors, shared-objects, semaphores and bus-names.\n";

namespace {

constexpr std::pair<leftover_kind, const char*> kinds[] = {
    {leftover_kind::process, "processes"},
    {leftover_kind::descriptor, "descriptors"},
    {leftover_kind::shared_object, "shared-objects"},
    {leftover_kind::semaphore, "semaphores"},
    {leftover_kind::bus_name, "bus-names"},
};

bool add_allowance(const std::string& text, std::vector<allowance>* list) {
    const std::size_t colon = text.find(':');
    const std::string name = text.substr(0, colon);
    for (const auto& kind : kinds) {
        if (name == kind.second) {
            list->push_back(
                {kind.first, colon == std::string::npos ? "*" : text.substr(colon + 1)});
            return true;
        }
    }
    return false;
}

bool parse_number(const char* text, double* number) {
    char* end = nullptr;
    *number = std::strtod(text, &end);
    return end != text && *end == '\0' && std::isfinite(*number) && *number > 0;
}

bool parse_process(const char* text, pid_t* process) {
    double number = 0;
    if (!parse_number(text, &number) || number > 4194304) {
        return false;
    }
    *process = static_cast<pid_t>(number);
    return *process == number;
}

bool apply(int option, const char* argument, options* result) {
    switch (option) {
        case 'b':
            return result->bus = true;
        case 'd':
            return result->display = true;
        case 'k':
            return result->keeps_failed_world = true;
        case 'T':
            return result->tells_of_world = true;
        case 'h':
            return result->shows_help = true;
        case 'v':
            return result->shows_version = true;
        case 't':
            return parse_number(argument, &result->timeout_seconds);
        case 'm':
            return add_allowance(argument, &result->may_leave);
        case 'e':
            return parse_process(argument, &result->world_to_enter);
        default:
            return false;
    }
}

}  // namespace

const char* plural_of(leftover_kind kind) {
    for (const auto& known : kinds) {
        if (known.first == kind) {
            return known.second;
        }
    }
    return "";
}

bool options::may_be_left(leftover_kind kind, const std::string& what) const {
    for (const allowance& allowed : may_leave) {
        if (allowed.kind == kind && fnmatch(allowed.pattern.c_str(), what.c_str(), 0) == 0) {
            return true;
        }
    }
    return false;
}

bool options::may_all_be_left(leftover_kind kind) const {
    for (const allowance& allowed : may_leave) {
        if (allowed.kind == kind && allowed.pattern == "*") {
            return true;
        }
    }
    return false;
}

bool parse(int argc, char** argv, options* result) {
    static const option known[] = {
        {"bus", no_argument, nullptr, 'b'},
        {"display", no_argument, nullptr, 'd'},
        {"timeout", required_argument, nullptr, 't'},
        {"may-leave", required_argument, nullptr, 'm'},
        {"keep", no_argument, nullptr, 'k'},
        {"enter", required_argument, nullptr, 'e'},
        {"tell", no_argument, nullptr, 'T'},
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'v'},
        {},
    };
    // "+": what follows the program belongs to it.
    for (int option; (option = getopt_long(argc, argv, "+", known, nullptr)) >= 0;) {
        if (!apply(option, optarg, result)) {
            return false;
        }
    }
    result->command.assign(argv + optind, argv + argc);
    if (result->shows_help || result->shows_version || result->world_to_enter > 0) {
        return true;
    }
    return result->command.empty() == result->tells_of_world;
}

}  // namespace vask_test
