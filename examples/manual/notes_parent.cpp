// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <stdio.h>
#include <vask_app_bridge.h>

#include "notes.h"

class notes_bridge : public vask_app_bridge {
public:
    explicit notes_bridge(const char* program)
        : vask_app_bridge("notes_parent", false), m_program(program) {
        set_child_sig_cb(NOTES_ADDED, static_cast<child_sig_cb>(&notes_bridge::note_added));
        set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_CHANGED);
        set_window(0, 0, 640, 480, 42);  // only saved: it goes out when the child is met
    }

    void start_child() {
        init_proxy();  // a bridge stops watching the bus once it has met its child
        strlist command = {m_program}, additional_variables;
        spawn(command, additional_variables);
        send_cmd_no_reply(NOTES_ADD, "milk");  // queued until the child is met
    }

    void child_crash_cb(bool) override {
        puts("the child has crashed");
        if (++m_crashes < 3) {
            start_child();
        }
    }

    void child_exit_cb(bool) override { puts("the child has ended as it was asked to"); }

private:
    void note_added(const char* note) {
        std::string argument, reply;
        if (send_cmd(NOTES_COUNT, reply, argument)) {
            printf("%s noted, %s in all\n", note, reply.c_str());
        }
        if (m_crashes == 0) {
            send_cmd_no_reply(NOTES_BREAK, "");
        } else {
            terminate_worker();
        }
    }

    const std::string m_program;
    int m_crashes = 0;
};

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    notes_bridge bridge(argv[1]);
    if (!bridge.is_watching_bus()) {
        fputs("\nThere is no session bus: run this by dbus-run-session.\n", stderr);
        return 1;
    }
    bridge.start_child();
    while (bridge.get_child_pid() > 0) {
        g_main_context_iteration(nullptr, TRUE);
    }
    return 0;
}
