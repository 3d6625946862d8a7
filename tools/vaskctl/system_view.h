// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_SYSTEM_VIEW_H
#define VASKCTL_SYSTEM_VIEW_H

#include "mapping_table.h"
#include "process_table.h"

namespace vaskctl {

// All processes and what they have mapped, read once: with hundreds of processes that is what takes
// time.
struct system_view {
    process_table processes;
    mapping_table mappings;
};

}  // namespace vaskctl

#endif
