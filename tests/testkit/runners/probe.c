/* SPDX-FileCopyrightText: 2026 The libvask authors */
/* SPDX-License-Identifier: MIT */

/* A product's test that needs a bus, and leaves behind what its argument says. */

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

int main(int argc, char** argv) {
    const char* bus = getenv("DBUS_SESSION_BUS_ADDRESS");
    if (argc != 2 || !bus || access("/dev/null", F_OK) != 0) {
        return 3;
    }
    if (strcmp(argv[1], "process") == 0 && fork() == 0) {
        pause();
    }
    if (strcmp(argv[1], "descriptor") == 0) {
        return open("/etc/passwd", O_RDONLY) < 0;
    }
    if (strcmp(argv[1], "semaphore") == 0) {
        return open("/dev/shm/sem.probe", O_CREAT | O_WRONLY | O_CLOEXEC, 0600) < 0;
    }
    if (strcmp(argv[1], "time") == 0) {
        pause();
    }
    return strcmp(argv[1], "failure") == 0;
}
