// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "libdbus_caller.h"

#include <string.h>

#include "bus/bus_names.h"

namespace {

DBusMessage* new_command(const char* name, int id, const char* argument) {
    DBusMessage* message =
        dbus_message_new_method_call(name, VASK_CHILD_PATH, VASK_CHILD_INTERFACE, "Command");
    dbus_message_append_args(message, DBUS_TYPE_INT32, &id, DBUS_TYPE_STRING, &argument,
                             DBUS_TYPE_INVALID);
    return message;
}

bool gives_owner(DBusMessage* message, const char* wanted_name) {
    const char* name = nullptr;
    const char* old_owner = nullptr;
    const char* new_owner = nullptr;
    return dbus_message_is_signal(message, DBUS_INTERFACE_DBUS, "NameOwnerChanged") &&
           dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING,
                                 &old_owner, DBUS_TYPE_STRING, &new_owner, DBUS_TYPE_INVALID) &&
           strcmp(name, wanted_name) == 0 && *new_owner != '\0';
}

}  // namespace

libdbus_caller::libdbus_caller() : m_connection(dbus_bus_get_private(DBUS_BUS_SESSION, nullptr)) {}

libdbus_caller::~libdbus_caller() {
    dbus_connection_close(m_connection);
    dbus_connection_unref(m_connection);
}

std::optional<std::string> libdbus_caller::call(const char* name, int id, const char* argument) {
    DBusMessage* message = new_command(name, id, argument);
    DBusMessage* reply =
        dbus_connection_send_with_reply_and_block(m_connection, message, -1, nullptr);
    dbus_message_unref(message);
    if (reply == nullptr) {
        return std::nullopt;
    }
    std::optional<std::string> answer;
    const char* text = nullptr;
    if (dbus_message_get_args(reply, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID)) {
        answer = text;
    }
    dbus_message_unref(reply);
    return answer;
}

void libdbus_caller::call_no_reply(const char* name, int id, const char* argument) {
    DBusMessage* message = new_command(name, id, argument);
    dbus_message_set_no_reply(message, TRUE);
    dbus_connection_send(m_connection, message, nullptr);
    dbus_message_unref(message);
}

void libdbus_caller::watch_names() {
    dbus_bus_add_match(m_connection,
                       "type='signal',sender='" DBUS_SERVICE_DBUS "',path='" DBUS_PATH_DBUS
                       "',interface='" DBUS_INTERFACE_DBUS "',member='NameOwnerChanged'",
                       nullptr);
    dbus_connection_flush(m_connection);
}

void libdbus_caller::wait_for_owner(const char* name) {
    for (;;) {
        while (DBusMessage* message = dbus_connection_pop_message(m_connection)) {
            const bool found = gives_owner(message, name);
            dbus_message_unref(message);
            if (found) {
                return;
            }
        }
        if (!dbus_connection_read_write(m_connection, -1)) {
            return;
        }
    }
}
