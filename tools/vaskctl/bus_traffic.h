// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_BUS_TRAFFIC_H
#define VASKCTL_BUS_TRAFFIC_H

#include <gio/gio.h>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bus_link.h"

namespace vaskctl {

// One line of a monitor.
struct traffic_event {
    double time = 0;
    int pid = 0;  // of the child
    std::string child;
    const char* kind = "";  // for programs
    std::string what;       // for people
    std::optional<int> number;
    std::optional<std::string> text;
    std::optional<std::vector<std::string>> window;
    std::string peer;  // who has called; empty for nobody
    bool is_answer = false;
    std::optional<double> msec;  // from the command to its reply
};

// What the bus is to show: all that goes to children and comes from them. Answers carry no
// interface, so all of them come.
extern const char* const traffic_rules[5];

// Who is behind the unique names of the bus. Asks the bus by a connection of its own.
class bus_names {
public:
    // Learns the children that are there.
    void begin();

    // The child that has this name, unique or well-known; 0 for another connection.
    int child_behind(const std::string& name) const;

    // "notes_parent 812", or the name itself where nobody is behind it any more.
    std::string describe(const std::string& name);

    void note_owner(int child, const std::string& owner);

    // No name of the bus is given twice.
    void forget(const std::string& name);

private:
    bus_link& link();

    std::unique_ptr<bus_link> m_link;                // opened for the first question
    std::map<std::string, int> m_children;           // process ids by unique name
    std::map<std::string, std::string> m_described;  // answers of the bus by unique name
};

// Makes events of messages.
class bus_traffic {
public:
    explicit bus_traffic(bus_names& names) : m_names(names) {}

    // None for a message that is nothing to the children.
    std::vector<traffic_event> note(GDBusMessage* message, double time);

private:
    struct open_command {
        int pid;
        int number;
        double time;
    };

    std::optional<traffic_event> note_call(GDBusMessage* message, double time);
    std::optional<traffic_event> note_command(GDBusMessage* message, traffic_event event);
    std::optional<traffic_event> note_signal(GDBusMessage* message, double time);
    std::optional<traffic_event> note_owner_change(GDBusMessage* message, double time);
    std::optional<traffic_event> note_answer(GDBusMessage* message, double time);
    traffic_event event_of(int pid, double time, const char* kind);
    const std::string& child_name(int pid);

    bus_names& m_names;

    // As they were when a child came or was first heard of: its process loses the name with its
    // end, and what it has sent may be read later.
    std::map<int, std::string> m_child_names;

    // Commands that were not answered yet, by caller and serial number.
    std::map<std::pair<std::string, guint32>, open_command> m_open;
};

}  // namespace vaskctl

#endif
