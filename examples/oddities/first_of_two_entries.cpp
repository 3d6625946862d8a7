// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <vask_app_bridge.h>

int main(int argc, char** argv) {
    if (argc > 1) {
        return puts(getenv("COLOUR")) < 0;
    }
    setenv("COLOUR", "the parent's", 1);
    vask_app_bridge bridge("parent", true);
    strlist command = {argv[0], "as a child"}, variables = {"COLOUR=the child's"};
    bridge.spawn(command, variables);
    while (bridge.get_child_pid() > 0) {
        g_main_context_iteration(nullptr, TRUE);
    }
}
