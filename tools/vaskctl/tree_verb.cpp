// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdio.h>

#include <memory>
#include <optional>

#include "bus_link.h"
#include "command_line.h"
#include "complaint.h"
#include "family.h"
#include "json_writer.h"
#include "printable.h"
#include "process_table.h"
#include "registry.h"
#include "table.h"
#include "target.h"
#include "verbs.h"

namespace vaskctl {

namespace {

constexpr int usual_timeout_msec = 300;

// The lines of the tree in front of a process.
struct branch {
    std::string own;
    std::string below;
};

branch branch_of(const branch& upper, bool is_root, bool is_last) {
    if (is_root) {
        return {};
    }
    static const bool has_lines = has_line_characters();
    const char* corner = has_lines ? "└─" : "`-";
    const char* fork = has_lines ? "├─" : "|-";
    const char* line = has_lines ? "│ " : "| ";
    return {upper.below + (is_last ? corner : fork), upper.below + (is_last ? "  " : line)};
}

std::string joined(const std::vector<std::string>& texts) {
    std::string result;
    for (const std::string& text : texts) {
        result += (result.empty() ? "" : "; ") + text;
    }
    return result.empty() ? "-" : result;
}

std::string keys_of(const relative& member) {
    std::string keys;
    for (const registration& made : member.registrations) {
        const std::string registry =
            made.registry == member.program ? "" : printable(made.registry) + ":";
        keys += (keys.empty() ? "" : ",") + registry + std::to_string(made.key);
    }
    if (!keys.empty()) {
        return keys;
    }
    return member.bus_name.empty() ? "-" : "not registered";
}

std::string meeting_of(const relative& member) {
    if (member.bridge == 0 || !member.is_child) {
        return "-";
    }
    return !member.is_met ? "?" : *member.is_met ? "yes" : "no";
}

// A child that stands still cannot answer.
bool can_answer(const relative& member) {
    return !member.bus_name.empty() && member.state == process_state::running;
}

std::string round_trip_of(const relative& member) {
    if (!can_answer(member)) {
        return "-";
    }
    return member.round_trip_msec ? decimal(*member.round_trip_msec, 1) + " ms" : "no answer";
}

colour colour_of(const relative& member) {
    const bool is_dead =
        member.state == process_state::zombie || member.state == process_state::gone;
    if (is_dead) {
        return colour::red;
    }
    const bool is_odd = member.state == process_state::stopped || !member.remarks.empty() ||
                        (can_answer(member) && !member.round_trip_msec);
    return is_odd ? colour::yellow : colour::none;
}

class tree_printer {
public:
    explicit tree_printer(const family& shown) : m_family(shown) {}

    void print_table(bool has_legend) {
        print_below(0, {}, true);
        m_table.print(has_legend);
    }

    void print_json(const std::string& bus_problem) {
        m_json.begin_object();
        m_json.add_member("bus", bus_problem.empty());
        m_json.name("processes");
        add_below(0);
        m_json.end_object();
        m_json.print_line();
    }

private:
    void print_below(int pid, const branch& upper, bool is_root) {
        const std::vector<int> children = m_family.below(pid);
        for (const int child : children) {
            const branch own = branch_of(upper, is_root, child == children.back());
            add_row(m_family.members().at(child), own.own);
            print_below(child, own, false);
        }
    }

    void add_row(const relative& member, const std::string& lines) {
        const std::string program = member.program.empty() ? "-" : printable(member.program, 40);
        m_table.add({{lines + program, std::to_string(member.pid),
                      member.nest_level ? std::to_string(*member.nest_level) : "-", keys_of(member),
                      member.bus_name.empty() ? "-" : member.bus_name, meeting_of(member),
                      name_of(member.state), round_trip_of(member), joined(member.remarks)},
                     colour_of(member)});
    }

    void add_below(int pid) {
        m_json.begin_array();
        for (const int child : m_family.below(pid)) {
            add_object(m_family.members().at(child));
        }
        m_json.end_array();
    }

    void add_object(const relative& member) {
        m_json.begin_object();
        m_json.add_member("pid", member.pid);
        m_json.add_member("program", member.program);
        m_json.add_member("nest_level", member.nest_level);
        m_json.name("registered");
        m_json.begin_array();
        for (const registration& made : member.registrations) {
            m_json.begin_object();
            m_json.add_member("name", made.registry);
            m_json.add_member("key", made.key);
            m_json.add_member("state", name_of(made.state));
            m_json.end_object();
        }
        m_json.end_array();
        m_json.name("bus_name");
        if (member.bus_name.empty()) {
            m_json.add_null();
        } else {
            m_json.add(member.bus_name);
        }
        m_json.add_member("met", member.is_met);
        m_json.add_member("state", name_of(member.state));
        m_json.name("round_trip_usec");
        if (member.round_trip_msec) {
            m_json.add(static_cast<std::int64_t>(*member.round_trip_msec * 1000));
        } else {
            m_json.add_null();
        }
        m_json.add_member("remarks", member.remarks);
        m_json.name("children");
        add_below(member.pid);
        m_json.end_object();
    }

    const family& m_family;
    table m_table{
        {"PROCESS", "PID", "NEST", "KEY", "BUS NAME", "MET", "STATE", "ROUND TRIP", "REMARKS"}};
    json_writer m_json;
};

}  // namespace

int run_tree(const std::vector<std::string>& words) {
    command_line line("tree", nullptr,
                      "Shows every child on the session bus and every registered process, below "
                      "their parents.");
    int timeout_msec = usual_timeout_msec;
    bool wants_targets = false;
    line.add_number("timeout", "How long to wait for the bus and the children (300)", "MSEC",
                    &timeout_msec);
    line.add_flag("targets", "Print what can be the TARGET of another verb, one a line",
                  &wants_targets);
    line.parse(words);
    line.expect_words(0, 0);
    if (wants_targets) {
        return print_targets(timeout_msec);
    }

    const process_table processes;
    const std::vector<registry> registries = read_registries();
    const deadline until(timeout_msec);
    std::string bus_problem;
    std::unique_ptr<bus_link> link;
    std::optional<bus_survey> survey;
    try {
        link = std::make_unique<bus_link>(until);
        survey.emplace(*link, until, unable_to_answer(processes));
    } catch (const complaint& problem) {
        bus_problem = problem.what();
        fprintf(stderr, "vaskctl: %s\n", problem.what());
    }
    const family shown(processes, registries, survey ? &*survey : nullptr);
    tree_printer printer(shown);
    if (line.json) {
        printer.print_json(bus_problem);
    } else {
        printer.print_table(line.has_legend());
    }
    return status_done;
}

}  // namespace vaskctl
