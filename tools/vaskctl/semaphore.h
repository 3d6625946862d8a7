// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_SEMAPHORE_H
#define VASKCTL_SEMAPHORE_H

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "finding.h"
#include "process_table.h"
#include "shared_file.h"
#include "system_view.h"

namespace vaskctl {

// A named semaphore, read from its file: it is neither opened nor mapped, so that nothing in it can
// end the tool, and nobody sees the tool among its users.
class semaphore {
public:
    explicit semaphore(const std::string& name);

    const shared_file& file() const { return m_file; }

    // Nothing for one that cannot be read or is none.
    std::optional<int> value() const;

    // Why it is none, or empty.
    std::string damage() const;

private:
    const shared_file m_file;
};

// What is known about the holder of a semaphore whose value is 0.
struct sem_evidence {
    verdict its_verdict;
    std::string text;
    std::set<int> users;
};

// Finds out whether the holder of a semaphore lives. It is dead when nobody has the semaphore
// mapped, or everybody who has sleeps in the wait for it; seen twice, a while apart, with the same
// semaphore at 0 all the time. Takes a second at most, and a moment for one that is free.
//
// What this cannot see: users outside of this /proc, and a process that waits for itself.
sem_evidence examine(const semaphore& examined, const process_table& processes);

// Adds a semaphore to a finding.
void judge_semaphore(const std::string& name, const system_view& system, finding& found);

}  // namespace vaskctl

#endif
