// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_BUS_HANDLES_H
#define VASK_BUS_HANDLES_H

#include <dbus/dbus-glib.h>
#include <dbus/dbus.h>
#include <glib-object.h>

#include <memory>

// Owners of one reference each to what the bus libraries hand out.

struct bus_connection_unref {
    void operator()(DBusGConnection* connection) const { dbus_g_connection_unref(connection); }
};
using unique_bus_connection = std::unique_ptr<DBusGConnection, bus_connection_unref>;

struct bus_proxy_unref {
    void operator()(DBusGProxy* proxy) const { g_object_unref(proxy); }
};
using unique_bus_proxy = std::unique_ptr<DBusGProxy, bus_proxy_unref>;

struct bus_message_unref {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using unique_bus_message = std::unique_ptr<DBusMessage, bus_message_unref>;

// The question is withdrawn if it was not answered.
struct pending_call_cancel {
    void operator()(DBusPendingCall* call) const {
        dbus_pending_call_cancel(call);
        dbus_pending_call_unref(call);
    }
};
using unique_pending_call = std::unique_ptr<DBusPendingCall, pending_call_cancel>;

#endif
