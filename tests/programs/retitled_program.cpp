// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// retitled_program TITLE: writes the title over its own argv[0], as daemons do that show what they
// are at, says "retitled", and stays.

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    const std::string title = argv[1];
    if (title.size() > strlen(argv[0])) {
        return 2;
    }
    memset(argv[0], 0, strlen(argv[0]));
    memcpy(argv[0], title.data(), title.size());
    puts("retitled");
    fflush(stdout);
    for (;;) {
        pause();
    }
}
