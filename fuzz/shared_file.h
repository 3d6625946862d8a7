// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_FUZZ_SHARED_FILE_H
#define VASK_FUZZ_SHARED_FILE_H

#include <string>

#include "target.h"

namespace vask_fuzz {

/** Puts at a name in /dev/shm what a stranger may put there: nothing, a file of any bytes, a
 * folder, a pipe or a link. What was there stays with those who have it open. */
void put_shared_file(const std::string& name, input& input);

/** Takes away what lies in /dev/shm under the library's names and the targets' own. */
void remove_shared_files();

}  // namespace vask_fuzz

#endif
