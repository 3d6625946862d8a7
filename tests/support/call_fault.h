// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_CALL_FAULT_H
#define VASK_TEST_CALL_FAULT_H

#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace vask_test {

/** Whether a descriptor belongs to an object whose path contains this text. */
inline bool leads_to(int fd, const char* part) {
    char link[64];
    char target[PATH_MAX];
    snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
    const ssize_t length = readlink(link, target, sizeof(target) - 1);
    if (length < 0) {
        return false;
    }
    target[length] = '\0';
    return strstr(target, part) != nullptr;
}

/** The interposed call that a test wants to fail, by its name. */
struct call_fault {
    std::string failing_call;
    int failing_error = 12;

    /** Sets errno when the call is the one. */
    bool fails(const char* call) const {
        if (failing_call != call) {
            return false;
        }
        errno = failing_error;
        return true;
    }

    /** The same for a call on a descriptor, which has to lead to such an object. */
    bool fails_on(const char* call, int fd, const char* part) const {
        return failing_call == call && leads_to(fd, part) && fails(call);
    }
};

}  // namespace vask_test

#endif
