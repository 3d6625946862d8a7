// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/child_report.h"

#include <sstream>

const char child_report_program[] = VASK_TEST_PROGRAM_DIR "/foundation_child_report";

std::vector<std::string> reported(const std::string& output, const std::string& heading) {
    const std::string begin = heading + ": ";
    std::vector<std::string> result;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, begin.size(), begin) == 0) {
            result.push_back(line.substr(begin.size()));
        }
    }
    return result;
}

std::string reported_signal(const std::string& output, int signal) {
    const std::vector<std::string> lines = reported(output, "signal " + std::to_string(signal));
    return lines.empty() ? "no report" : lines.front();
}
