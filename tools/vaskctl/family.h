// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_FAMILY_H
#define VASKCTL_FAMILY_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bus_survey.h"
#include "process_table.h"
#include "registry.h"

namespace vaskctl {

struct registration {
    std::string registry;
    std::uint64_t key;
    registrant_state state;
};

// One process of the tree.
struct relative {
    int pid = 0;
    int shown_below = 0;  // 0 for none
    int bridge = 0;       // the parent whose bridge has started it, as far as can be seen; or 0
    std::string program;
    std::string bus_name;  // empty for one that is not on the bus
    process_state state = process_state::gone;
    std::optional<int> nest_level;
    std::optional<bool> is_met;
    bool is_child = false;  // of a bridge, or on the bus
    std::optional<double> round_trip_msec;
    std::vector<registration> registrations;
    std::vector<std::string> remarks;
};

// Who belongs to whom. A bridge's children are told by the nest level that it gives to them: one
// more than its own. A process between the two was started instead of the child: a wrapper, for
// which the bridge waits.
class family {
public:
    // Without a survey there is no bus.
    family(const process_table& processes, const std::vector<registry>& registries,
           const bus_survey* survey);

    const std::map<int, relative>& members() const { return m_members; }

    // Sorted by their process ids.
    std::vector<int> below(int pid) const;

private:
    relative& add(int pid);
    void add_registered(const std::vector<registry>& registries);
    void add_children();
    void place(relative& member);
    bool can_be_bridge(int pid, int nest_level) const;
    std::vector<int> way_to_bridge(const process_info& process) const;
    void judge(relative& member);
    static void judge_registrations(relative& member);
    void judge_meeting(relative& member);
    void remark_on_absence(relative& member);

    const process_table& m_processes;
    const bus_survey* const m_survey;   // null without a bus
    std::map<int, relative> m_members;  // by process id
};

// Processes that cannot answer a call, so that nobody has to wait for them.
std::set<int> unable_to_answer(const process_table& processes);

}  // namespace vaskctl

#endif
