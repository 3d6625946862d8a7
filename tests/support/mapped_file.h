// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_MAPPED_FILE_H
#define VASK_TEST_MAPPED_FILE_H

#include <fstream>
#include <iterator>
#include <string>

namespace vask_test {

/** Whether this process maps the file of that path, or a removed one that had it. */
inline bool is_file_mapped(const std::string& path) {
    std::ifstream maps("/proc/self/maps");
    const std::string text{std::istreambuf_iterator<char>(maps), {}};
    return text.find(path) != std::string::npos;
}

}  // namespace vask_test

#endif
