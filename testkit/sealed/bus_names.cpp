// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "bus_names.h"

#include <dbus/dbus.h>

#include <memory>

namespace vask_test {

namespace {

constexpr int patience_msec = 5000;

struct closer {
    void operator()(DBusConnection* connection) const {
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
    }
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};

using connection_pointer = std::unique_ptr<DBusConnection, closer>;
using message_pointer = std::unique_ptr<DBusMessage, closer>;

/** Calls the bus itself; with a name as the argument, unless it is null. */
message_pointer call_bus(DBusConnection* connection, const char* method, const char* name) {
    message_pointer call(dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                                      DBUS_INTERFACE_DBUS, method));
    if (name) {
        dbus_message_append_args(call.get(), DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID);
    }
    return message_pointer(
        dbus_connection_send_with_reply_and_block(connection, call.get(), patience_msec, nullptr));
}

pid_t owner_of(DBusConnection* connection, const char* name) {
    const message_pointer reply = call_bus(connection, "GetConnectionUnixProcessID", name);
    dbus_uint32_t pid = 0;
    if (reply) {
        dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_UINT32, &pid, DBUS_TYPE_INVALID);
    }
    return static_cast<pid_t>(pid);
}

}  // namespace

std::vector<owned_name> list_bus_names(const std::string& address) {
    std::vector<owned_name> result;
    const connection_pointer connection(dbus_connection_open_private(address.c_str(), nullptr));
    if (!connection || !dbus_bus_register(connection.get(), nullptr)) {
        return result;
    }
    dbus_connection_set_exit_on_disconnect(connection.get(), FALSE);
    const message_pointer reply = call_bus(connection.get(), "ListNames", nullptr);
    char** names = nullptr;
    int count = 0;
    if (!reply || !dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING,
                                         &names, &count, DBUS_TYPE_INVALID)) {
        return result;
    }
    for (int i = 0; i < count; ++i) {
        const std::string name = names[i];
        if (name[0] == ':' || name == DBUS_SERVICE_DBUS) {
            continue;
        }
        const pid_t owner = owner_of(connection.get(), names[i]);
        // Who has left meanwhile has left nothing.
        if (owner > 0) {
            result.push_back({name, owner});
        }
    }
    dbus_free_string_array(names);
    return result;
}

}  // namespace vask_test
