// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_FILE_TEXT_H
#define VASK_TEST_FILE_TEXT_H

#include <cstdio>
#include <string>

namespace vask_test {

/** What can be read of a file, such as one of a process that may end meanwhile; "" without it. */
inline std::string file_text(const std::string& path) {
    std::string text;
    // Not a stream: these throw when the process ends between opening and reading.
    std::FILE* file = std::fopen(path.c_str(), "re");
    if (!file) {
        return text;
    }
    char buffer[4096];
    std::size_t length;
    while ((length = std::fread(buffer, 1, sizeof buffer, file)) > 0) {
        text.append(buffer, length);
    }
    std::fclose(file);
    return text;
}

}  // namespace vask_test

#endif
