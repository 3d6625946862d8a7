// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_VIRTUAL_TABLE_H
#define VASK_TEST_VIRTUAL_TABLE_H

#include <string>
#include <vector>

namespace vask_test {

using slot = const void*;

/** The functions from a slot up to the last one. */
std::vector<std::string> functions_from(const slot* table);

/** The functions in the first virtual table of an object of exactly this class. */
template <typename Class>
std::vector<std::string> virtual_functions(const Class& object) {
    return functions_from(*reinterpret_cast<const slot* const*>(&object));
}

}  // namespace vask_test

#endif
