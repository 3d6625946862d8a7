// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Deferred calls, controller tools, the registry and the shared record in a random program.

#include <glib.h>

#include "life.h"
#include "programs/bridge_child_commands.h"
#include "vask_child_cmd.h"
#include "vask_exec.h"
#include "vask_shared_info.h"

namespace vask_test {

namespace {

constexpr int slots = 3;

class tools;

class live_object : public vask_object {
public:
    live_object() { obj_name = "live_object"; }
};

class live_exec : public vask_exec {
public:
    live_exec(tools& owner, life& its_life, int slot)
        : m_owner(owner), m_life(its_life), m_slot(slot) {}

    // Whoever is called later must not be deleted before.
    bool is_awaited() const { return m_awaited > 0; }

    void call_when_idle() {
        ++m_awaited;
        add_idle_exec_func(static_cast<vask_exec_func>(&live_exec::idle), this);
    }

    void call_later(int msec) {
        ++m_awaited;
        m_timer = add_timer_exec_func(msec, static_cast<vask_exec_func>(&live_exec::timer), this);
    }

    void take_timer_back() {
        if (m_timer != 0) {
            g_source_remove(m_timer);
            m_timer = 0;
            --m_awaited;
        }
    }

private:
    void idle(void* data);
    void timer(void* data);
    reactions answers();

    tools& m_owner;
    life& m_life;
    const int m_slot;
    int m_awaited = 0;
    unsigned int m_timer = 0;
};

class tools : public family {
public:
    static constexpr int number = 2;

    explicit tools(life& owner) : m_life(owner) {}

    live_exec* exec(int slot) { return m_execs[slot % slots].get(); }
    vask_child_cmd_base* tool(int slot) { return m_tools[slot % slots].get(); }

    void make_exec(int slot) {
        if (exec(slot) == nullptr) {
            m_execs[slot % slots].reset(new live_exec(*this, m_life, slot % slots));
        }
    }

    void end_exec(int slot) {
        if (exec(slot) != nullptr && !exec(slot)->is_awaited()) {
            m_execs[slot % slots].reset();
        }
    }

    void make_tool(int slot, const char* program) {
        m_tools[slot % slots].reset(new vask_child_cmd_base("live_tool", program));
    }

    void end_tool(int slot) { m_tools[slot % slots].reset(); }

