// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/bus_client.h"

#include <poll.h>

#include <stdexcept>

#include "vask_test/main_loop.h"

namespace vask_test {

namespace {

// The longest messages take seconds, and minutes on a busy machine.
constexpr int longest_call_msec = 100000;

std::string or_empty(const char* text) {
    return text ? text : "";
}

std::string take_text(DBusMessageIter* values) {
    const char* text = nullptr;
    if (dbus_message_iter_get_arg_type(values) == DBUS_TYPE_STRING) {
        dbus_message_iter_get_basic(values, &text);
    }
    return or_empty(text);
}

bus_reply read_reply(DBusMessage* message) {
    bus_reply reply;
    reply.ok = dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_RETURN;
    reply.signature = or_empty(dbus_message_get_signature(message));
    reply.error_name = or_empty(dbus_message_get_error_name(message));
    DBusMessageIter values;
    dbus_message_iter_init(message, &values);
    reply.text = take_text(&values);
    if (dbus_message_iter_get_arg_type(&values) == DBUS_TYPE_ARRAY) {
        reply.elements = dbus_message_iter_get_element_count(&values);
    }
    return reply;
}

bus_signal read_signal(DBusMessage* message) {
    bus_signal signal;
    signal.sender = or_empty(dbus_message_get_sender(message));
    signal.path = or_empty(dbus_message_get_path(message));
    signal.interface = or_empty(dbus_message_get_interface(message));
    signal.member = or_empty(dbus_message_get_member(message));
    signal.signature = or_empty(dbus_message_get_signature(message));
    DBusMessageIter values;
    dbus_message_iter_init(message, &values);
    signal.first_text = take_text(&values);
    if (dbus_message_iter_get_arg_type(&values) == DBUS_TYPE_INT32) {
        dbus_int32_t number = 0;
        dbus_message_iter_get_basic(&values, &number);
        signal.number = number;
    }
    dbus_message_iter_next(&values);
    signal.text = take_text(&values);
    return signal;
}

DBusConnection* open_connection(const std::string& address) {
    DBusConnection* connection = nullptr;
    if (address.empty()) {
        connection = dbus_bus_get_private(DBUS_BUS_SESSION, nullptr);
    } else {
        connection = dbus_connection_open_private(address.c_str(), nullptr);
        if (connection && !dbus_bus_register(connection, nullptr)) {
            connection = nullptr;
        }
    }
    if (!connection) {
        throw std::runtime_error("no connection to the bus");
    }
    dbus_connection_set_exit_on_disconnect(connection, FALSE);
    return connection;
}

}  // namespace

bus_client::bus_client(const std::string& address) : m_connection(open_connection(address)) {}

bus_client::~bus_client() {
    m_awaited.clear();
    dbus_connection_close(m_connection);
    dbus_connection_unref(m_connection);
}

std::string bus_client::unique_name() const {
    return or_empty(dbus_bus_get_unique_name(m_connection));
}

// One reading takes a few kilobytes at most.
void bus_client::read_what_has_arrived() {
    pollfd socket = {-1, POLLIN, 0};
    dbus_connection_get_unix_fd(m_connection, &socket.fd);
    do {
        dbus_connection_read_write(m_connection, 0);
    } while (dbus_connection_get_is_connected(m_connection) && poll(&socket, 1, 0) > 0);
}

void bus_client::receive() {
    read_what_has_arrived();
    while (message_ptr message{dbus_connection_pop_message(m_connection)}) {
        if (dbus_message_get_type(message.get()) == DBUS_MESSAGE_TYPE_SIGNAL) {
            // What has a destination is about names of this very connection.
            if (!dbus_message_get_destination(message.get())) {
                m_signals.push_back(read_signal(message.get()));
            }
            continue;
        }
        const auto call = m_awaited.find(dbus_message_get_reply_serial(message.get()));
        if (call == m_awaited.end()) {
            ++m_unexpected_replies;
        } else {
            call->second = std::move(message);
        }
    }
}

void bus_client::send(const message_ptr& message) {
    dbus_connection_send(m_connection, message.get(), nullptr);
    dbus_connection_flush(m_connection);
}

bool bus_client::try_call(const message_ptr& message, int deadline_msec, bus_reply* reply) {
    dbus_uint32_t serial = 0;
    dbus_connection_send(m_connection, message.get(), &serial);
    m_awaited[serial] = nullptr;
    // Another call may be made and answered meanwhile.
    const auto is_over = [this, serial] {
        receive();
        return m_awaited[serial] || !dbus_connection_get_is_connected(m_connection);
    };
    wait_until(is_over, deadline_msec);
    const message_ptr answer = std::move(m_awaited[serial]);
    m_awaited.erase(serial);
    if (answer) {
        *reply = read_reply(answer.get());
    }
    return answer != nullptr;
}

bus_reply bus_client::call(const message_ptr& message) {
    bus_reply reply;
    if (!try_call(message, longest_call_msec, &reply)) {
        throw std::runtime_error("no answer, not even an error");
    }
    return reply;
}

bus_reply bus_client::call_bus(const std::string& method, const std::string& argument) {
    message_ptr message(dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                                     DBUS_INTERFACE_DBUS, method.c_str()));
    const char* text = argument.c_str();
    if (!argument.empty()) {
        dbus_message_append_args(message.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    }
    return call(message);
}

bool bus_client::is_owned(const std::string& name) {
    return call_bus("GetNameOwner", name).ok;
}

bool bus_client::wait_for_name(const std::string& name) {
    return wait_until([&] { return is_owned(name); });
}

int bus_client::request_name(const std::string& name) {
    return dbus_bus_request_name(m_connection, name.c_str(), 0, nullptr);
}

void bus_client::release_name(const std::string& name) {
    dbus_bus_release_name(m_connection, name.c_str(), nullptr);
}

void bus_client::subscribe(const std::string& rule) {
    DBusError error = DBUS_ERROR_INIT;
    dbus_bus_add_match(m_connection, rule.c_str(), &error);
    if (dbus_error_is_set(&error)) {
        throw std::runtime_error(error.message);
    }
}

std::vector<bus_signal> bus_client::signals() {
    receive();
    return m_signals;
}

bool bus_client::wait_for_signals(std::size_t count) {
    return wait_until([&] { return signals().size() >= count; });
}

}  // namespace vask_test
