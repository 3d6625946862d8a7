// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_PRIVATE_WORLD_H
#define VASK_TEST_PRIVATE_WORLD_H

#include <string>

namespace vask_test {

/** Inside the private world: sockets and logs of the servers, runtime and temporary directory. */
constexpr const char* private_directory = "/tmp/.sealed";

/**
 * Moves the calling process into namespaces of its own, with an empty /dev/shm and a /tmp that
 * shares only the directories (and the given program) with the machine's. The next child becomes
 * process 1 of the new world. Returns "" or what did not work.
 */
std::string enter_private_world(const std::string& program);

/** To be called by process 1 of the new world. Returns "" or what did not work. */
std::string mount_private_proc();

/** Creates the directory and points the environment into it, away from the machine. */
void seal_environment(const std::string& directory);

}  // namespace vask_test

#endif
