// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_BUS_CLIENT_H
#define VASK_TEST_BUS_CLIENT_H

#include <dbus/dbus.h>

#include <memory>
#include <string>
#include <vector>

namespace vask_test {

struct message_unref {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using message_ptr = std::unique_ptr<DBusMessage, message_unref>;

/** The answer to a call: the text or the length of the list that comes first, or an error. */
struct bus_reply {
    bool ok = false;
    std::string signature;
    std::string text;
    int elements = 0;
    std::string error_name;
};

/** A signal as it came from the bus; number and text are those of an (int, string) signal. */
struct bus_signal {
    std::string sender;
    std::string path;
    std::string interface;
    std::string member;
    std::string signature;
    std::string first_text;
    int number = 0;
    std::string text;
};

/**
 * A stranger on the bus, with a connection of its own and nothing of the library. Waiting runs the
 * default main loop, so that it can also call what is served by the test's own process.
 */
class bus_client {
public:
    /** On the session bus of the test, or the bus at the address. */
    explicit bus_client(const std::string& address = "");
    ~bus_client();
    bus_client(const bus_client&) = delete;
    bus_client& operator=(const bus_client&) = delete;

    DBusConnection* connection() const { return m_connection; }
    std::string unique_name() const;

    void send(const message_ptr& message);
    bus_reply call(const message_ptr& message);

    /** A call of the bus itself that takes one text or none. */
    bus_reply call_bus(const std::string& method, const std::string& argument = "");
    bool is_owned(const std::string& name);
    bool wait_for_name(const std::string& name);
    /** The unique name behind a name. */
    std::string owner_of(const std::string& name) { return call_bus("GetNameOwner", name).text; }

    /** RequestName without flags; the bus's answer. */
    int request_name(const std::string& name);
    void release_name(const std::string& name);

    /** Signals that match the rule are kept from now on. */
    void subscribe(const std::string& rule);
    std::vector<bus_signal> signals();
    bool wait_for_signals(std::size_t count);

    /** The replies to messages sent with send(), if any came. */
    int unexpected_replies() const { return m_unexpected_replies; }

private:
    void read_what_has_arrived();
    void receive();

    DBusConnection* m_connection = nullptr;
    std::vector<bus_signal> m_signals;
    dbus_uint32_t m_expected_serial = 0;
    message_ptr m_reply;
    int m_unexpected_replies = 0;
};

}  // namespace vask_test

#endif
