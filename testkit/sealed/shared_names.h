// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SEALED_SHARED_NAMES_H
#define VASK_TEST_SEALED_SHARED_NAMES_H

#include <string>
#include <vector>

#include "options.h"
#include "vask_test/process_list.h"

namespace vask_test {

/** Something that outlives the processes that share it. */
struct shared_thing {
    leftover_kind kind;
    std::string name;  // "/dev/shm/NAME", "System V segment ID", "System V semaphores ID"
    int id;            // of System V, otherwise -1
};

bool operator<(const shared_thing& a, const shared_thing& b);

enum class owners { this_user, everybody };

/** Sorted. */
std::vector<shared_thing> list_shared_things(owners whose);

/** Whether it has or maps the file; of a segment that is attached, whether it was the one that has
 *  made it or has used it last. Nobody can tell of semaphores of System V. */
bool is_used_by(const process_entry& process, const shared_thing& thing);

void remove(const shared_thing& thing);

}  // namespace vask_test

#endif
