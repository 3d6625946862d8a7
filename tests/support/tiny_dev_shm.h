// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_TINY_DEV_SHM_H
#define VASK_TEST_TINY_DEV_SHM_H

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "support/private_mounts.h"

namespace vask_test {

/**
 * Gives this process a /dev/shm of a few pages, for good. An ordinary user gets it in a user
 * namespace, in which his own ids are mapped: without them he could make no file there. False where
 * that is not permitted.
 */
inline bool enter_tiny_dev_shm(int pages) {
    const uid_t user = getuid();
    const gid_t group = getgid();
    if (unshare(CLONE_NEWNS) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
            return false;
        }
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1";
        std::ofstream("/proc/self/gid_map") << group << ' ' << group << " 1";
    }
    const std::string options = "mode=1777,size=" + std::to_string(pages * sysconf(_SC_PAGESIZE));
    return hide_mounts() && mount("tmpfs", "/dev/shm", "tmpfs", 0, options.c_str()) == 0;
}

}  // namespace vask_test

#endif
