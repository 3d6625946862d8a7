// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_REPAIR_H
#define VASKCTL_REPAIR_H

#include <string>
#include <vector>

#include "finding.h"
#include "process_table.h"

namespace vaskctl {

// What can be done about one object.
struct repair_plan {
    std::string object;
    std::vector<std::string> evidence;
    std::vector<std::string> steps;      // what is going to be done; empty for nothing
    std::vector<std::string> remaining;  // what nobody but a person can do, or know
};

repair_plan plan_repair(const finding& found);

// Does it, unless the evidence does not hold any more: it is looked at again with the object in
// hand. Throws a complaint that says why nothing was done. Gives what was done.
std::vector<std::string> carry_out(const repair_plan& plan, const process_table& processes);

}  // namespace vaskctl

#endif
