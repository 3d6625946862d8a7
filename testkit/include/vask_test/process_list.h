// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_PROCESS_LIST_H
#define VASK_TEST_PROCESS_LIST_H

/**
 * @file
 * Which processes there are.
 * @since 2.0
 */

#include <sys/types.h>

#include <string>
#include <vector>

namespace vask_test {

/** A process as /proc shows it. */
struct process_entry {
    pid_t pid = 0;        ///< its id
    pid_t parent = 0;     ///< its parent's id
    char state = '?';     ///< R running, S sleeping, Z ended and not waited for, ...
    std::string command;  ///< its command line, or its name in parentheses
};

/** @return all processes that /proc shows, in no particular order */
std::vector<process_entry> list_processes();

/** Children of a process, their children, and so on.
 *  @param ancestor the process, which is not among them
 *  @return the processes, in no particular order */
std::vector<process_entry> list_descendants(pid_t ancestor);

/** @return the daemon of a test's own bus, or 0: it was started by the same process as the test
 *          itself, as vask-sealed does */
pid_t bus_daemon();

/** Where in the kernel a process waits.
 *  @param pid of the process
 *  @return what the kernel tells, which may be nothing */
std::string kernel_position(pid_t pid);

/** @param process any @return "17 S (child of 16) sleep 100" */
std::string describe(const process_entry& process);

}  // namespace vask_test

#endif
