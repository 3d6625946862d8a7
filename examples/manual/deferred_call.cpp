// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <stdio.h>
#include <vask_exec.h>

class kettle : public vask_exec {
public:
    explicit kettle(GMainLoop* loop) : m_loop(loop) {
        add_timer_exec_func(20, static_cast<vask_exec_func>(&kettle::boil), m_loop);
        add_idle_exec_func(static_cast<vask_exec_func>(&kettle::heat), nullptr);
    }

private:
    void heat(void*) { puts("heating"); }

    void boil(void* loop) {
        puts("boiling");
        g_main_loop_quit(static_cast<GMainLoop*>(loop));
    }

    GMainLoop* m_loop;
};

int main() {
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    kettle its_kettle(loop);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
}
