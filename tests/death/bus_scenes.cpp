// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <optional>

#include "bridge/recording_bridge.h"
#include "death/scene_lists.h"
#include "support/forked_process.h"
#include "vask_test/process_list.h"
#include "vask_test/resource_count.h"

namespace vask_test {

namespace {

// The bus library waits so long for an answer.
constexpr double answer_sec = 25;
// A bus that is silent holds up the report of a child's end so long.
constexpr double farewell_sec = 1;
// Start, meeting, one command and the end of a child, which nothing holds up.
constexpr double life_sec = 3;

/** A bridge starts a child, meets it, asks it and ends it. */
bool serve_one_child(recording_bridge& bridge) {
    bridge.spawn_child();
    char* reply = nullptr;
    const bool is_served = bridge.wait_until_met() &&
                           bridge.send_cmd(CHILD_ECHO, &reply, "hello", nullptr) &&
                           std::string(reply) == "hello";
    g_free(reply);
    bridge.terminate_all_workers();
    return bridge.vask_wait_child_exit(10000) && is_served;
}

bool serve_one_child() {
    recording_bridge bridge;
    return serve_one_child(bridge);
}

child_ends count_ends(const recording_bridge& bridge) {
    child_ends count;
    for (const child_end& end : bridge.ends) {
        ++(end.crashed ? count.crashes : count.exits);
    }
    return count;
}

/** The victim is the parent. */
class parent_scene : public scene {
public:
    double promised_sec(const fault_plan&) const override { return answer_sec; }

    void look(const fault_plan& plan, aftermath& after) override {
        after.ends = {plan.exits, plan.crashes};
        for (const process_entry& process : list_processes()) {
            if (process.parent == plan.victim && process.state == 'Z') {
                after.zombies.push_back(describe(process));
            }
        }
        const double begin = monotonic_seconds();
        forked_process other([] { return serve_one_child() ? 0 : 1; });
        after.next_child_is_served = other.wait_for_end() == 0;
        after.calls.push_back(
            {"another parent serves a child", monotonic_seconds() - begin, life_sec});
    }

protected:
    void prepare() override {
        warm_up_process_resources();
        m_bridge = std::make_unique<recording_bridge>();
    }

    /** Time in which the victim was stopped does not count. */
    bool wait_for(double seconds, const std::function<bool()>& condition) const {
        const auto is_over = [&] {
            const double begin = std::max(m_plan->began.load(), m_plan->resumed.load());
            return condition() || monotonic_seconds() > begin + seconds;
        };
        // A copy would be a step.
        wait_until(std::cref(is_over));
        return condition();
    }

    // Whatever has become of it: it goes, and another one works.
    bool do_next() override {
        drain_main_loop();
        if (m_bridge != nullptr) {
            const child_ends ends = count_ends(*m_bridge);
            m_plan->exits = ends.exits;
            m_plan->crashes = ends.crashes;
        }
        m_bridge.reset();
        drain_main_loop();
        // The fault may have cost the connection that is kept for the count.
        warm_up_process_resources();
        const bool is_served = serve_one_child();
        drain_main_loop();
        return is_served;
    }

    std::unique_ptr<recording_bridge> m_bridge;
};

class bridge_construction : public parent_scene {
    void prepare() override {}
    bool operate() override {
        m_bridge = std::make_unique<recording_bridge>();
        return m_bridge->m_bus_daemon_proxy != nullptr;
    }
};

class spawning : public parent_scene {
    bool operate() override {
        m_bridge->spawn_child();
        return m_bridge->get_child_pid() > 0;
    }
};

class meeting : public parent_scene {
    void prepare() override {
        parent_scene::prepare();
        m_bridge->spawn_child();
        m_bridge->send_cmd_no_reply(CHILD_ECHO, "one", nullptr);
        m_bridge->send_cmd_no_reply(CHILD_ECHO, "two", nullptr);
    }
    bool operate() override {
        char* reply = nullptr;
        const bool is_served =
            wait_for(3, [this] { return m_bridge->get_child_bus_addr() != nullptr; }) &&
            m_bridge->send_cmd(CHILD_COUNT_JOURNAL, &reply, "", nullptr);
        const std::string count = reply != nullptr ? reply : "";
        g_free(reply);
        return is_served && count == "2";
    }
};

class ending : public parent_scene {
    void prepare() override {
        parent_scene::prepare();
        m_bridge->spawn_and_meet();
    }
    bool operate() override {
        m_bridge.reset();
        return true;
    }
};

class hearing_of_end : public parent_scene {
    double promised_sec(const fault_plan&) const override { return farewell_sec; }
    void prepare() override {
        parent_scene::prepare();
        m_bridge->spawn_and_meet();
        // What it hears is kept without a step.
        m_bridge->ends.reserve(8);
        // A child that did not start has the number of all processes.
        if (m_bridge->get_child_pid() > 0) {
            kill(m_bridge->get_child_pid(), SIGKILL);
        }
    }
    bool operate() override {
        return wait_for(5, [this] { return !m_bridge->ends.empty(); });
    }
    void look(const fault_plan& plan, aftermath& after) override {
        parent_scene::look(plan, after);
        after.expected_ends.crashes = victim_lives() ? 1 : 0;
    }
};

/** The victim is the child; the judge is the parent. */
class child_scene : public scene {
public:
    explicit child_scene(const char* part) : m_part(part) {}

