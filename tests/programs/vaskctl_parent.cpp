// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// vaskctl_parent [--twins] [--deaf] PROGRAM [ARGUMENT...]: a parent whose bridge starts the
// program, and which runs its main loop until it is killed. A deaf one does not run it.

#include <glib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "vask_app_bridge.h"

int main(int argc, char** argv) {
    vask_app_bridge bridge("vaskctl_parent", false);
    bool is_deaf = false;
    int first = 1;
    for (; first < argc && strncmp(argv[first], "--", 2) == 0; ++first) {
        if (strcmp(argv[first], "--twins") == 0) {
            bridge.enable_twins_mode();
        }
        is_deaf = is_deaf || strcmp(argv[first], "--deaf") == 0;
    }
    strlist command(argv + first, argv + argc);
    strlist no_variables;
    bridge.spawn(command, no_variables);
    while (is_deaf) {
        pause();
    }
    for (;;) {
        g_main_context_iteration(nullptr, TRUE);
    }
}
