// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/served_child.h"

#include <algorithm>

namespace vask_test {

std::string child_path() {
    std::string path = std::string("/") + child_interface;
    std::replace(path.begin(), path.end(), '.', '/');
    return path;
}

std::string child_name(int pid) {
    return std::string(child_interface) + "_" + std::to_string(pid);
}

message_ptr served_child::new_call(const char* interface, const char* method) const {
    return message_ptr(
        dbus_message_new_method_call(m_name.c_str(), child_path().c_str(), interface, method));
}

message_ptr served_child::new_command(int id, const std::string& argument) const {
    message_ptr message = new_call(child_interface, "Command");
    const dbus_int32_t number = id;
    const char* text = argument.c_str();
    dbus_message_append_args(message.get(), DBUS_TYPE_INT32, &number, DBUS_TYPE_STRING, &text,
                             DBUS_TYPE_INVALID);
    return message;
}

bus_reply served_child::command(int id, const std::string& argument) {
    return m_client.call(new_command(id, argument));
}

void served_child::command_without_reply(int id, const std::string& argument) {
    const message_ptr message = new_command(id, argument);
    dbus_message_set_no_reply(message.get(), TRUE);
    m_client.send(message);
}

message_ptr served_child::new_set_window(int x, int y, int w, int h, unsigned int id) const {
    message_ptr message = new_call(child_interface, "SetWindow");
    const dbus_int32_t numbers[] = {x, y, w, h};
    const dbus_uint32_t window = id;
    dbus_message_append_args(message.get(), DBUS_TYPE_INT32, &numbers[0], DBUS_TYPE_INT32,
                             &numbers[1], DBUS_TYPE_INT32, &numbers[2], DBUS_TYPE_INT32,
                             &numbers[3], DBUS_TYPE_UINT32, &window, DBUS_TYPE_INVALID);
    return message;
}

bus_reply served_child::set_window(int x, int y, int w, int h, unsigned int id) {
    return m_client.call(new_set_window(x, y, w, h, id));
}

bus_reply served_child::introspect() {
    return m_client.call(new_call(DBUS_INTERFACE_INTROSPECTABLE, "Introspect"));
}

}  // namespace vask_test
