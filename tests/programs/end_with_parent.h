// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_END_WITH_PARENT_H
#define VASK_TEST_END_WITH_PARENT_H

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <fstream>
#include <string>

/** Who reaps a test's orphans: process 1 of a world of its own, elsewhere the runner itself. */
inline bool is_reaper(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    return pid == 1 || (std::getline(file, name) && name == "vask-sealed");
}

/** This process never outlives the one that has started it, not even one that has ended already. */
inline void end_with_parent() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (is_reaper(getppid())) {
        _exit(1);
    }
}

#endif
