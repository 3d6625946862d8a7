// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "bus_traffic.h"

#include <string.h>

#include "bus/bus_names.h"
#include "bus_survey.h"
#include "process_table.h"

namespace vaskctl {

namespace {

constexpr int bus_timeout_msec = 1000;

// A caller may never be answered; only so many are remembered.
constexpr std::size_t most_open_commands = 100000;
constexpr std::size_t most_described_names = 100000;

std::string text_of(const gchar* text) {
    return text != nullptr ? text : "";
}

bool has_type(GVariant* body, const char* type) {
    return body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE(type));
}

}  // namespace

const char* const traffic_rules[5] = {
    "type='method_call',interface='" VASK_CHILD_INTERFACE "'",
    "type='signal',interface='" VASK_CHILD_INTERFACE "'",
    "type='method_return'",
    "type='error'",
    "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged'",
};

bus_link& bus_names::link() {
    if (m_link == nullptr) {
        m_link = std::make_unique<bus_link>(deadline(bus_timeout_msec));
    }
    return *m_link;
}

void bus_names::begin() {
    const deadline until(bus_timeout_msec);
    const bus_survey survey(link(), until, {});
    for (const auto& entry : survey.children()) {
        const int pid = entry.first;
        link().call_bus(
            "GetNameOwner", g_variant_new("(s)", entry.second.bus_name.c_str()),
            [this, pid](const call_result& result) { note_owner(pid, text_in(result.reply)); });
    }
    link().wait(until);
}

int bus_names::child_behind(const std::string& name) const {
    const auto found = m_children.find(name);
    return found != m_children.end() ? found->second : pid_in_child_name(name);
}

void bus_names::note_owner(int child, const std::string& owner) {
    if (!owner.empty()) {
        m_children[owner] = child;
    }
}

void bus_names::forget(const std::string& name) {
    m_children.erase(name);
    m_described.erase(name);
}

std::string bus_names::describe(const std::string& name) {
    const auto known = m_described.find(name);
    if (known != m_described.end()) {
        return known->second;
    }
    std::string text = name;
    link().call_bus("GetConnectionUnixProcessID", g_variant_new("(s)", name.c_str()),
                    [&text](const call_result& result) {
                        if (has_type(result.reply, "(u)")) {
                            guint32 pid = 0;
                            g_variant_get(result.reply, "(u)", &pid);
                            text = describe_process(static_cast<int>(pid));
                        }
                    });
    link().wait(deadline(bus_timeout_msec));
    if (m_described.size() >= most_described_names) {
        m_described.clear();
    }
    m_described[name] = text;
    return text;
}

traffic_event bus_traffic::event_of(int pid, double time, const char* kind) {
    traffic_event event;
    event.time = time;
    event.pid = pid;
    event.child = child_name(pid);
    event.kind = kind;
    return event;
}

const std::string& bus_traffic::child_name(int pid) {
    if (m_child_names.size() >= most_described_names) {
        m_child_names.clear();
    }
    std::string& name = m_child_names[pid];
    if (name.empty()) {
        name = describe_process(pid);
    }
    return name;
}

std::vector<traffic_event> bus_traffic::note(GDBusMessage* message, double time) {
    std::optional<traffic_event> event;
    switch (g_dbus_message_get_message_type(message)) {
        case G_DBUS_MESSAGE_TYPE_METHOD_CALL:
            event = note_call(message, time);
            break;
        case G_DBUS_MESSAGE_TYPE_SIGNAL:
            event = note_signal(message, time);
            break;
        case G_DBUS_MESSAGE_TYPE_METHOD_RETURN:
        case G_DBUS_MESSAGE_TYPE_ERROR:
            event = note_answer(message, time);
            break;
        default:
            break;
    }
    return event ? std::vector<traffic_event>{*event} : std::vector<traffic_event>{};
}

