// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "bus_survey.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include "bus/bus_names.h"
#include "vask_child_cmd.h"

namespace vaskctl {

namespace {

constexpr char peer_interface[] = "org.freedesktop.DBus.Peer";
constexpr char name_prefix[] = VASK_CHILD_INTERFACE "_";

int unsigned_in(GVariant* reply) {
    guint32 number = 0;
    if (reply != nullptr && g_variant_is_of_type(reply, G_VARIANT_TYPE("(u)"))) {
        g_variant_get(reply, "(u)", &number);
    }
    return static_cast<int>(number);
}

}  // namespace

int pid_in_child_name(const std::string& name) {
    if (name.compare(0, strlen(name_prefix), name_prefix) != 0) {
        return 0;
    }
    const long pid = strtol(name.c_str() + strlen(name_prefix), nullptr, 10);
    // Only what the library would have made of the number.
    const bool is_pid = pid > 0 && pid <= INT_MAX &&
                        vask_child_cmd_base::make_dbus_servie_name(static_cast<int>(pid)) == name;
    return is_pid ? static_cast<int>(pid) : 0;
}

bus_survey::bus_survey(bus_link& link, const deadline& until, const std::set<int>& unable_to_answer)
    : m_link(link) {
    list_names();
    ask_for_rules();
    m_link.wait(until);
    find_owners();
    find_listeners();
    ping(unable_to_answer, until);
    m_link.wait(until);
}

void bus_survey::list_names() {
    m_link.call_bus("ListNames", nullptr, [this](const call_result& result) {
        if (result.reply == nullptr ||
            !g_variant_is_of_type(result.reply, G_VARIANT_TYPE("(as)"))) {
            return;
        }
        GVariantIter* names = nullptr;
        g_variant_get(result.reply, "(as)", &names);
        const gchar* name = nullptr;
        while (g_variant_iter_next(names, "&s", &name)) {
            if (const int pid = pid_in_child_name(name)) {
                m_children[pid].pid = pid;
                m_children[pid].bus_name = name;
            }
        }
        g_variant_iter_free(names);
    });
}

void bus_survey::find_owners() {
    for (auto& entry : m_children) {
        bus_child& child = entry.second;
        m_link.call_bus(
            "GetConnectionUnixProcessID", g_variant_new("(s)", child.bus_name.c_str()),
            [&child](const call_result& result) { child.owner_pid = unsigned_in(result.reply); });
    }
}

// The bus library of the child answers this by itself, but only where the child's main loop runs.
void bus_survey::ping(const std::set<int>& unable_to_answer, const deadline& until) {
    for (auto& entry : m_children) {
        bus_child& child = entry.second;
        if (unable_to_answer.count(child.pid) != 0) {
            continue;
        }
        m_link.call(
            child.bus_name, VASK_CHILD_PATH, peer_interface, "Ping", nullptr,
            [&child](const call_result& result) {
                if (result.reply != nullptr) {
                    child.round_trip_msec = result.msec;
                }
            },
            until.left_msec());
    }
}

// Not every bus has this interface, and some show it only to their owner.
void bus_survey::ask_for_rules() {
    m_link.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Debug.Stats",
                "GetAllMatchRules", nullptr, [this](const call_result& result) {
                    if (result.reply == nullptr ||
                        !g_variant_is_of_type(result.reply, G_VARIANT_TYPE("(a{sas})"))) {
                        return;
                    }
                    m_knows_rules = true;
                    GVariantIter* connections = nullptr;
                    g_variant_get(result.reply, "(a{sas})", &connections);
                    const gchar* connection = nullptr;
                    GVariantIter* rules = nullptr;
                    while (g_variant_iter_loop(connections, "{&sas}", &connection, &rules)) {
                        const gchar* rule = nullptr;
                        while (g_variant_iter_next(rules, "&s", &rule)) {
                            note_rule(connection, rule);
                        }
                    }
                    g_variant_iter_free(connections);
                });
}

void bus_survey::note_rule(const std::string& connection, const std::string& rule) {
    constexpr char sender[] = "sender='";
    const std::size_t begin = rule.find(sender);
    if (begin == std::string::npos) {
        return;
    }
    const std::size_t name = begin + strlen(sender);
    if (const int child = pid_in_child_name(rule.substr(name, rule.find('\'', name) - name))) {
        m_heard_by_connection[connection].insert(child);
    }
}

void bus_survey::find_listeners() {
    for (const auto& entry : m_heard_by_connection) {
        const std::set<int>& heard = entry.second;
        m_link.call_bus("GetConnectionUnixProcessID", g_variant_new("(s)", entry.first.c_str()),
                        [this, &heard](const call_result& result) {
                            const int pid = unsigned_in(result.reply);
                            for (const int child : heard) {
                                m_listeners.insert({pid, child});
                            }
                        });
    }
}

std::optional<bool> bus_survey::listens(int pid, int child) const {
    if (!m_knows_rules) {
        return std::nullopt;
    }
    return m_listeners.count({pid, child}) != 0;
}

}  // namespace vaskctl
