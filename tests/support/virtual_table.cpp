// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "virtual_table.h"

#include <dlfcn.h>

#include "demangled.h"

namespace vask_test {

namespace {

/** The function in a slot, or "" where the functions end. */
std::string function_in(slot address) {
    Dl_info info;
    if (dladdr(address, &info) == 0 || !info.dli_sname || info.dli_saddr != address) {
        return "";
    }
    return demangled(info.dli_sname);
}

}  // namespace

// What lies behind the functions shows where they end.
__attribute__((no_sanitize("address"))) std::vector<std::string> functions_from(const slot* table) {
    std::vector<std::string> names;
    for (std::string name; !(name = function_in(*table)).empty(); ++table) {
        names.push_back(name);
    }
    return names;
}

}  // namespace vask_test