    void let_victim_act(shared_plan& plan) override {
        m_bridge = std::make_unique<recording_bridge>();
        strlist argv = {VASK_TEST_PROGRAM_DIR "/death_child", m_part, plan.path()};
        strlist envs;
        m_bridge->spawn(argv, envs);
        m_victim = m_bridge->get_child_pid();
        plan->victim = m_victim;
        meet(plan);
        m_is_served = m_bridge->get_child_bus_addr() != nullptr;
        const bool has_agreed = m_is_served && talk();
        if (has_agreed) {
            wait_until([&] { return plan->result != unfinished || !m_bridge->ends.empty(); });
        }
        const bool is_struck_dead = plan->has_struck && ends_victim(plan->wanted);
        m_ends_by_itself = has_agreed || is_struck_dead || plan->result == thrown;
        if (!m_ends_by_itself) {
            m_bridge->terminate_all_workers();
        }
        const double begin = monotonic_seconds();
        wait_until([this] { return !m_bridge->ends.empty(); });
        // A child that is stopped hears of no signal.
        const double stopped = std::max(0.0, plan->resumed - begin);
        m_unordered_end = unordered_end(*plan, has_agreed);
        m_calls.push_back({"the end of the child is reported",
                           monotonic_seconds() - begin - stopped, farewell_sec});
    }

    bool ends_with_operation() const override { return true; }

    double promised_sec(const fault_plan&) const override { return answer_sec; }

    void look(const fault_plan&, aftermath& after) override {
        after.calls.insert(after.calls.end(), m_calls.begin(), m_calls.end());
        after.is_cut_off = !m_is_served;
        drain_main_loop();
        after.ends = count_ends(*m_bridge);
        // Whatever its status: who has not been asked to end has crashed.
        ++(m_ends_by_itself ? after.expected_ends.crashes : after.expected_ends.exits);
        after.unordered_end = m_unordered_end;
        m_bridge->init_proxy();
        after.next_child_is_served = serve_one_child(*m_bridge);
        m_bridge.reset();
        for (const process_entry& process : list_processes()) {
            if (process.parent == getpid() && process.state == 'Z') {
                after.zombies.push_back(describe(process));
            }
        }
    }

protected:
    /** True when the child has agreed to end. */
    virtual bool talk() {
        ask(CHILD_ECHO);
        return false;
    }

    bool ask(int id, const char* argument = "") {
        const double begin = monotonic_seconds();
        char* reply = nullptr;
        const bool is_answered = m_bridge->send_cmd(id, &reply, argument, nullptr);
        g_free(reply);
        m_calls.push_back({"a command returns", monotonic_seconds() - begin, answer_sec});
        m_is_served = m_is_served && is_answered;
        return is_answered;
    }

private:
    // A bridge reports every end that it has not ordered as a crash, also a real one, which hides
    // behind the end that has been agreed on.
    std::string unordered_end(const fault_plan& plan, bool has_agreed) const {
        const std::optional<int> end = learned_end(m_victim);
        if (!end) {
            return "leaves no status";
        }
        const bool may_fail = plan.result == thrown || !has_agreed;
        const bool may_be_killed =
            (*end == -SIGTERM && (!m_ends_by_itself || plan.wanted == fault::sigterm)) ||
            (*end == -SIGKILL && plan.wanted == fault::sigkill);
        if (*end == 0 || (*end == 1 && may_fail) || may_be_killed) {
            return "";
        }
        return *end < 0 ? "is ended by signal " + std::to_string(-*end)
                        : "exits with " + std::to_string(*end);
    }

    // A child that could not join the bus never comes.
    void meet(const shared_plan& plan) {
        constexpr double patience_sec = 2;
        wait_until([&] {
            const bool is_late =
                plan->result != unfinished && monotonic_seconds() > plan->ended + patience_sec;
            return is_late || !m_bridge->ends.empty() || m_bridge->get_child_bus_addr() != nullptr;
        });
    }

    const char* const m_part;
    std::unique_ptr<recording_bridge> m_bridge;
    std::vector<timed_call> m_calls;
    bool m_is_served = false;
    bool m_ends_by_itself = false;
    std::string m_unordered_end;
};

class child_joining : public child_scene {
public:
    child_joining() : child_scene("join") {}
};

class child_replying : public child_scene {
public:
    child_replying() : child_scene("serve") {}

private:
    bool talk() override { return ask(1) && ask(2, "an argument") && ask(4); }
};

class child_signalling : public child_scene {
public:
    child_signalling() : child_scene("serve") {}

private:
    bool talk() override { return ask(1) && ask(3, "data of a signal") && ask(4); }
};

template <typename Scene>
std::unique_ptr<scene> make() {
    return std::make_unique<Scene>();
}

}  // namespace

std::vector<operation> bus_operations() {
    const char* const no_lock = "holds no lock";
    return {
        {"bridge", "joins the bus", no_lock, make<bridge_construction>},
        {"bridge", "spawns", no_lock, make<spawning>},
        {"bridge", "meets, flushes, calls", no_lock, make<meeting>},
        {"bridge", "hears of an end", no_lock, make<hearing_of_end>},
        {"bridge", "ends its child", no_lock, make<ending>},
        {"child", "joins the bus", no_lock, make<child_joining>},
        {"child", "replies", no_lock, make<child_replying>},
        {"child", "emits a signal", no_lock, make<child_signalling>},
    };
}

const std::vector<operation>& all_operations() {
    static const std::vector<operation> all = [] {
        std::vector<operation> list = shared_memory_operations();
        const std::vector<operation> rest = bus_operations();
        list.insert(list.end(), rest.begin(), rest.end());
        return list;
    }();
    return all;
}

}  // namespace vask_test
