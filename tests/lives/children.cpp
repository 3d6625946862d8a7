// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A child, its observers and a stranger who calls it in a random program.

#include <glib.h>
#include <unistd.h>

#include <utility>

#include "life.h"
#include "vask_child.h"
#include "vask_test/served_child.h"

namespace vask_test {

namespace {

constexpr int command_id = 1;
constexpr int signals_of_a_child = 2;

class children;

class live_child : public vask_child {
public:
    live_child(children& owner, int argc, char** argv);

    void set_window(int x, int y, int w, int h, unsigned int id) override;
    bool serve(const char* argument, const char** reply);

private:
    children& m_owner;
};

class children : public family {
public:
    static constexpr int number = 4;

    explicit children(life& owner) : m_life(owner) {}

    // A process has one child on the bus, ever; the next one is one that nobody can reach.
    void make() {
        if (m_child == nullptr) {
            char name[] = "live_child";
            char* argv[] = {name, nullptr};
            m_child.reset(new live_child(*this, 1, argv));
        }
    }

    live_child* child() { return m_child.get(); }

    // The object has to outlive run().
    void end_child() {
        if (!m_runs) {
            const std::unique_ptr<live_child> last = std::move(m_child);
        }
    }

    void end() override { end_child(); }

    void run(int msec) {
        if (m_child != nullptr && !m_runs && !m_serves) {
            m_runs = true;
            g_timeout_add(static_cast<guint>(msec), quit, this);
            m_child->run();
            m_runs = false;
        }
    }

    // While a command is served, nothing else comes from the bus.
    void serve(const std::string& event) {
        const bool has_served = std::exchange(m_serves, true);
        try {
            m_life.react(event, answers());
        } catch (...) {
            m_serves = has_served;
            throw;
        }
        m_serves = has_served;
    }

    void ask(int how) {
        if (m_serves || m_child == nullptr) {
            return;
        }
        bus_client client;
        served_child stranger(client, child_name(getpid()));
        if (how % 3 == 0) {
            stranger.set_window(1, 2, 3, 4, static_cast<unsigned int>(how));
        } else {
            stranger.command(how > 9 ? 4711 : command_id, "asked");
        }
    }

    static void observe(vask_child*, int, const char*, void* self) {
        auto all = static_cast<children*>(self);
        all->m_life.react("on_observed", all->answers());
    }

    void emit(int value) {
        if (m_child == nullptr) {
            return;
        }
        // What an observer throws comes to whoever raises the signal.
        try {
            m_child->emit_signal(value % signals_of_a_child, value > 9 ? "\xff" : "text");
        } catch (...) {
        }
    }

private:
    static gboolean quit(gpointer user_data) {
        auto all = static_cast<children*>(user_data);
        if (all->m_child != nullptr) {
            all->m_child->app_quit_request(0);
        }
        return G_SOURCE_REMOVE;
    }

    reactions answers() {
        reactions possible;
        possible.delete_self = [this] { end_child(); };
        possible.delete_other = [this] {
            if (m_child != nullptr) {
                m_child->disconnect_child_signal(observe, 0, this);
            }
        };
        possible.again = [this] {
            if (m_child != nullptr) {
                m_child->connect_child_signal(observe, 1, this);
                m_child->emit_signal(1, "again");
            }
        };
        return possible;
    }

    life& m_life;
    std::unique_ptr<live_child> m_child;
    bool m_runs = false;
    bool m_serves = false;
};

live_child::live_child(children& owner, int argc, char** argv)
    : vask_child("live_child", argc, argv), m_owner(owner) {
    add_cmd_handler(command_id, static_cast<cmd_handler>(&live_child::serve));
}

void live_child::set_window(int x, int y, int w, int h, unsigned int id) {
    vask_child::set_window(x, y, w, h, id);
    m_owner.serve("on_window");
}

bool live_child::serve(const char*, const char** reply) {
    *reply = "served";
    m_owner.serve("on_command");
    return true;
}

operation_kind with_children(const char* name, double weight,
                             const std::function<void(children&, int value)>& what) {
    return {name, children::number, weight,
            [what](life& the, int, int value) { what(the.of<children>(), value); }};
}

}  // namespace

std::vector<operation_kind> child_kinds() {
    return {with_children("child", 8, [](children& all, int) { all.make(); }),
            with_children("delete_child", 2, [](children& all, int) { all.end_child(); }),
            with_children("run_child", 4, [](children& all, int value) { all.run(value * 3); }),
            with_children("ask_child", 12, [](children& all, int value) { all.ask(value); }),
            with_children("emit", 8, [](children& all, int value) { all.emit(value); }),
            with_children("observe", 6,
                          [](children& all, int value) {
                              if (all.child() != nullptr) {
                                  all.child()->connect_child_signal(
                                      children::observe, value % signals_of_a_child, &all);
                              }
                          }),
            with_children("observe_no_more", 3, [](children& all, int value) {
                if (all.child() != nullptr) {
                    all.child()->disconnect_child_signal(children::observe,
                                                         value % signals_of_a_child, &all);
                }
            })};
}

std::unique_ptr<family> make_children(life& owner) {
    return std::unique_ptr<family>(new children(owner));
}

}  // namespace vask_test
