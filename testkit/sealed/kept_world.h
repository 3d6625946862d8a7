// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SEALED_KEPT_WORLD_H
#define VASK_TEST_SEALED_KEPT_WORLD_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace vask_test {

/** Lays out in the directory, which becomes this process's own, what enter_world() needs. Returns
 *  "" or what did not work. */
std::string offer_world(const std::string& directory);

/** Runs a command, or a shell if there is none, in the world that the process has offered. Returns
 *  its status. */
int enter_world(pid_t keeper, std::vector<std::string> command);

}  // namespace vask_test

#endif
