// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "bridge/vask_child_farewell.h"

#include <dbus/dbus-glib-lowlevel.h>

#include <utility>

#include "bridge/child_end_watch.h"
#include "bus/session_bus.h"

namespace {

constexpr guint tick_msec = 50;
constexpr int ticks_of_patience = 20;

std::string loss_rule(const std::string& name) {
    return "type='signal',sender='" DBUS_SERVICE_DBUS "',interface='" DBUS_INTERFACE_DBUS
           "',member='NameOwnerChanged',arg0='" +
           name + "'";
}

}  // namespace

vask_child_farewell::~vask_child_farewell() {
    leave_name();
}

void vask_child_farewell::watch_name(DBusGConnection* connection, const char* name) {
    leave_name();
    m_name = name;
    m_rule = loss_rule(m_name);
    m_connection.reset(dbus_g_connection_ref(connection));
    m_has_owner = true;
    DBusConnection* raw = dbus_g_connection_get_connection(connection);
    dbus_connection_add_filter(raw, _filter, this, nullptr);
    // Without a place for an error the bus library does not wait for the answer.
    dbus_bus_add_match(raw, m_rule.c_str(), nullptr);
}

void vask_child_farewell::leave_name() {
    m_has_owner = false;
    if (!m_connection) {
        return;
    }
    DBusConnection* raw = dbus_g_connection_get_connection(m_connection.get());
    dbus_connection_remove_filter(raw, _filter, this);
    if (is_bus_connected(m_connection.get())) {
        dbus_bus_remove_match(raw, m_rule.c_str(), nullptr);
    }
    m_connection.reset();
}

bool vask_child_farewell::is_needed() const {
    return m_has_owner && !has_begun();
}

guint vask_child_farewell::begin(int pid, std::function<void()> report) {
    m_report = std::move(report);
    m_timer_id = g_timeout_add(tick_msec, _tick, this);
    name_child_source(m_timer_id, "last signals", pid);
    return m_timer_id;
}

bool vask_child_farewell::has_begun() const {
    return m_timer_id != 0;
}

void vask_child_farewell::lengthen(gint64 usec) {
    GSource* timer = find_timer();
    if (timer != nullptr) {
        g_source_set_ready_time(timer, g_source_get_ready_time(timer) + usec);
    }
}

GSource* vask_child_farewell::find_timer() const {
    return has_begun() ? g_main_context_find_source_by_id(nullptr, m_timer_id) : nullptr;
}

DBusHandlerResult vask_child_farewell::_filter(DBusConnection*, DBusMessage* message,
                                               void* farewell) {
    static_cast<vask_child_farewell*>(farewell)->hear(message);
    return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
}

void vask_child_farewell::hear(DBusMessage* message) {
    if (dbus_message_is_signal(message, DBUS_INTERFACE_LOCAL, "Disconnected")) {
        m_has_owner = false;
    } else if (dbus_message_is_signal(message, DBUS_INTERFACE_DBUS, "NameOwnerChanged") &&
               dbus_message_has_sender(message, DBUS_SERVICE_DBUS)) {
        const char* name = nullptr;
        const char* old_owner = nullptr;
        const char* new_owner = nullptr;
        if (!dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING,
                                   &old_owner, DBUS_TYPE_STRING, &new_owner, DBUS_TYPE_INVALID) ||
            m_name != name) {
            return;
        }
        m_has_owner = *new_owner != '\0';
    }
    GSource* timer = m_has_owner ? nullptr : find_timer();
    if (timer != nullptr) {
        // The timer reports, not this function: while a message is being handled, a main loop that
        // the parent runs in its callback would hear nothing of the bus.
        g_source_set_ready_time(timer, 0);
    }
}

gboolean vask_child_farewell::_tick(gpointer data) {
    auto* farewell = static_cast<vask_child_farewell*>(data);
    if (farewell->m_has_owner && ++farewell->m_ticks < ticks_of_patience) {
        return G_SOURCE_CONTINUE;
    }
    // The report may end the farewell while it runs.
    const std::function<void()> report = std::move(farewell->m_report);
    report();
    return G_SOURCE_REMOVE;
}
