// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_PRIVATE_MOUNTS_H
#define VASK_TEST_PRIVATE_MOUNTS_H

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>

#include "vask_test/world.h"

namespace vask_test {

/** What this process mounts from now on in its mount namespace is seen by nobody else. */
inline bool hide_mounts() {
    // In a chroot the root may be no mount. A sealed world shares no mounts with the machine
    // anyway.
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 ||
           (errno == EINVAL && !is_in_open_world());
}

/** Gives this thread mounts of its own, for good. False where that is not permitted. */
inline bool enter_private_mounts() {
    return unshare(CLONE_NEWNS) == 0 && hide_mounts();
}

}  // namespace vask_test

#endif