    void end() override {
        for (int slot = 0; slot < slots; ++slot) {
            end_tool(slot);
            while (exec(slot) != nullptr) {
                exec(slot)->take_timer_back();
                end_exec(slot);
                m_life.loop(1);
            }
        }
        vask_object::m_shared_info->unmap_shared_info(false);
    }

private:
    life& m_life;
    std::unique_ptr<live_exec> m_execs[slots];
    std::unique_ptr<vask_child_cmd_base> m_tools[slots];
};

void live_exec::idle(void* data) {
    if (data != this) {
        m_life.blame("an idle call with an argument of somebody else");
    }
    --m_awaited;
    reactions possible = answers();
    possible.delete_self = [] {};
    ++m_awaited;
    try {
        m_life.react("on_idle", possible);
    } catch (...) {
        --m_awaited;
        throw;
    }
    --m_awaited;
}

void live_exec::timer(void* data) {
    if (data != this) {
        m_life.blame("a timer with an argument of somebody else");
    }
    --m_awaited;
    m_timer = 0;
    m_life.react("on_timer", answers());
}

reactions live_exec::answers() {
    reactions possible;
    tools& owner = m_owner;
    const int slot = m_slot;
    possible.delete_self = [&owner, slot] { owner.end_exec(slot); };
    possible.delete_other = [&owner, slot] { owner.end_exec(slot + 1); };
    possible.again = [&owner, slot] {
        if (owner.exec(slot) != nullptr) {
            owner.exec(slot)->call_when_idle();
        }
    };
    return possible;
}

operation_kind with_exec(const char* name, double weight,
                         const std::function<void(live_exec&, int value)>& what) {
    return {name, tools::number, weight, [what](life& the, int slot, int value) {
                the.of<tools>().make_exec(slot);
                what(*the.of<tools>().exec(slot), value);
            }};
}

operation_kind with_tool(const char* name, double weight,
                         const std::function<void(vask_child_cmd_base&, int value)>& what) {
    return {name, tools::number, weight, [what](life& the, int slot, int value) {
                if (the.of<tools>().tool(slot) != nullptr) {
                    what(*the.of<tools>().tool(slot), value);
                }
            }};
}

operation_kind with_object(const char* name, double weight,
                           const std::function<void(int slot, int value)>& what) {
    return {name, tools::number, weight, [what](life&, int slot, int value) { what(slot, value); }};
}

std::vector<operation_kind> exec_kinds() {
    return {with_exec("idle_call", 8, [](live_exec& exec, int) { exec.call_when_idle(); }),
            with_exec("timer", 8, [](live_exec& exec, int value) { exec.call_later(value - 2); }),
            with_exec("take_timer", 3, [](live_exec& exec, int) { exec.take_timer_back(); }),
            {"delete_exec", tools::number, 3,
             [](life& the, int slot, int) { the.of<tools>().end_exec(slot); }}};
}

std::vector<operation_kind> tool_steps() {
    return {{"tool", tools::number, 5,
             [](life& the, int slot, int value) {
                 the.of<tools>().make_tool(slot, value > 9 ? "no_such_program" : "bridge_child");
             }},
            {"delete_tool", tools::number, 2,
             [](life& the, int slot, int) { the.of<tools>().end_tool(slot); }},
            with_tool("find", 2, [](vask_child_cmd_base& tool, int) { tool.find_program(); }),
            with_tool("find_and_call", 4,
                      [](vask_child_cmd_base& tool, int value) {
                          for (const int pid : tool.find_program()) {
                              tool.make_proxy(pid, value % 2 == 0);
                              std::string reply;
                              tool.cmd_func(CHILD_ECHO, "tool", &reply);
                          }
                      }),
            with_tool("call", 4,
                      [](vask_child_cmd_base& tool, int value) {
                          std::string reply;
                          tool.call(value > 9 ? CHILD_FAIL : CHILD_ECHO, "tool", &reply);
                      }),
            with_tool("call_by_key", 2, [](vask_child_cmd_base& tool, int value) {
                tool.call_by_key(static_cast<unsigned long>(value), CHILD_ECHO, "", nullptr);
            })};
}

std::vector<operation_kind> shared_kinds() {
    return {
        with_object("register", 3,
                    [](int, int value) {
                        live_object().store_pid_to_shm(static_cast<unsigned long>(value));
                    }),
        with_object("look_up", 2,
                    [](int, int) { live_object().find_stored_pid_from_shm("live_object"); }),
        with_object("rotate", 2,
                    [](int, int value) {
                        vask_object::set_monitor_rotation(
                            static_cast<vask_monitor_rotation_type>(value % 6));
                    }),
        with_object("rotation", 2, [](int, int) { vask_object::get_monitor_rotation(); }),
        with_object("flag", 2,
                    [](int, int value) { vask_object::set_pseudo_portrait_flag(value % 2 == 0); }),
        with_object("hardware", 1,
                    [](int, int value) {
                        vask_object::get_vask_cpu_type(value % 2 == 0);
                        vask_object::get_vask_gpu_type(value % 2 == 0);
                    }),
        with_object("forget_record", 2, [](int, int value) {
            vask_object::m_shared_info->unmap_shared_info(value % 2 == 0);
        })};
}

}  // namespace

std::vector<operation_kind> tool_kinds() {
    std::vector<operation_kind> all = exec_kinds();
    for (const auto& more : {tool_steps(), shared_kinds()}) {
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

std::unique_ptr<family> make_tools(life& owner) {
    return std::unique_ptr<family>(new tools(owner));
}

}  // namespace vask_test
