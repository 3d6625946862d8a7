// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib.h>
#include <glib-object.h>
#include <glib.h>

#include "bridge/vask_child_proxy_state.h"
#include "bus/bus_names.h"
#include "bus/session_bus.h"
#include "bus/vask_marshal.h"
#include "foundation/c_border.h"
#include "vask_app_bridge.h"

child_cmd_buffer::child_cmd_buffer(int cmd_id, const char* cmd_argument)
    : id(cmd_id), argument(null_as_empty(cmd_argument)) {}

child_cmd_buffer::child_cmd_buffer(int cmd_id, const std::string& cmd_argument)
    : id(cmd_id), argument(cmd_argument) {}

vask_child_proxy::vask_child_proxy(vask_app_bridge& bridge, const char* name, int pid,
                                   unsigned int watch_id)
    : m_state(std::make_unique<vask_child_proxy_state>(bridge, pid, watch_id)) {
    obj_name = name;
    vask_p(VASK_P_DBG, "Created child_proxy for %d\n", pid);
    if (pid != 0) {
        m_state->bus_name.reset(g_strdup_printf(VASK_CHILD_NAME_FORMAT, pid));
        vask_p(VASK_P_DBG, "D-Bus Interface of the child is '%s'\n", m_state->bus_name.get());
    }
}

vask_child_proxy::~vask_child_proxy() {
    if (m_state->end_watch != 0) {
        g_source_remove(m_state->end_watch);
    }
    if (m_state->pid != 0) {
        g_spawn_close_pid(m_state->pid);
    }
    bus_destroy();
}

int vask_child_proxy::get_pid() const {
    return m_state->pid;
}

void vask_child_proxy::set_terminating() {
    m_state->terminating = true;
}

bool vask_child_proxy::is_terminating() const {
    return m_state->terminating;
}

bool vask_child_proxy::is_mine(const char* name) const {
    return m_state->bus_name && name != nullptr && g_str_equal(m_state->bus_name.get(), name);
}

const char* vask_child_proxy::get_bus_addr() const {
    return m_state->bus_addr.get();
}

void vask_child_proxy::set_bus_addr(const char* addr) {
    m_state->bus_addr.reset(g_strdup(addr));
}

DBusGProxy* vask_child_proxy::get_bus_proxy() const {
    return m_state->bus_proxy.get();
}

bool vask_child_proxy::is_bus_alive() const {
    return m_state->bus_proxy && is_bus_connected(m_state->connection.get());
}

void vask_child_proxy::bus_setup(DBusGConnection* connection) {
    bus_destroy();
    const char* const name = m_state->bus_name.get();
    if (!is_bus_connected(connection) || name == nullptr) {
        return;
    }
    // This may throw. A proxy without its signal could not be taken down.
    m_state->farewell.watch_name(connection, name);
    DBusGProxy* const proxy =
        dbus_g_proxy_new_for_name(connection, name, VASK_CHILD_PATH, VASK_CHILD_INTERFACE);
    m_state->connection.reset(dbus_g_connection_ref(connection));
    m_state->bus_proxy.reset(proxy);
    dbus_g_object_register_marshaller(g_cclosure_user_marshal_VOID__INT_STRING, G_TYPE_NONE,
                                      G_TYPE_INT, G_TYPE_STRING, G_TYPE_INVALID);
    dbus_g_proxy_add_signal(proxy, VASK_CHILD_SIGNAL, G_TYPE_INT, G_TYPE_STRING, G_TYPE_INVALID);
    dbus_g_proxy_connect_signal(proxy, VASK_CHILD_SIGNAL, G_CALLBACK(_child_signal), this, nullptr);
    dbus_g_object_register_marshaller(g_cclosure_user_marshal_VOID__UINT_INT_STRING, G_TYPE_NONE,
                                      G_TYPE_UINT, G_TYPE_INT, G_TYPE_STRING, G_TYPE_INVALID);
}

void vask_child_proxy::bus_destroy() {
    if (!m_state->bus_proxy) {
        return;
    }
    if (is_bus_alive()) {
        dbus_g_proxy_disconnect_signal(m_state->bus_proxy.get(), VASK_CHILD_SIGNAL,
                                       G_CALLBACK(_child_signal), this);
    }
    m_state->farewell.leave_name();
    m_state->bus_proxy.reset();
    m_state->connection.reset();
}

void vask_child_proxy::enqueue_cmd(child_cmd_buffer* cmd) {
    m_state->waiting_cmds.push(std::unique_ptr<child_cmd_buffer>(cmd));
}

child_cmd_buffer* vask_child_proxy::dequeue_cmd() {
    if (m_state->waiting_cmds.empty()) {
        return nullptr;
    }
    child_cmd_buffer* cmd = m_state->waiting_cmds.front().release();
    m_state->waiting_cmds.pop();
    return cmd;
}

void vask_child_proxy::queue_purge() {
    m_state->waiting_cmds = {};
}

void vask_child_proxy::_child_signal(DBusGProxy*, int signal_id, const char* data,
                                     void* user_data) {
    vask_child_proxy_state& state = *static_cast<vask_child_proxy*>(user_data)->m_state;
    // The callback may delete the bridge, and this proxy with it, or let the end be reported.
    const life_mark life(state.life);
    const bool has_farewell_begun = state.farewell.has_begun();
    const gint64 start = g_get_monotonic_time();
    call_for_c("vask_app_bridge::child_signal()",
               [&] { state.bridge.child_signal(signal_id, data); });
    if (has_farewell_begun && !life.is_over()) {
        state.farewell.lengthen(g_get_monotonic_time() - start);
    }
}
