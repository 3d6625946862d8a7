// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "skip_list.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

namespace vask_test {

namespace {

using reasons = std::map<std::string, std::string>;  // by the name of the test

reasons read_list(const char* path) {
    std::ifstream file(path);
    if (!file) {
        std::fprintf(stderr, "No list of tests to skip: %s\n", path);
        std::exit(EXIT_FAILURE);
    }
    reasons result;
    for (std::string line; std::getline(file, line);) {
        const std::string::size_type end = line.find(": ");
        if (end != std::string::npos && line[0] != '#') {
            result[line.substr(0, end)] = line.substr(end + 2);
        }
    }
    return result;
}

std::string leave_out(const std::string& filter, const std::string& name) {
    return filter + (filter.find('-') == std::string::npos ? "-" : ":") + name;
}

}  // namespace

void skip_listed_tests() {
    const char* path = std::getenv("VASK_TEST_SKIP_LIST");
    if (!path) {
        return;
    }
    const std::string wanted = GTEST_FLAG_GET(filter);
    std::string filter = wanted;
    for (const auto& [name, reason] : read_list(path)) {
        filter = leave_out(filter, name);
        // As the runner names them, one at a time; with any other filter it may be one of them.
        if (wanted == name) {
            std::printf("[  SKIPPED ] %s: %s\n", name.c_str(), reason.c_str());
        }
    }
    GTEST_FLAG_SET(filter, filter);
}

}  // namespace vask_test
