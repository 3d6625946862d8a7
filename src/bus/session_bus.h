// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SESSION_BUS_H
#define VASK_SESSION_BUS_H

#include <dbus/dbus-glib.h>
#include <dbus/dbus.h>

#include "bus/bus_handles.h"

// Opens the process's connection to the session bus. The bus library would end the process when
// the bus goes away; that is switched off here, so whoever opens it has to live with a lost bus.
// A connection that is lost already counts as none: null with an error.
unique_bus_connection open_session_bus(GError** error);

// False once the bus has gone away. Every bus proxy of such a connection is dead then, and the bus
// library takes no call on it, not even to disconnect a signal.
bool is_bus_connected(DBusGConnection* connection);

// Blocks until the kernel has everything that was sent on this connection, or the connection is
// lost. False when the bus has read nothing for so long that it counts as stopped. Nothing is
// handled meanwhile.
bool hand_over(DBusGConnection* connection, int patience_msec);

// Blocks until the bus has taken everything that was sent on this connection, and nothing is
// handled meanwhile. False with an error when the bus has not read or not answered within the bus
// library's usual time for an answer, about 25 s, or when the connection is lost.
bool wait_for_bus(DBusGConnection* connection, DBusError* error);

// A proxy of the bus daemon itself, or null.
unique_bus_proxy new_bus_daemon_proxy(DBusGConnection* connection);

// Why a text must not be handed to the bus library, which would end the process or lose the
// connection over it; null when it may. A null text may: it travels as the empty string.
const char* find_text_problem(const char* text);

// The problem of everything that is sent once is_bus_connected() is false.
inline constexpr char session_bus_is_lost[] = "The connection to the session bus is lost";

inline const char* null_as_empty(const char* text) {
    return text != nullptr ? text : "";
}

#endif
