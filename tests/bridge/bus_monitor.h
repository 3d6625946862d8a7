// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_BUS_MONITOR_H
#define VASK_TEST_BUS_MONITOR_H

#include <dbus/dbus.h>

#include <iosfwd>
#include <string>
#include <vector>

namespace vask_test {

struct bus_message {
    std::string kind;  // "call", "call without reply", "reply", "error" or "signal"
    std::string member;
};

bool operator==(const bus_message& a, const bus_message& b);
void PrintTo(const bus_message& message, std::ostream* out);

/** Sees every message that passes the session bus, between its construction and stop(). */
class bus_monitor {
public:
    bus_monitor();
    ~bus_monitor();
    bus_monitor(const bus_monitor&) = delete;
    bus_monitor& operator=(const bus_monitor&) = delete;

    /** What this process has sent until now, and all that came before on the bus, in order. */
    std::vector<bus_message> stop();

private:
    void send_marker(const char* name);
    std::vector<bus_message> read_until_marker(const char* name);

    DBusConnection* m_observer;
    DBusConnection* m_session;
};

}  // namespace vask_test

#endif
