// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <stdio.h>
#include <vask_app_bridge.h>

class parent : public vask_app_bridge {
public:
    parent() : vask_app_bridge("parent", true) {}
    void child_exit_cb(bool) override { puts("exit"); }
    void child_crash_cb(bool) override { puts("crash"); }
};

int main() {
    parent bridge;
    strlist command = {"/bin/true"}, no_variables;
    bridge.spawn(command, no_variables);
    while (bridge.get_child_pid() > 0) {
        g_main_context_iteration(nullptr, TRUE);
    }
}
