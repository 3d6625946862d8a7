// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_PROCESS_TRACER_H
#define VASK_TEST_PROCESS_TRACER_H

#include <functional>
#include <iosfwd>

/** Processes that an action made, by the kernel's own account. */
struct new_processes {
    int with_copied_memory = 0;
    int with_shared_memory = 0;
    int threads = 0;
};

bool operator==(const new_processes& a, const new_processes& b);
void PrintTo(const new_processes& made, std::ostream* out);

/**
 * Runs the action in a forked child under trace and counts what it makes.
 *
 * @return false if the right to trace is missing
 */
bool trace_new_processes(const std::function<void()>& action, new_processes* made);

#endif
