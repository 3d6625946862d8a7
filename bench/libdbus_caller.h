// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_BENCH_LIBDBUS_CALLER_H
#define VASK_BENCH_LIBDBUS_CALLER_H

#include <dbus/dbus.h>

#include <optional>
#include <string>

// Calls a child's Command with libdbus alone, on a connection of its own, as a caller without GLib
// would.
class libdbus_caller {
public:
    libdbus_caller();
    ~libdbus_caller();

    libdbus_caller(const libdbus_caller&) = delete;
    libdbus_caller& operator=(const libdbus_caller&) = delete;

    // Nothing on failure.
    std::optional<std::string> call(const char* name, int id, const char* argument);

    void call_no_reply(const char* name, int id, const char* argument);

    // From now on wait_for_owner() sees names appear.
    void watch_names();

    // Blocks until a connection has taken the name.
    void wait_for_owner(const char* name);

private:
    DBusConnection* m_connection;
};

#endif
