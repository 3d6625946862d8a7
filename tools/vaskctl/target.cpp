// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "target.h"

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <optional>
#include <set>

#include "bus_survey.h"
#include "command_line.h"
#include "complaint.h"
#include "family.h"
#include "printable.h"
#include "process_table.h"
#include "registry.h"
#include "vask_child_cmd.h"

namespace vaskctl {

namespace {

bool is_number(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

bool can_be_called(registrant_state state) {
    return state == registrant_state::running || state == registrant_state::stopped ||
           state == registrant_state::doubtful || state == registrant_state::hidden;
}

}  // namespace

target::target(const std::string& text) : m_text(text), m_program(text) {
    if (is_number(text)) {
        const long long pid = parse_number(text, "a process id");
        if (pid < 1 || pid > 0x7fffffff) {
            throw complaint(status_usage, "'" + text + "' is not a process id");
        }
        m_pid = static_cast<int>(pid);
        return;
    }
    const std::size_t colon = text.rfind(':');
    if (colon != std::string::npos) {
        m_program = text.substr(0, colon);
        const std::string key = text.substr(colon + 1);
        if (m_program.empty() || key.empty() || key[0] == '-') {
            throw complaint(status_usage,
                            "'" + printable(text) + "' is neither a process id nor PROGRAM:KEY");
        }
        char* end = nullptr;
        m_key = strtoull(key.c_str(), &end, 0);
        m_has_key = *end == '\0';
        if (!m_has_key) {
            throw complaint(status_usage, "'" + printable(key) + "' is not a key");
        }
    }
    if (m_program.empty()) {
        throw complaint(status_usage, "a target is a process id, a program or PROGRAM:KEY");
    }
}

int target::find() const {
    if (m_pid != 0) {
        return m_pid;
    }
    const int registered = find_registered();
    if (registered != 0) {
        return registered;
    }
    const int running = m_has_key ? 0 : find_running();
    if (running == 0) {
        throw complaint(status_no_such_child,
                        "there is no child '" + printable(m_text) + "'; see \"vaskctl tree\"");
    }
    return running;
}

// The last one of several with a key is the one that counts, as for the library.
int target::find_registered() const {
    const registry registered(m_program);
    const process_table processes;
    std::optional<registry_entry> found;
    for (const registry_entry& entry : registered.entries()) {
        const bool is_wanted = m_has_key ? entry.key == m_key : !found || entry.key <= found->key;
        if (is_wanted && can_be_called(registered.state_of(entry, processes))) {
            found = entry;
        }
    }
    return found ? found->pid : 0;
}

int target::find_running() const {
    const vask_child_cmd_base finder("vaskctl", m_program.c_str());
    const std::vector<int> pids = finder.find_program();
    return pids.empty() ? 0 : *std::min_element(pids.begin(), pids.end());
}

int print_targets(int timeout_msec) {
    const process_table processes;
    std::set<std::string> targets;
    for (const registry& each : read_registries()) {
        for (const registry_entry& entry : each.entries()) {
            if (can_be_called(each.state_of(entry, processes))) {
                targets.insert({each.name() + ":" + std::to_string(entry.key), each.name(),
                                std::to_string(entry.pid)});
            }
        }
    }
    const deadline until(timeout_msec);
    try {
        bus_link link(until);
        const bus_survey survey(link, until, unable_to_answer(processes));
        for (const auto& entry : survey.children()) {
            targets.insert(std::to_string(entry.first));
            if (const process_info* process = processes.find(entry.first)) {
                targets.insert(process->program);
            }
        }
    } catch (const complaint&) {
        // The shell asks while somebody types: what is registered has to do.
    }
    for (const std::string& each : targets) {
        if (printable(each) == each) {
            printf("%s\n", each.c_str());
        }
    }
    return status_done;
}

}  // namespace vaskctl
