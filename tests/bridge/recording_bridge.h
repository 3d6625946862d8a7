// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_RECORDING_BRIDGE_H
#define VASK_TEST_RECORDING_BRIDGE_H

#include <glib.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "programs/bridge_child_commands.h"
#include "vask_app_bridge.h"
#include "vask_test/main_loop.h"

namespace vask_test {

constexpr const char* bridge_child_program = VASK_TEST_PROGRAM_DIR "/bridge_child";

struct child_end {
    bool crashed;
    bool is_main;
};

inline bool operator==(const child_end& a, const child_end& b) {
    return a.crashed == b.crashed && a.is_main == b.is_main;
}

inline void PrintTo(const child_end& end, std::ostream* out) {
    *out << (end.crashed ? "crash" : "exit") << (end.is_main ? " of the main worker" : "");
}

constexpr child_end main_worker_exit = {false, true};
constexpr child_end main_worker_crash = {true, true};
constexpr child_end other_worker_exit = {false, false};
constexpr child_end other_worker_crash = {true, false};

/** A bridge that remembers what it was told, and lets tests see the inside. */
class recording_bridge : public vask_app_bridge {
public:
    explicit recording_bridge(bool no_bus_watch = false, const char* name = "bridge")
        : vask_app_bridge(name, no_bus_watch) {}

    std::vector<child_end> ends;
    std::vector<std::pair<int, std::string>> signals;

    using vask_app_bridge::m_auto_send_type;
    using vask_app_bridge::m_base_uri;
    using vask_app_bridge::m_bus_connection;
    using vask_app_bridge::m_bus_daemon_proxy;
    using vask_app_bridge::m_child_proxy;
    using vask_app_bridge::m_child_sig_cbs;
    using vask_app_bridge::m_main_worker_index;
    using vask_app_bridge::m_twins_mode;
    using vask_app_bridge::m_window_data_sent_count;

    void child_exit_cb(bool is_main) override {
        ends.push_back({false, is_main});
        vask_app_bridge::child_exit_cb(is_main);
    }

    void child_crash_cb(bool is_main) override {
        ends.push_back({true, is_main});
        vask_app_bridge::child_crash_cb(is_main);
    }

    void child_signal(int signal_id, const char* data) override {
        signals.emplace_back(signal_id, data);
        vask_app_bridge::child_signal(signal_id, data);
    }

    /** Starts bridge_child with these arguments. */
    bool spawn_child(std::initializer_list<std::string> arguments = {}, strlist envs = {}) {
        strlist argv(arguments);
        argv.push_front(bridge_child_program);
        return spawn(argv, envs);
    }

    /** Runs the main loop until every worker is on the bus. */
    bool wait_until_met() {
        return wait_until([this] {
            int met = 0;
            for (vask_child_proxy* worker : m_child_proxy) {
                if (worker != nullptr && worker->get_bus_addr() == nullptr) {
                    return false;
                }
                met += worker != nullptr ? 1 : 0;
            }
            return met > 0;
        });
    }

    bool spawn_and_meet(std::initializer_list<std::string> arguments = {}) {
        spawn_child(arguments);
        return wait_until_met();
    }

    /** The same; what the child does on the bus when it starts is over as well. */
    bool spawn_and_settle() { return spawn_and_meet() && ask(CHILD_ECHO, "settled") == "settled"; }

    /** Runs the main loop until that many workers have ended since the bridge was made. */
    bool wait_for_ends(std::size_t count) {
        return wait_until([this, count] { return ends.size() >= count; });
    }

    bool wait_for_signals(std::size_t count) {
        return wait_until([this, count] { return signals.size() >= count; });
    }

    /** The reply of the main worker; fails the test without one. */
    std::string ask(int id, const std::string& argument = "") {
        char* reply = nullptr;
        if (!send_cmd(id, &reply, argument.c_str(), nullptr)) {
            ADD_FAILURE() << "command " << id << " failed";
            return "";
        }
        const std::string text = reply != nullptr ? reply : "";
        g_free(reply);
        return text;
    }

    /** What the main worker has received so far. */
    std::vector<std::string> journal() {
        std::vector<std::string> lines;
        std::istringstream text(ask(CHILD_REPORT_JOURNAL));
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    /** The well-known bus name of the main worker. */
    std::string child_name() const {
        return "com.example.vask.Child_" + std::to_string(get_child_pid());
    }
};

}  // namespace vask_test

#endif
