// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_BUS_CLIENT_H
#define VASK_TEST_BUS_CLIENT_H

/**
 * @file
 * @brief A stranger on the bus.
 */

#include <dbus/dbus.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vask_test {

/** Ends a reference to a message. */
struct message_unref {
    /** @param message  loses a reference */
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};

/** A message with one reference. */
using message_ptr = std::unique_ptr<DBusMessage, message_unref>;

/** The answer to a call: the text or the length of the list that comes first, or an error. */
struct bus_reply {
    bool ok = false;        /**< whether it is no error */
    std::string signature;  /**< types of all that it brings */
    std::string text;       /**< the text that comes first, if one does; that of an error as well */
    int elements = 0;       /**< of the list that comes behind it, if one does */
    std::string error_name; /**< name of the error */
};

/** A signal as it came from the bus. */
struct bus_signal {
    std::string sender;     /**< unique name of who has sent it */
    std::string path;       /**< its object */
    std::string interface;  /**< its interface */
    std::string member;     /**< its name */
    std::string signature;  /**< types of all that it brings */
    std::string first_text; /**< the text that comes first, if one does */
    int number = 0;         /**< the number that comes first, if one does */
    std::string text;       /**< the text that comes second, if one does */
};

/**
 * A stranger on the bus, with a connection of its own and nothing of the library. Waiting runs the
 * default main loop, so that it can also call what is served by the test's own process.
 */
class bus_client {
public:
    /** Throws std::runtime_error without a bus. @param address  that of a bus, or empty for the
     *  session bus of the test */
    explicit bus_client(const std::string& address = "");
    ~bus_client();
    bus_client(const bus_client&) = delete;
    bus_client& operator=(const bus_client&) = delete;

    /** @return the connection, which stays this object's */
    DBusConnection* connection() const { return m_connection; }
    /** @return its unique name */
    std::string unique_name() const;

    /** Does not wait. @param message  to send */
    void send(const message_ptr& message);
    /** Waits for 100 seconds, and throws std::runtime_error then, or as soon as the connection is
     *  lost. @param message  the call @return the answer */
    bus_reply call(const message_ptr& message);
    /** @param message  the call @param deadline_msec  how long to wait @param reply  receives the
     *  answer @return false when the deadline comes before it, or the connection is lost; the
     *  answer is not expected any more then */
    bool try_call(const message_ptr& message, int deadline_msec, bus_reply* reply);

    /** Calls the bus itself. @param method  one that takes one text or none @param argument  that
     *  text @return the answer */
    bus_reply call_bus(const std::string& method, const std::string& argument = "");
    /** @param name  any name @return whether somebody has it */
    bool is_owned(const std::string& name);
    /** @param name  any name @return whether somebody has it within 30 seconds */
    bool wait_for_name(const std::string& name);
    /** @param name  any name @return the unique name behind it */
    std::string owner_of(const std::string& name) { return call_bus("GetNameOwner", name).text; }

    /** RequestName without flags. @param name  wanted @return the bus's answer */
    int request_name(const std::string& name);
    /** @param name  given back */
    void release_name(const std::string& name);

    /** Signals that match the rule are kept from now on. @param rule  as AddMatch takes it */
    void subscribe(const std::string& rule);
    /** @return all that have come */
    std::vector<bus_signal> signals();
    /** @param count  how many @return whether as many have come within 30 seconds */
    bool wait_for_signals(std::size_t count);

    /** @return how many replies have come that nobody waits for */
    int unexpected_replies() const { return m_unexpected_replies; }

private:
    void read_what_has_arrived();
    void receive();

    DBusConnection* m_connection = nullptr;
    std::vector<bus_signal> m_signals;
    std::map<dbus_uint32_t, message_ptr> m_awaited;  // of calls, by their serials; null at first
    int m_unexpected_replies = 0;
};

}  // namespace vask_test

#endif
