// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SEALED_OPEN_DESCRIPTORS_H
#define VASK_TEST_SEALED_OPEN_DESCRIPTORS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace vask_test {

/** A descriptor of another process: its number, and what it leads to. */
struct open_descriptor {
    int number;
    std::string target;
};

/**
 * The descriptors of a process that somebody should have closed. What the libraries below keep
 * until the end is left out: the standard ones, the wake-ups of main contexts, sources of random
 * numbers, the socket of the system's log, connections to the servers given, and the script that
 * a shell runs.
 *
 * False when the process does not show them.
 */
bool list_open_descriptors(pid_t process, const std::vector<pid_t>& servers,
                           std::vector<open_descriptor>* list);

}  // namespace vask_test

#endif
