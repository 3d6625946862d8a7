// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "bus/session_bus.h"

#include <dbus/dbus-glib-lowlevel.h>
#include <dbus/dbus.h>
#include <poll.h>
#include <string.h>

namespace {

// The bus drops the connection of a program that sends a longer message. A header takes less than
// this allowance.
constexpr size_t header_allowance = 65536;
constexpr size_t longest_text = static_cast<size_t>(DBUS_MAXIMUM_MESSAGE_LENGTH) - header_allowance;

// How long the bus library itself waits for an answer.
constexpr int answer_timeout_msec = 25000;
constexpr gint64 usec_per_msec = 1000;

// False when the bus reads nothing for that long. Signals do not prolong it, as they do where the
// bus library waits.
bool wait_until_bus_reads(DBusConnection* connection, int patience_msec) {
    pollfd socket = {-1, POLLOUT, 0};
    if (!dbus_connection_get_unix_fd(connection, &socket.fd)) {
        return false;
    }
    const gint64 deadline = g_get_monotonic_time() + patience_msec * usec_per_msec;
    for (gint64 left = deadline - g_get_monotonic_time(); left > 0;
         left = deadline - g_get_monotonic_time()) {
        if (poll(&socket, 1, static_cast<int>(left / usec_per_msec) + 1) > 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

unique_bus_connection open_session_bus(GError** error) {
    unique_bus_connection connection(dbus_g_bus_get(DBUS_BUS_SESSION, error));
    if (!connection) {
        return nullptr;
    }
    DBusConnection* raw = dbus_g_connection_get_connection(connection.get());
    dbus_connection_set_exit_on_disconnect(raw, FALSE);
    // The bus library may hand out a lost connection until a main loop has dispatched the loss.
    if (!is_bus_connected(connection.get())) {
        g_set_error_literal(error, DBUS_GERROR, DBUS_GERROR_DISCONNECTED, session_bus_is_lost);
        return nullptr;
    }
    return connection;
}

bool is_bus_connected(DBusGConnection* connection) {
    return connection != nullptr &&
           dbus_connection_get_is_connected(dbus_g_connection_get_connection(connection));
}

bool hand_over(DBusGConnection* connection, int patience_msec) {
    DBusConnection* raw = dbus_g_connection_get_connection(connection);
    while (dbus_connection_get_is_connected(raw) && dbus_connection_has_messages_to_send(raw)) {
        if (!wait_until_bus_reads(raw, patience_msec)) {
            return false;
        }
        dbus_connection_read_write(raw, 0);
    }
    return true;
}

bool wait_for_bus(DBusGConnection* connection, DBusError* error) {
    const unique_bus_message question(dbus_message_new_method_call(
        DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "GetId"));
    DBusPendingCall* call = nullptr;
    dbus_connection_send_with_reply(dbus_g_connection_get_connection(connection), question.get(),
                                    &call, answer_timeout_msec);
    if (call == nullptr) {
        dbus_set_error_const(error, DBUS_ERROR_DISCONNECTED, session_bus_is_lost);
        return false;
    }
    const unique_pending_call pending(call);
    unique_bus_message answer;
    if (hand_over(connection, answer_timeout_msec)) {
        dbus_pending_call_block(pending.get());
        answer.reset(dbus_pending_call_steal_reply(pending.get()));
    }
    if (!answer) {
        dbus_set_error_const(error, DBUS_ERROR_NO_REPLY, "The bus does not read");
        return false;
    }
    return !dbus_set_error_from_message(error, answer.get());
}

unique_bus_proxy new_bus_daemon_proxy(DBusGConnection* connection) {
    return unique_bus_proxy(dbus_g_proxy_new_for_name(connection, DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                                      DBUS_INTERFACE_DBUS));
}

const char* find_text_problem(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    if (strlen(text) > longest_text) {
        return "The text is too long for the bus";
    }
    if (!dbus_validate_utf8(text, nullptr)) {
        return "The text is not valid UTF-8";
    }
    return nullptr;
}
