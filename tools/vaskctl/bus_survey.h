// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_BUS_SURVEY_H
#define VASKCTL_BUS_SURVEY_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bus_link.h"

namespace vaskctl {

// A child as the session bus shows it.
struct bus_child {
    int pid = 0;        // of its name
    int owner_pid = 0;  // of whoever has the name; 0 as long as that is not known
    std::string bus_name;
    std::optional<double> round_trip_msec;
};

// What the session bus knows of all children. Whatever is not answered before the deadline is left
// out.
class bus_survey {
public:
    // Does not call those that cannot answer.
    bus_survey(bus_link& link, const deadline& until, const std::set<int>& unable_to_answer);

    const std::map<int, bus_child>& children() const { return m_children; }

    // Whether this process listens to the signals of the child, which is what a bridge does from
    // the moment on when it meets a child. Nothing where the bus does not tell.
    std::optional<bool> listens(int pid, int child) const;

private:
    void list_names();
    void find_owners();
    void ping(const std::set<int>& unable_to_answer, const deadline& until);
    void ask_for_rules();
    void note_rule(const std::string& connection, const std::string& rule);
    void find_listeners();

    bus_link& m_link;
    std::map<int, bus_child> m_children;  // by process id
    bool m_knows_rules = false;           // not every bus tells who listens to whom
    std::map<std::string, std::set<int>> m_heard_by_connection;  // children by unique name
    std::set<std::pair<int, int>> m_listeners;                   // process, child
};

// The process id in the name of a child; 0 for another name.
int pid_in_child_name(const std::string& name);

}  // namespace vaskctl

#endif
