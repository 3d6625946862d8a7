// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A parent of a busy desktop: drives two children in twins mode and a single one, starts again who
// has died, and measures how long everything takes. Ends properly at SIGTERM.
//
// usage: soak_parent CHILD_PROGRAM

#include <glib-unix.h>
#include <signal.h>

#include <memory>
#include <random>
#include <string>

#include "demo_protocol.h"
#include "soak_report.h"
#include "vask_app_bridge.h"

namespace {

constexpr unsigned int tick_msec = 500;
constexpr unsigned int meeting_tick_msec = 50;
constexpr gint64 longest_meeting_usec = 30 * G_USEC_PER_SEC;

std::mt19937 dice{std::random_device{}()};

// True once in so many times.
bool happens(int times) {
    return std::uniform_int_distribution<int>(1, times)(dice) == 1;
}

class soak_bridge : public vask_app_bridge {
public:
    soak_bridge(const char* program, bool twins, vask_test::soak_report& report)
        : vask_app_bridge("soak_bridge", false), m_program(program), m_report(report) {
        if (twins) {
            enable_twins_mode();
        }
        set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_CHANGED);
        set_child_sig_cb(DEMO_SIG_RANG, static_cast<child_sig_cb>(&soak_bridge::on_rang));
        start();
    }

    bool is_met() const {
        for (int i = 0; i < (m_twins_mode ? 2 : 1); ++i) {
            if (m_child_proxy[i] == nullptr || m_child_proxy[i]->get_bus_addr() == nullptr) {
                return false;
            }
        }
        return true;
    }

    void look_for_meeting() {
        if (m_is_met) {
            return;
        }
        if (is_met()) {
            m_is_met = true;
            m_report.add("meeting", m_spawned);
        } else if (vask_test::soak_report::now() - m_spawned > longest_meeting_usec) {
            m_report.complain("a child was not met in 30 s");
            m_spawned = vask_test::soak_report::now();
        }
    }

    void tick() {
        if (!m_is_met) {
            return;
        }
        greet();
        if (happens(2)) {
            ring();
        }
        if (happens(4)) {
            set_window(0, 0, std::uniform_int_distribution<int>(1, 500)(dice), 100, 0);
        }
        if (m_twins_mode && happens(10)) {
            switch_main_worker();
        }
        if (happens(120)) {
            terminate_worker();
        }
    }

    void child_exit_cb(bool is_main) override {
        vask_app_bridge::child_exit_cb(is_main);
        m_is_met = false;
        start();
    }

    void child_crash_cb(bool is_main) override {
        vask_app_bridge::child_crash_cb(is_main);
        m_is_met = false;
        start();
    }

private:
    void start() {
        m_spawned = vask_test::soak_report::now();
        // After a meeting the bus is watched no longer.
        init_proxy();
        strlist command = {m_program};
        strlist no_more_variables;
        spawn(command, no_more_variables);
    }

    // A child that is killed meanwhile cannot answer; that it is told soon is measured as well.
    void greet() {
        const gint64 begin = vask_test::soak_report::now();
        const int pid = get_child_pid();
        std::string reply;
        std::string name = "soak";
        if (!send_cmd(DEMO_CMD_GREET, reply, name)) {
            m_report.add("refusal", begin);
            return;
        }
        m_report.add("command", begin);
        if (reply != "Hello soak, I am process " + std::to_string(pid)) {
            m_report.complain("wrong reply '" + reply + "' of " + std::to_string(pid));
        }
    }

    void ring() {
        const std::string now = std::to_string(vask_test::soak_report::now());
        send_cmd_no_reply(DEMO_CMD_RING, now);
    }

    void on_rang(const char* sent) { m_report.add("signal", g_ascii_strtoll(sent, nullptr, 10)); }

    const std::string m_program;
    vask_test::soak_report& m_report;
    gint64 m_spawned = 0;
    bool m_is_met = false;
};

class soak_parent {
public:
    explicit soak_parent(const char* program) : m_program(program) {
        renew(0);
        renew(1);
    }

    int run() {
        g_unix_signal_add(SIGTERM, quit, this);
        g_timeout_add(tick_msec, tick, this);
        g_timeout_add(meeting_tick_msec, tick_unmet, this);
        g_main_loop_run(m_loop);
        const gint64 begin = vask_test::soak_report::now();
        m_bridges[0].reset();
        m_bridges[1].reset();
        m_report.add("farewell", begin);
        g_main_loop_unref(m_loop);
        return 0;
    }

private:
    static gboolean quit(gpointer user_data) {
        g_main_loop_quit(static_cast<soak_parent*>(user_data)->m_loop);
        return G_SOURCE_CONTINUE;
    }

    void renew(int i) {
        m_bridges[i].reset();
        m_bridges[i].reset(new soak_bridge(m_program.c_str(), i == 0, m_report));
    }

    static gboolean tick(gpointer user_data) {
        auto self = static_cast<soak_parent*>(user_data);
        for (int i = 0; i < 2; ++i) {
            self->m_bridges[i]->tick();
            if (happens(300)) {
                self->renew(i);
            }
        }
        return G_SOURCE_CONTINUE;
    }

    // How long a meeting takes shall not depend on the pace of the rest.
    static gboolean tick_unmet(gpointer user_data) {
        auto self = static_cast<soak_parent*>(user_data);
        for (const auto& bridge : self->m_bridges) {
            bridge->look_for_meeting();
        }
        return G_SOURCE_CONTINUE;
    }

    const std::string m_program;
    GMainLoop* const m_loop = g_main_loop_new(nullptr, FALSE);
    vask_test::soak_report m_report;
    std::unique_ptr<soak_bridge> m_bridges[2];
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: soak_parent CHILD_PROGRAM\n");
        return 2;
    }
    return soak_parent(argv[1]).run();
}
