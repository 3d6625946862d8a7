// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Runs a command as in a container that allows no namespaces and no mounts.

#include <errno.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <initializer_list>

#include "support/refused_call.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s COMMAND [ARGUMENT...]\n", argv[0]);
        return 2;
    }
    for (const long call : {SYS_unshare, SYS_mount}) {
        if (!vask_test::refuse_system_call(call, EPERM)) {
            perror("prctl");
            return 1;
        }
    }
    execvp(argv[1], argv + 1);
    perror(argv[1]);
    return 127;
}
