// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "life.h"

#include <fcntl.h>
#include <glib.h>
#include <signal.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "vask_test/main_loop.h"
#include "vask_test/resource_count.h"

namespace vask_test {

namespace {

constexpr int deepest = 4;
constexpr int longest_loop_msec = 40;
constexpr int settling_msec = 20000;

std::string complaints_of_glib;

// What GLib calls a critical is a fault of its caller's. One is part of the interface: deleting a
// server hands its channel to g_object_unref().
void hear_glib(const gchar* domain, GLogLevelFlags level, const gchar* message, gpointer) {
    const std::string text = message ? message : "";
    if ((level & (G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR | G_LOG_LEVEL_WARNING)) != 0 &&
        text != "g_object_unref: assertion 'G_IS_OBJECT (object)' failed") {
        complaints_of_glib += std::string(domain ? domain : "") + ": " + text + "\n";
    }
}

// What is there from the first use of the bus or of shared memory on, until the process ends.
bool is_to_stay(const std::string& line) {
    return line.find("shared object: ") != std::string::npos;
}

std::string leaks_since(const resource_count& before) {
    std::string leaks;
    std::string difference = before.difference(resource_count::take());
    for (std::size_t end; (end = difference.find('\n')) != std::string::npos;) {
        const std::string line = difference.substr(0, end + 1);
        difference.erase(0, end + 1);
        leaks += is_to_stay(line) ? "" : line;
    }
    return leaks;
}

}  // namespace

// What no life does by chance, so that a test can see that each is found.
void do_wrong(life& the, int value) {
    switch (value) {
        case 0:
            the.blame("on purpose");
            break;
        case 1: {
            std::unique_ptr<int> number(new int(1));
            int* volatile const gone = number.get();
            number.reset();
            *gone = 2;
            break;
        }
        case 2: {
            int volatile number = INT_MAX;
            number = number + 1;
            break;
        }
        case 3:
            for (int i = 0; i < 8; ++i) {
                std::unique_ptr<int>(new int(i)).release();
            }
            break;
        case 4:
            open("/dev/null", O_RDONLY | O_CLOEXEC);
            break;
        case 5:
            g_critical("on purpose");
            break;
        case 6:
            raise(SIGTERM);
            break;
        default:
            std::exit(0);
    }
}

const std::vector<operation_kind>& common_kinds();

const std::vector<operation_kind>& life::kinds() {
    static const std::vector<operation_kind> all = [] {
        std::vector<operation_kind> result = common_kinds();
        for (const auto kinds_of :
             {bridge_kinds, socket_kinds, tool_kinds, page_kinds, child_kinds}) {
            const std::vector<operation_kind> more = kinds_of();
            result.insert(result.end(), more.begin(), more.end());
        }
        return result;
    }();
    return all;
}

bool life::knows(const std::string& name) {
    return std::any_of(kinds().begin(), kinds().end(),
                       [&name](const operation_kind& kind) { return kind.name == name; });
}

int life::families() {
    return 5;
}

const std::vector<operation_kind>& common_kinds() {
    static const std::vector<operation_kind> all = [] {
        std::vector<operation_kind> result;
        result.push_back({"loop", common_family, 30,
                          [](life& the, int, int value) { the.loop(value * value / 4); }});
        result.push_back(
            {"wrong", common_family, 0, [](life& the, int, int value) { do_wrong(the, value); }});
        // Each of these belongs to the family that is called so.
        const std::pair<const char*, int> events[] = {
            {"on_exit", 0},    {"on_crash", 0},    {"on_signal", 0},  {"on_request", 0},
            {"on_read", 1},    {"on_accepted", 1}, {"on_idle", 2},    {"on_timer", 2},
            {"on_method", 3},  {"on_page", 3},     {"on_command", 4}, {"on_window", 4},
            {"on_observed", 4}};
        for (const auto& event : events) {
            const std::string name = event.first;
            result.push_back({name, event.second, 8, [name](life& the, int, int value) {
                                  the.m_plans[name].push_back(value);
                              }});
        }
        return result;
    }();
    return all;
}

life::life() {
    m_families.push_back(make_bridges(*this));
    m_families.push_back(make_sockets(*this));
    m_families.push_back(make_tools(*this));
    m_families.push_back(make_pages(*this));
    m_families.push_back(make_children(*this));
}

life::~life() = default;

std::string life::play(const program& steps) {
    warm_up_process_resources();
    g_log_set_default_handler(hear_glib, nullptr);
    const resource_count before = resource_count::take();
    m_steps = steps;
    while (m_next < m_steps.size()) {
        play_next();
    }
    end();
    // A worker that has outlived its time-out is reaped when it ends.
    const gint64 last = g_get_monotonic_time() + settling_msec * 1000;
    while (!leaks_since(before).empty() && g_get_monotonic_time() < last) {
        loop(5);
    }
    return m_blame + complaints_of_glib + leaks_since(before);
}

void life::play_next() {
    const operation step = m_steps[m_next++];
    const auto kind = std::find_if(
        kinds().begin(), kinds().end(),
        [&step](const operation_kind& candidate) { return candidate.name == step.name; });
    kind->play(*this, step.slot, step.value);
}

void life::end() {
    // From here on nobody is to be made anew.
    m_next = m_steps.size();
    m_plans.clear();
    for (const auto& each : m_families) {
        each->end();
    }
}

void life::blame(const std::string& text) {
    m_blame += text + "\n";
}

void life::loop(int msec) {
    if (m_depth == deepest) {
        return;
    }
    ++m_depth;
    const gint64 end = g_get_monotonic_time() + std::min(msec, longest_loop_msec) * 1000;
    wait_until([end] { return g_get_monotonic_time() >= end; });
    --m_depth;
}

void life::react(const std::string& event, const reactions& possible) {
    std::deque<int>& plans = m_plans[event];
    if (plans.empty()) {
        return;
    }
    const int plan = plans.front();
    plans.pop_front();
    switch (plan) {
        case 0:
        case 1:
            possible.delete_self();
            break;
        case 2:
            possible.delete_other();
            break;
        case 3:
            loop(10);
            break;
        case 4:
            throw std::runtime_error("thrown on purpose");
        case 5:
            throw 5;
        case 6:
            possible.again();
            break;
        case 7:
            loop(10);
            possible.delete_self();
            break;
        case 8:
            possible.again();
            loop(10);
            break;
        default:
            // Whatever the program would have done next is done inside.
            if (m_next < m_steps.size() && m_depth < deepest) {
                ++m_depth;
                play_next();
                --m_depth;
            }
    }
}

}  // namespace vask_test
