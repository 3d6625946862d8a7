// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SEALED_BUS_NAMES_H
#define VASK_TEST_SEALED_BUS_NAMES_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace vask_test {

/** A well-known name that a process has on a bus. */
struct owned_name {
    std::string name;
    pid_t owner;
};

/** All of them but the bus's own; none when the bus does not answer. */
std::vector<owned_name> list_bus_names(const std::string& address);

}  // namespace vask_test

#endif
