// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Bridges and their children in a random program.

#include <glib.h>
#include <signal.h>

#include "life.h"
#include "programs/bridge_child_commands.h"
#include "vask_app_bridge.h"

namespace vask_test {

namespace {

constexpr int slots = 3;
constexpr int longest_meeting_msec = 3000;

class bridges;

class live_bridge : public vask_app_bridge {
public:
    live_bridge(bridges& owner, life& its_life, int slot, int flags);

    void start(int how) {
        static const strlist arguments[] = {
            {}, {}, {}, {"--exit", "3"}, {"--abort"}, {"--no-bus"}, {"--join-after-msec", "30"}};
        strlist command = {how == 11 ? "/no/such/program" : VASK_TEST_PROGRAM_DIR "/bridge_child"};
        const strlist& more = arguments[how % 7];
        command.insert(command.end(), more.begin(), more.end());
        strlist environment = {"LIFE=" + std::to_string(how)};
        spawn(command, environment);
    }

    bool is_met() const {
        return m_child_proxy[m_main_worker_index] == nullptr || get_child_bus_addr() != nullptr;
    }

    void send_signal(int number) {
        if (get_child_pid() > 0) {
            kill(get_child_pid(), number);
        }
    }

    void child_exit_cb(bool is_main) override {
        vask_app_bridge::child_exit_cb(is_main);
        m_life.react("on_exit", answers());
    }

    void child_crash_cb(bool is_main) override {
        vask_app_bridge::child_crash_cb(is_main);
        m_life.react("on_crash", answers());
    }

    void terminate_worker_impl() override {
        vask_app_bridge::terminate_worker_impl();
        m_life.react("on_request", answers());
    }

private:
    void on_signal(const char*) { m_life.react("on_signal", answers()); }

    reactions answers();

    bridges& m_owner;
    life& m_life;
    const int m_slot;
};

class bridges : public family {
public:
    static constexpr int number = 0;

    explicit bridges(life& owner) : m_life(owner) {}

    live_bridge* at(int slot) { return m_bridges[slot % slots].get(); }

    void make(int slot, int flags) {
        if (at(slot) == nullptr) {
            m_bridges[slot % slots].reset(new live_bridge(*this, m_life, slot % slots, flags));
        }
    }

    // Emptied first, so that who is called meanwhile does not find it.
    void end(int slot) {
        const std::unique_ptr<live_bridge> last = std::move(m_bridges[slot % slots]);
    }

