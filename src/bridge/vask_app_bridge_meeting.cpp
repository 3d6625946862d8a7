// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib.h>
#include <glib-object.h>
#include <glib.h>
#include <string.h>

#include "bus/bus_names.h"
#include "bus/session_bus.h"
#include "foundation/c_border.h"
#include "foundation/glib_handles.h"
#include "vask_app_bridge.h"

void vask_app_bridge::init_proxy() {
    connect_name_owner_changed();
}

void vask_app_bridge::connect_name_owner_changed() {
    if (m_bus_daemon_proxy != nullptr) {
        return;
    }
    gerror_holder error;
    unique_bus_connection connection = open_session_bus(error.out());
    if (!connection) {
        vask_p(VASK_P_ERR, "Failed to open DBUS session: %s", error->message);
    }
    const unique_bus_connection former(m_bus_connection);
    m_bus_connection = connection.release();

    if (m_bus_connection != nullptr) {
        m_bus_daemon_proxy = new_bus_daemon_proxy(m_bus_connection).release();
    }
    if (m_bus_daemon_proxy == nullptr) {
        vask_p(VASK_P_ERR, "Failed to get DBUS proxy");
        return;
    }
    dbus_g_proxy_add_signal(m_bus_daemon_proxy, "NameOwnerChanged", G_TYPE_STRING, G_TYPE_STRING,
                            G_TYPE_STRING, G_TYPE_INVALID);
    dbus_g_proxy_connect_signal(m_bus_daemon_proxy, "NameOwnerChanged",
                                G_CALLBACK(_name_owner_changed), this, nullptr);
    // The request to hear of names waits behind everything else that is unsent. A child that starts
    // before the bus has the request would take its name unheard.
    DBusError silence = DBUS_ERROR_INIT;
    if (!wait_for_bus(m_bus_connection, &silence)) {
        vask_p(VASK_P_ERR, "The session bus does not answer: %s\n", silence.message);
        // The proxy has waited for the bus for the same time, and would stay deaf. The next attempt
        // makes a new one.
        disconnect_name_owner_changed();
    }
    dbus_error_free(&silence);
}

bool vask_app_bridge::is_watching_bus() const {
    return m_bus_daemon_proxy != nullptr && is_bus_connected(m_bus_connection);
}

void vask_app_bridge::disconnect_name_owner_changed() {
    if (m_bus_daemon_proxy == nullptr) {
        return;
    }
    if (is_bus_connected(m_bus_connection)) {
        dbus_g_proxy_disconnect_signal(m_bus_daemon_proxy, "NameOwnerChanged",
                                       G_CALLBACK(_name_owner_changed), this);
    }
    g_object_unref(m_bus_daemon_proxy);
    m_bus_daemon_proxy = nullptr;
}

void vask_app_bridge::_name_owner_changed(DBusGProxy* proxy, const char* name,
                                          const char* old_owner, const char* new_owner,
                                          void* bridge) {
    call_for_c("vask_app_bridge::name_owner_changed()", [&] {
        static_cast<vask_app_bridge*>(bridge)->name_owner_changed(proxy, name, old_owner, new_owner,
                                                                  bridge);
    });
}

void vask_app_bridge::name_owner_changed(DBusGProxy*, const char* name, const char* old_owner,
                                         const char* new_owner, void*) {
    vask_p(VASK_P_DBG, "%s: %s (%p)\n",
           "void vask_app_bridge::name_owner_changed(DBusGProxy*, const char*, const char*, const "
           "char*, void*)",
           name, static_cast<void*>(this));
    if (m_child_proxy[0] == nullptr && m_child_proxy[1] == nullptr) {
        return;
    }
    vask_p(VASK_P_DBG, "m_child_proxy[] = {%p, %p}\n", static_cast<void*>(m_child_proxy[0]),
           static_cast<void*>(m_child_proxy[1]));
    if (!g_str_has_prefix(name, VASK_CHILD_INTERFACE)) {
        return;
    }
    bool all_established = true;
    for (vask_child_proxy* worker : m_child_proxy) {
        if (worker != nullptr && !meet_child(worker, name, old_owner, new_owner)) {
            all_established = false;
        }
    }
    if (all_established) {
        vask_p(VASK_P_DBG, "Disconnect NameOwnerChanged signal\n");
        disconnect_name_owner_changed();
    }
}

// False when the child is not on the bus after this change of owner.
bool vask_app_bridge::meet_child(vask_child_proxy* child, const char* name, const char* old_owner,
                                 const char* new_owner) {
    const char* address = child->get_bus_addr();
    if (!child->is_mine(name)) {
        if (address == nullptr) {
            vask_p(VASK_P_DBG, "Not all established yet.\n");
            return false;
        }
        return true;
    }
    if (*old_owner == '\0' && *new_owner != '\0') {
        if (address == nullptr) {
            vask_p(VASK_P_DBG, "The child has connected to the bus\n");
            child->bus_setup(m_bus_connection);
            if (m_auto_send_type != VASK_AUTO_SEND_SET_WINDOW_NONE && get_window_width() > 0 &&
                get_window_height() > 0) {
                send_window_data(child, true, nullptr);
            }
            flush_child_cmd_buffer(child);
            child->set_bus_addr(new_owner);
        } else if (strcmp(address, new_owner) == 0) {
            vask_p(VASK_P_DBG, "aNewOwner is already the owner\n");
        } else {
            vask_p(VASK_P_INFO, "Here comes a new owner\n");
            child->set_bus_addr(new_owner);
        }
        return true;
    }
    if (address != nullptr && strcmp(address, old_owner) == 0) {
        vask_p(VASK_P_INFO, "The child has lost the connection!\n");
        child->set_bus_addr(nullptr);
        return false;
    }
    return true;
}
