// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <vask_app_bridge.h>
#include <vask_child.h>

class child : public vask_child {
public:
    child(int argc, char** argv) : vask_child("child", argc, argv) {}

    bool command(int, const char*, const char**) override {
        emit_signal(1, "late");
        return true;
    }
};

class parent : public vask_app_bridge {
public:
    parent() : vask_app_bridge("parent", false) {}

    void child_signal(int, const char* text) override {
        puts(text);
        terminate_worker();
    }
};

int main(int argc, char** argv) {
    if (argc > 1) {
        child its_child(argc, argv);
        its_child.emit_signal(1, "early");
        raise(SIGSTOP);  // the parent goes on only now
        return its_child.run();
    }
    parent bridge;
    if (!bridge.is_watching_bus()) {
        fputs("\nThere is no session bus: run this by dbus-run-session.\n", stderr);
        return 1;
    }
    strlist command = {argv[0], "as a child"}, no_variables;
    bridge.spawn(command, no_variables);
    waitpid(bridge.get_child_pid(), nullptr, WUNTRACED);
    kill(bridge.get_child_pid(), SIGCONT);
    bridge.send_cmd_no_reply(1, "");  // queued until the two have met
    while (bridge.get_child_pid() > 0) {
        g_main_context_iteration(nullptr, TRUE);
    }
}
