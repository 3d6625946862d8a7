// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "bus_monitor.h"

#include <chrono>
#include <ostream>
#include <stdexcept>

#include "vask_test/timeout_factor.h"

namespace vask_test {

namespace {

constexpr const char* marker_interface = "com.example.vask.test.Monitor";
constexpr int read_timeout_msec = 100;
constexpr double deadline_seconds = 30;

void become_monitor(DBusConnection* connection) {
    DBusMessage* call = dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                                     DBUS_INTERFACE_MONITORING, "BecomeMonitor");
    const char** no_rules = nullptr;
    const dbus_uint32_t no_flags = 0;
    dbus_message_append_args(call, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING, &no_rules, 0,
                             DBUS_TYPE_UINT32, &no_flags, DBUS_TYPE_INVALID);
    DBusMessage* reply = dbus_connection_send_with_reply_and_block(
        connection, call, DBUS_TIMEOUT_USE_DEFAULT, nullptr);
    dbus_message_unref(call);
    if (!reply) {
        throw std::runtime_error("the bus does not let itself be monitored");
    }
    dbus_message_unref(reply);
}

bus_message describe(DBusMessage* message) {
    const char* member = dbus_message_get_member(message);
    bus_message result = {"", member ? member : ""};
    switch (dbus_message_get_type(message)) {
        case DBUS_MESSAGE_TYPE_METHOD_CALL:
            result.kind = dbus_message_get_no_reply(message) ? "call without reply" : "call";
            break;
        case DBUS_MESSAGE_TYPE_METHOD_RETURN:
            result.kind = "reply";
            break;
        case DBUS_MESSAGE_TYPE_ERROR:
            result.kind = "error";
            break;
        default:
            result.kind = "signal";
            break;
    }
    return result;
}

}  // namespace

bool operator==(const bus_message& a, const bus_message& b) {
    return a.kind == b.kind && a.member == b.member;
}

void PrintTo(const bus_message& message, std::ostream* out) {
    *out << message.kind << " " << message.member;
}

bus_monitor::bus_monitor()
    : m_observer(dbus_bus_get_private(DBUS_BUS_SESSION, nullptr)),
      m_session(dbus_bus_get(DBUS_BUS_SESSION, nullptr)) {
    if (!m_observer || !m_session) {
        throw std::runtime_error("there is no session bus to monitor");
    }
    dbus_connection_set_exit_on_disconnect(m_observer, FALSE);
    become_monitor(m_observer);
    send_marker("Begin");
    read_until_marker("Begin");
}

bus_monitor::~bus_monitor() {
    dbus_connection_close(m_observer);
    dbus_connection_unref(m_observer);
    dbus_connection_unref(m_session);
}

std::vector<bus_message> bus_monitor::stop() {
    send_marker("End");
    return read_until_marker("End");
}

void bus_monitor::send_marker(const char* name) {
    DBusMessage* marker = dbus_message_new_signal("/", marker_interface, name);
    dbus_connection_send(m_session, marker, nullptr);
    dbus_message_unref(marker);
    dbus_connection_flush(m_session);
}

std::vector<bus_message> bus_monitor::read_until_marker(const char* name) {
    using clock = std::chrono::steady_clock;
    const auto deadline =
        clock::now() + std::chrono::duration_cast<clock::duration>(
                           std::chrono::duration<double>(deadline_seconds * timeout_factor()));
    std::vector<bus_message> messages;
    while (clock::now() < deadline) {
        DBusMessage* message = dbus_connection_pop_message(m_observer);
        if (!message) {
            dbus_connection_read_write(m_observer, read_timeout_msec);
            continue;
        }
        const bool is_marker = dbus_message_is_signal(message, marker_interface, name);
        if (!is_marker) {
            messages.push_back(describe(message));
        }
        dbus_message_unref(message);
        if (is_marker) {
            return messages;
        }
    }
    throw std::runtime_error("the monitored bus has gone quiet");
}

}  // namespace vask_test
