// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_DEMANGLED_H
#define VASK_TEST_DEMANGLED_H

#include <cxxabi.h>

#include <cstdlib>
#include <string>

namespace vask_test {

/** The name of a function as it is written; another symbol's as it is. */
inline std::string demangled(const char* symbol) {
    int status = 0;
    char* text = abi::__cxa_demangle(symbol, nullptr, nullptr, &status);
    const std::string name = status == 0 ? text : symbol;
    std::free(text);
    return name;
}

}  // namespace vask_test

#endif
