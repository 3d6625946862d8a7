// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <stdio.h>
#include <vask_app_bridge.h>

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    vask_app_bridge bridge("hello_parent", false);
    if (!bridge.is_watching_bus()) {
        fputs("\nThere is no session bus: run this by dbus-run-session.\n", stderr);
        return 1;
    }
    strlist command = {argv[1]}, no_variables;
    bridge.spawn(command, no_variables);
    while (bridge.get_child_pid() > 0 && bridge.get_child_bus_addr() == nullptr) {
        g_main_context_iteration(nullptr, TRUE);
    }
    std::string name = "world", reply;
    if (!bridge.send_cmd(1, reply, name)) {
        return 1;
    }
    puts(reply.c_str());
    return 0;
}
