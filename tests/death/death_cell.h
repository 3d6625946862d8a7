// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_DEATH_CELL_H
#define VASK_TEST_DEATH_CELL_H

#include <string>
#include <vector>

#include "death/scenes.h"

namespace vask_test {

/** One fault at one step of one operation. */
struct cell {
    const operation* of = nullptr;
    fail_point point;
    fault wanted = fault::none;
};

struct verdict {
    /** What has become of the operation, in a word or two. */
    std::string text;
    /** The invariants that do not hold, or what else was wrong; empty if all is well. */
    std::string complaint;
    /** All is well but for the time that something has taken. */
    bool is_only_late = false;
};

/** An operation without a fault: its steps, and what its process has afterwards. */
struct recording {
    std::vector<fail_point> steps;
    std::string resources;
    std::string complaint;
};

/** How long a victim is stopped; and in haste, when a lock is broken sooner. */
constexpr double stop_sec = 6;
constexpr double short_stop_sec = 1;

/** Runs cells, many at a time, each in a world of its own. */
class cell_runner {
public:
    /** @param haste  divides the time that all wait for semaphores; above 1, stops are short */
    cell_runner(int parallel, int haste) : m_parallel(parallel), m_haste(haste) {}

    recording record(const operation& of) const;
    /** In their order. */
    std::vector<verdict> run(const std::vector<cell>& cells, const recording& normal) const;

private:
    const int m_parallel;
    const int m_haste;
};

/** Whether this process may make worlds. */
bool can_run_cells();

}  // namespace vask_test

#endif
