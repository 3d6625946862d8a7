// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Part of every test in the coverage build. A process writes its counts when it exits; here it
// writes them at the other ends at which the library has something to count.

#include <sys/syscall.h>
#include <unistd.h>

#include "support/interpose.h"

extern "C" {

void (*vask_test_write_counts)() = nullptr;

// What ran between fork and exec.
int execve(const char* path, char* const* argv, char* const* environment) noexcept {
    if (vask_test_write_counts) {
        vask_test_write_counts();
    }
    return static_cast<int>(syscall(SYS_execve, path, argv, environment));
}

void abort() noexcept {
    if (vask_test_write_counts) {
        vask_test_write_counts();
    }
    vask_test::next_function<void()>("abort")();
    _exit(1);
}

}  // extern "C"
