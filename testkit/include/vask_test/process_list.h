// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_PROCESS_LIST_H
#define VASK_TEST_PROCESS_LIST_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace vask_test {

struct process_entry {
    pid_t pid = 0;
    pid_t parent = 0;
    char state = '?';
    std::string command;
};

/** All processes /proc knows of, in no particular order. */
std::vector<process_entry> list_processes();

/** Children of a process, their children, and so on. */
std::vector<process_entry> list_descendants(pid_t ancestor);

/** The daemon of a test's own bus, or 0: it was started by the same process as the test itself. */
pid_t bus_daemon();

/** Where in the kernel a process waits, as far as the kernel tells; may be empty. */
std::string kernel_position(pid_t pid);

/** "17 S (child of 16) sleep 100" */
std::string describe(const process_entry& process);

}  // namespace vask_test

#endif
