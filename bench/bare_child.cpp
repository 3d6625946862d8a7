// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The least that a parent can meet on the bus: a child made of libdbus alone, which answers
// Command(id, argument) with the argument.

#include <dbus/dbus.h>
#include <stdio.h>
#include <unistd.h>

#include "bus/bus_names.h"

namespace {

bool answer(DBusConnection* connection, DBusMessage* call) {
    dbus_int32_t id = 0;
    const char* argument = nullptr;
    if (!dbus_message_get_args(call, nullptr, DBUS_TYPE_INT32, &id, DBUS_TYPE_STRING, &argument,
                               DBUS_TYPE_INVALID)) {
        return false;
    }
    DBusMessage* reply = dbus_message_new_method_return(call);
    dbus_message_append_args(reply, DBUS_TYPE_STRING, &argument, DBUS_TYPE_INVALID);
    dbus_connection_send(connection, reply, nullptr);
    dbus_message_unref(reply);
    return true;
}

}  // namespace

int main() {
    DBusConnection* connection = dbus_bus_get(DBUS_BUS_SESSION, nullptr);
    if (connection == nullptr) {
        return 1;
    }
    char name[256];
    snprintf(name, sizeof(name), VASK_CHILD_NAME_FORMAT, getpid());
    if (dbus_bus_request_name(connection, name, 0, nullptr) == -1) {
        return 1;
    }
    // What has come together with the answer of the bus is waiting already.
    do {
        while (DBusMessage* message = dbus_connection_pop_message(connection)) {
            if (dbus_message_is_method_call(message, VASK_CHILD_INTERFACE, "Command") &&
                !answer(connection, message)) {
                return 1;
            }
            dbus_message_unref(message);
        }
    } while (dbus_connection_read_write(connection, -1));
    return 0;
}