std::optional<traffic_event> bus_traffic::note_call(GDBusMessage* message, double time) {
    const int pid = m_names.child_behind(text_of(g_dbus_message_get_destination(message)));
    GVariant* body = g_dbus_message_get_body(message);
    const std::string member = text_of(g_dbus_message_get_member(message));
    if (pid == 0) {
        return std::nullopt;
    }
    if (member == "Command" && has_type(body, "(is)")) {
        return note_command(message, event_of(pid, time, "command"));
    }
    if (member != "SetWindow" || !has_type(body, "(iiiiu)")) {
        return std::nullopt;
    }
    traffic_event event = event_of(pid, time, "window");
    gint32 x = 0, y = 0, width = 0, height = 0;
    guint32 id = 0;
    g_variant_get(body, "(iiiiu)", &x, &y, &width, &height, &id);
    char window[32];
    g_snprintf(window, sizeof(window), "0x%x", id);
    event.window = {std::to_string(x), std::to_string(y), std::to_string(width),
                    std::to_string(height), window};
    event.what = "window " + std::string(window) + " at " + std::to_string(x) + "," +
                 std::to_string(y) + " size " + std::to_string(width) + "x" +
                 std::to_string(height);
    event.peer = m_names.describe(text_of(g_dbus_message_get_sender(message)));
    return event;
}

std::optional<traffic_event> bus_traffic::note_command(GDBusMessage* message, traffic_event event) {
    gint32 number = 0;
    const gchar* argument = nullptr;
    g_variant_get(g_dbus_message_get_body(message), "(i&s)", &number, &argument);
    const std::string sender = text_of(g_dbus_message_get_sender(message));
    const bool wants_reply =
        (g_dbus_message_get_flags(message) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) == 0;
    if (wants_reply && m_open.size() < most_open_commands) {
        m_open[{sender, g_dbus_message_get_serial(message)}] = {event.pid, number, event.time};
    }
    event.number = number;
    event.text = argument;
    event.what = "command " + std::to_string(number);
    event.peer = m_names.describe(sender);
    return event;
}

std::optional<traffic_event> bus_traffic::note_signal(GDBusMessage* message, double time) {
    const std::string member = text_of(g_dbus_message_get_member(message));
    if (member == "NameOwnerChanged") {
        return note_owner_change(message, time);
    }
    GVariant* body = g_dbus_message_get_body(message);
    const int pid = m_names.child_behind(text_of(g_dbus_message_get_sender(message)));
    if (pid == 0 || member != VASK_CHILD_SIGNAL || !has_type(body, "(is)")) {
        return std::nullopt;
    }
    gint32 number = 0;
    const gchar* data = nullptr;
    g_variant_get(body, "(i&s)", &number, &data);
    traffic_event event = event_of(pid, time, "signal");
    event.number = number;
    event.text = data;
    event.what = "signal " + std::to_string(number);
    return event;
}

std::optional<traffic_event> bus_traffic::note_owner_change(GDBusMessage* message, double time) {
    GVariant* body = g_dbus_message_get_body(message);
    if (!has_type(body, "(sss)")) {
        return std::nullopt;
    }
    const gchar* name = nullptr;
    const gchar* before = nullptr;
    const gchar* after = nullptr;
    g_variant_get(body, "(&s&s&s)", &name, &before, &after);
    // A connection has ended, and everything that it has sent has come before this. An answer to it
    // may still come.
    if (*name == ':' && *after == '\0') {
        const auto open = m_open.lower_bound({name, 0});
        if (open == m_open.end() || open->first.first != name) {
            m_names.forget(name);
        }
    }
    const int pid = pid_in_child_name(name);
    if (pid == 0) {
        return std::nullopt;
    }
    const bool comes = *after != '\0';
    m_names.note_owner(pid, after);
    if (comes) {
        m_child_names.erase(pid);
    }
    traffic_event event = event_of(pid, time, comes ? "comes" : "goes");
    event.what = comes ? "comes to the bus" : "leaves the bus";
    if (!comes) {
        m_child_names.erase(pid);
    }
    return event;
}

std::optional<traffic_event> bus_traffic::note_answer(GDBusMessage* message, double time) {
    const auto found = m_open.find({text_of(g_dbus_message_get_destination(message)),
                                    g_dbus_message_get_reply_serial(message)});
    if (found == m_open.end()) {
        return std::nullopt;
    }
    const open_command asked = found->second;
    const std::string caller = found->first.first;
    m_open.erase(found);
    const bool is_error = g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_ERROR;
    traffic_event event = event_of(asked.pid, time, is_error ? "error" : "reply");
    event.number = asked.number;
    event.what =
        (is_error ? "failure of command " : "reply to command ") + std::to_string(asked.number);
    event.text = is_error ? text_of(g_dbus_message_get_error_name(message))
                          : text_in(g_dbus_message_get_body(message));
    event.peer = m_names.describe(caller);
    event.is_answer = true;
    event.msec = (time - asked.time) * 1000;
    return event;
}

}  // namespace vaskctl
