// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SOURCE_LINE_H
#define VASK_TEST_SOURCE_LINE_H

#include <gmock/gmock.h>

#include <string>

/** "<unit:LINE> rest" with any line number, and nothing else around it. */
MATCHER_P2(from_line_of, unit, rest, std::string("is \"<") + unit + ":LINE> " + rest + "\"") {
    const std::string text = arg;
    const std::string begin = std::string("<") + unit + ":";
    if (text.compare(0, begin.size(), begin) != 0) {
        return false;
    }
    const size_t end = text.find_first_not_of("0123456789", begin.size());
    return end != begin.size() && end != std::string::npos &&
           text.substr(end) == std::string("> ") + rest;
}

#endif