    void end() override {
        for (int slot = 0; slot < slots; ++slot) {
            end(slot);
        }
    }

private:
    life& m_life;
    std::unique_ptr<live_bridge> m_bridges[slots];
};

live_bridge::live_bridge(bridges& owner, life& its_life, int slot, int flags)
    : vask_app_bridge("live_bridge", flags % 5 == 4),
      m_owner(owner),
      m_life(its_life),
      m_slot(slot) {
    if (flags % 3 == 0) {
        enable_twins_mode();
    }
    set_auto_send_set_window_type(static_cast<auto_send_set_window_type>(flags % 3));
    set_child_sig_cb(1, static_cast<child_sig_cb>(&live_bridge::on_signal));
}

reactions live_bridge::answers() {
    reactions possible;
    bridges& owner = m_owner;
    const int slot = m_slot;
    possible.delete_self = [&owner, slot] { owner.end(slot); };
    possible.delete_other = [&owner, slot] { owner.end(slot + 1); };
    possible.again = [&owner, slot] {
        if (owner.at(slot) != nullptr) {
            owner.at(slot)->init_proxy();
            owner.at(slot)->start(0);
        }
    };
    return possible;
}

using step = std::function<void(live_bridge&, int value)>;

// A step for a bridge that exists.
operation_kind with_bridge(const char* name, double weight, const step& what) {
    return {name, bridges::number, weight, [what](life& the, int slot, int value) {
                live_bridge* bridge = the.of<bridges>().at(slot);
                if (bridge != nullptr) {
                    what(*bridge, value);
                }
            }};
}

void ask(live_bridge& bridge, int id, const std::string& argument) {
    char* reply = nullptr;
    bridge.send_cmd(id, &reply, argument.c_str(), nullptr);
    g_free(reply);
}

// The request of a child's end may throw, to whoever asks.
void end_throws(const std::function<void()>& what) {
    try {
        what();
    } catch (...) {
    }
}

void meet(life& the, int slot) {
    const gint64 end = g_get_monotonic_time() + longest_meeting_msec * 1000;
    while (the.of<bridges>().at(slot) != nullptr && !the.of<bridges>().at(slot)->is_met() &&
           g_get_monotonic_time() < end) {
        const gint64 before = g_get_monotonic_time();
        the.loop(10);
        if (g_get_monotonic_time() - before < 1000) {
            return;
        }
    }
}

std::vector<operation_kind> life_kinds() {
    return {{"bridge", bridges::number, 12,
             [](life& the, int slot, int value) { the.of<bridges>().make(slot, value); }},
            {"delete_bridge", bridges::number, 4,
             [](life& the, int slot, int) { the.of<bridges>().end(slot); }},
            {"meet", bridges::number, 12, [](life& the, int slot, int) { meet(the, slot); }},
            with_bridge("spawn", 16, [](live_bridge& bridge, int value) { bridge.start(value); }),
            with_bridge("watch", 6, [](live_bridge& bridge, int) { bridge.init_proxy(); }),
            with_bridge("unwatch", 1,
                        [](live_bridge& bridge, int) { bridge.disconnect_name_owner_changed(); }),
            with_bridge("terminate", 5,
                        [](live_bridge& bridge, int) {
                            end_throws([&bridge] { bridge.terminate_worker(); });
                        }),
            with_bridge("terminate_all", 3,
                        [](live_bridge& bridge, int) {
                            end_throws([&bridge] { bridge.terminate_all_workers(); });
                        }),
            with_bridge("wait", 3,
                        [](live_bridge& bridge, int value) {
                            bridge.vask_wait_child_exit(static_cast<unsigned int>(1 + value * 20));
                        }),
            with_bridge("switch", 4, [](live_bridge& bridge, int) { bridge.switch_main_worker(); }),
            with_bridge("twins", 1, [](live_bridge& bridge, int) { bridge.enable_twins_mode(); }),
            with_bridge("free", 1, [](live_bridge& bridge, int) { bridge.free_child_resource(); }),
            with_bridge("kill", 5, [](live_bridge& bridge, int value) {
                bridge.send_signal(value % 2 == 0 ? SIGKILL : SIGTERM);
            })};
}

std::vector<operation_kind> traffic_kinds() {
    return {
        with_bridge("ask", 6, [](live_bridge& bridge, int) { ask(bridge, CHILD_ECHO, "life"); }),
        with_bridge("ask_badly", 2,
                    [](live_bridge& bridge, int value) {
                        const int commands[] = {
                            CHILD_FAIL,  CHILD_REPLY_NULL, CHILD_REPLY_INVALID_UTF8,
                            CHILD_ABORT, CHILD_EXIT,       bridge_child_unknown_command};
                        ask(bridge, commands[value % 6], value > 8 ? "\xff" : "3");
                    }),
        with_bridge("tell", 4,
                    [](live_bridge& bridge, int value) {
                        bridge.send_cmd_no_reply(CHILD_ECHO, value > 10 ? "\xff" : "told");
                    }),
        with_bridge("ring", 7,
                    [](live_bridge& bridge, int value) {
                        bridge.send_cmd_no_reply(CHILD_RAISE_SIGNAL, value > 9 ? "2 x" : "1 x");
                    }),
        with_bridge("ring_and_exit", 4,
                    [](live_bridge& bridge, int) {
                        bridge.send_cmd_no_reply(CHILD_RAISE_SIGNALS_AND_EXIT, "3");
                    }),
        with_bridge("quit", 3,
                    [](live_bridge& bridge, int) { bridge.send_cmd_no_reply(CHILD_QUIT, "0"); }),
        with_bridge("abort", 2,
                    [](live_bridge& bridge, int) { bridge.send_cmd_no_reply(CHILD_ABORT, ""); }),
        with_bridge("give_name_back", 1,
                    [](live_bridge& bridge, int) { ask(bridge, CHILD_RELEASE_NAME, ""); }),
        with_bridge(
            "take_name", 1,
            [](live_bridge& bridge, int) { bridge.send_cmd_no_reply(CHILD_REQUEST_NAME, ""); }),
        with_bridge("window", 4, [](live_bridge& bridge, int value) {
            bridge.set_window(value, 0, value, 10, static_cast<vask_window_id_t>(value));
        })};
}

}  // namespace

std::vector<operation_kind> bridge_kinds() {
    std::vector<operation_kind> all = life_kinds();
    const std::vector<operation_kind> traffic = traffic_kinds();
    all.insert(all.end(), traffic.begin(), traffic.end());
    return all;
}

std::unique_ptr<family> make_bridges(life& owner) {
    return std::unique_ptr<family>(new bridges(owner));
}

}  // namespace vask_test
