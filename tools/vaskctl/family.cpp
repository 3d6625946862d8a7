// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "family.h"

#include "printable.h"

namespace vaskctl {

namespace {

constexpr int most_generations = 64;

bool is_over(process_state state) {
    return state == process_state::zombie || state == process_state::gone;
}

}  // namespace

std::set<int> unable_to_answer(const process_table& processes) {
    std::set<int> unable;
    for (const auto& entry : processes.all()) {
        if (entry.second.state != process_state::running) {
            unable.insert(entry.first);
        }
    }
    return unable;
}

family::family(const process_table& processes, const std::vector<registry>& registries,
               const bus_survey* survey)
    : m_processes(processes), m_survey(survey) {
    add_registered(registries);
    add_children();
    std::vector<int> found;
    for (const auto& entry : m_members) {
        found.push_back(entry.first);
    }
    for (const int pid : found) {
        place(m_members[pid]);
    }
    for (auto& entry : m_members) {
        judge(entry.second);
    }
}

relative& family::add(int pid) {
    relative& member = m_members[pid];
    if (member.pid == 0) {
        member.pid = pid;
        member.state = m_processes.state_of(pid);
        if (const process_info* process = m_processes.find(pid)) {
            member.program = process->program;
            member.nest_level = process->nest_level;
        }
    }
    return member;
}

void family::add_registered(const std::vector<registry>& registries) {
    for (const registry& each : registries) {
        for (const registry_entry& entry : each.entries()) {
            add(entry.pid).registrations.push_back(
                {each.name(), entry.key, each.state_of(entry, m_processes)});
        }
    }
}

void family::add_children() {
    for (const auto& entry : m_processes.all()) {
        const process_info& process = entry.second;
        // Not the wrapped ones: those on the bus come below, and helpers are nobody's child.
        const bool has_bridge = process.nest_level && *process.nest_level > 0 &&
                                can_be_bridge(process.parent, *process.nest_level - 1);
        // Nothing but its parent is left of a zombie.
        const bool is_left_over = process.state == process_state::zombie &&
                                  m_processes.has_library(process.parent) == answer::yes;
        if (has_bridge || is_left_over) {
            add(process.pid).is_child = true;
        }
    }
    if (m_survey == nullptr) {
        return;
    }
    for (const auto& entry : m_survey->children()) {
        relative& member = add(entry.first);
        member.is_child = true;
        member.bus_name = entry.second.bus_name;
        member.round_trip_msec = entry.second.round_trip_msec;
        const int owner = entry.second.owner_pid;
        if (owner != 0 && owner != member.pid) {
            member.remarks.push_back("its bus name belongs to " + m_processes.describe(owner));
        }
    }
}

bool family::can_be_bridge(int pid, int nest_level) const {
    const process_info* process = m_processes.find(pid);
    // Process 1 takes over whom others leave behind, whatever it is.
    if (process == nullptr || is_over(process->state)) {
        return false;
    }
    if (!process->has_environment) {
        return !process->is_kernel_thread && pid != 1;  // it cannot be looked into
    }
    return process->nest_level.value_or(0) == nest_level &&
           m_processes.has_library(pid) != answer::no;
}

// The wrappers between a process and the bridge that has started the first of them, and that bridge
// last. Empty when there is none.
std::vector<int> family::way_to_bridge(const process_info& process) const {
    std::vector<int> way;
    if (!process.nest_level || *process.nest_level < 1) {
        return way;
    }
    const process_info* ancestor = &process;
    for (int i = 0; i < most_generations; ++i) {
        way.push_back(ancestor->parent);
        if (can_be_bridge(ancestor->parent, *process.nest_level - 1)) {
            return way;
        }
        ancestor = m_processes.find(ancestor->parent);
        if (ancestor == nullptr || ancestor->nest_level != process.nest_level) {
            break;
        }
    }
    return {};
}

void family::place(relative& member) {
    const process_info* process = m_processes.find(member.pid);
    if (process == nullptr) {
        return;
    }
    if (process->state == process_state::zombie) {
        member.shown_below = process->parent > 1 ? add(process->parent).pid : 0;
        return;
    }
    int below = member.pid;
    for (const int above : way_to_bridge(*process)) {
        relative& upper = add(above);
        m_members[below].shown_below = above;
        member.bridge = above;
        below = upper.pid;
    }
}

void family::judge(relative& member) {
    judge_registrations(member);
    if (member.state == process_state::zombie) {
        member.remarks.push_back("its parent has not reaped it: does its main loop run?");
    }
    if (is_over(member.state) || !member.is_child) {
        return;
    }
    const process_info* process = m_processes.find(member.pid);
    const bool has_had_parent = member.nest_level.value_or(0) > 0;
    if (has_had_parent && member.bridge == 0) {
        member.remarks.push_back("its parent has ended");
    } else if (process != nullptr && !process->has_environment && !process->is_kernel_thread) {
        member.remarks.push_back("its parent cannot be told: it belongs to " +
                                 name_of_user(process->owner));
    }
    if (m_survey != nullptr && member.bus_name.empty()) {
        remark_on_absence(member);
    }
    judge_meeting(member);
}

void family::judge_registrations(relative& member) {
    for (const registration& made : member.registrations) {
        const std::string name = printable(made.registry) + ":" + std::to_string(made.key);
        if (made.state == registrant_state::recycled) {
            member.remarks.push_back("it is not the process that registered as " + name);
        } else if (made.state == registrant_state::doubtful) {
            member.remarks.push_back("it began after the last registration as " + name);
        }
    }
}

void family::judge_meeting(relative& member) {
    if (member.bridge == 0 || m_survey == nullptr) {
        return;
    }
    if (member.bus_name.empty()) {
        member.is_met = false;
        return;
    }
    member.is_met = m_survey->listens(member.bridge, member.pid);
    const bool has_wrapper = member.shown_below != member.bridge;
    if (member.is_met == false && has_wrapper) {
        member.remarks.push_back("never met: " + m_processes.describe(member.bridge) +
                                 " waits for its wrapper, " +
                                 m_processes.describe(member.shown_below));
    } else if (member.is_met == false) {
        member.remarks.push_back("never met: " + m_processes.describe(member.bridge) +
                                 " does not listen to it");
    }
}

void family::remark_on_absence(relative& member) {
    const process_info* own = m_processes.find(member.pid);
    const process_info* parent = m_processes.find(member.bridge);
    const bool has_other_bus = own != nullptr && parent != nullptr && own->has_environment &&
                               parent->has_environment && own->bus_address != parent->bus_address;
    if (m_processes.has_library(member.pid) == answer::no) {
        member.remarks.push_back("never met: it is no program of the library, or a wrapper");
    } else if (has_other_bus) {
        member.remarks.push_back("never met: it has another session bus than its parent");
    } else {
        member.remarks.push_back("never met: it is not on this session bus");
    }
}

std::vector<int> family::below(int pid) const {
    std::vector<int> children;
    for (const auto& entry : m_members) {
        if (entry.second.shown_below == pid) {
            children.push_back(entry.first);
        }
    }
    return children;
}

}  // namespace vaskctl
