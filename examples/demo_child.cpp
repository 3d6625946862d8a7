// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The child of the demonstration: what an application on vask_child looks like.

#include <glib.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vask_child.h>
#include <vask_shared_info.h>

#include <string>

#include "demo_picture.h"
#include "demo_protocol.h"
#include "window_painter.h"

namespace {

class demo_child : public vask_child {
public:
    demo_child(int argc, char** argv) : vask_child("demo_child", argc, argv) {
        // The handlers are in place before run() serves the first call, so that no command of the
        // parent can come too early.
        add_cmd_handler(DEMO_CMD_GREET, static_cast<cmd_handler>(&demo_child::greet));
        add_cmd_handler(DEMO_CMD_RING, static_cast<cmd_handler>(&demo_child::ring));
        add_cmd_handler(DEMO_CMD_CRASH, static_cast<cmd_handler>(&demo_child::crash));
        add_cmd_handler(DEMO_CMD_NOTE, static_cast<cmd_handler>(&demo_child::note));
        add_cmd_handler(DEMO_CMD_DIARY, static_cast<cmd_handler>(&demo_child::tell_diary));
        add_cmd_handler(DEMO_CMD_QUIT, static_cast<cmd_handler>(&demo_child::quit));
        if (!m_painter.has_display()) {
            say("I have no display and cannot paint; commands work all the same");
        }
        if (get_monitor_rotation() != VASK_MONITOR_ROTATION_ERROR) {
            m_monitor_timer = g_timeout_add(20, follow_monitor, this);
        }
        // Tools find the child under its name; its process id, as the key, tells it from its twin.
        store_pid_to_shm(static_cast<unsigned long>(getpid()));
    }

    ~demo_child() override {
        if (m_monitor_timer != 0) {
            g_source_remove(m_monitor_timer);
        }
    }

    void set_window(int x, int y, int w, int h, unsigned int id) override {
        vask_child::set_window(x, y, w, h, id);
        // The parent names the same window again whenever it has to be repainted.
        const bool is_new = id != m_window;
        m_window = id;
        const bool painted = paint();
        if (!is_new) {
            return;
        }
        const std::string size = std::to_string(w) + "x" + std::to_string(h);
        add_to_diary(painted ? "a window of " + size : "a window that is gone");
    }

private:
    bool paint() {
        m_turns = demo_picture::turns_of_monitor();
        return m_painter.paint(m_window, getpid(), m_turns);
    }

    // Nobody tells that the monitor was turned; to look costs no more than a few nanoseconds.
    static gboolean follow_monitor(gpointer user_data) {
        auto child = static_cast<demo_child*>(user_data);
        if (child->m_window != 0 && demo_picture::turns_of_monitor() != child->m_turns) {
            child->paint();
        }
        return G_SOURCE_CONTINUE;
    }

    // A reply has to stay valid after its handler has returned: it is kept in the object.
    bool reply_with(const std::string& text, const char** reply) {
        m_reply = text;
        *reply = m_reply.c_str();
        return true;
    }

    bool greet(const char* name, const char** reply) {
        say(std::string("I am asked to greet ") + name);
        return reply_with(
            std::string("Hello ") + name + ", I am process " + std::to_string(getpid()), reply);
    }

    bool ring(const char* text, const char**) {
        say(std::string("I raise the signal: ") + text);
        emit_signal(DEMO_SIG_RANG, text);
        return true;
    }

    bool crash(const char*, const char**) {
        say("I crash now");
        const rlimit no_core_file = {0, 0};
        setrlimit(RLIMIT_CORE, &no_core_file);
        abort();
    }

    bool note(const char* text, const char**) {
        add_to_diary(text);
        return true;
    }

    bool tell_diary(const char*, const char** reply) { return reply_with(m_diary, reply); }

    bool quit(const char*, const char** reply) {
        say("I leave my main loop");
        app_quit_request(EXIT_SUCCESS);
        return reply_with("goodbye from process " + std::to_string(getpid()), reply);
    }

    void add_to_diary(const std::string& entry) {
        say("I note: " + entry);
        m_diary += (m_diary.empty() ? "" : "; ") + entry;
    }

    static void say(const std::string& text) {
        printf("      child %d: %s\n", getpid(), text.c_str());
        fflush(stdout);
    }

    window_painter m_painter;
    unsigned int m_window = 0;
    int m_turns = 0;
    unsigned int m_monitor_timer = 0;
    std::string m_diary;
    std::string m_reply;
};

}  // namespace

int main(int argc, char** argv) {
    // A parent that is killed cannot end its children any more.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    return demo_child(argc, argv).run();
}
