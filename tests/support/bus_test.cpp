// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib-lowlevel.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "vask_test/main_loop.h"
#include "vask_test/resource_count.h"

using namespace vask_test;

TEST(private_bus, Is_used_by_the_shared_connection_without_leaving_anything) {
    DBusGConnection* connection = dbus_g_bus_get(DBUS_BUS_SESSION, nullptr);
    ASSERT_NE(connection, nullptr);
    dbus_g_connection_unref(connection);
}

TEST(private_bus, Has_no_other_clients_and_starts_no_services) {
    DBusGConnection* connection = dbus_g_bus_get(DBUS_BUS_SESSION, nullptr);
    ASSERT_NE(connection, nullptr);
    DBusGProxy* bus = dbus_g_proxy_new_for_name(connection, "org.freedesktop.DBus",
                                                "/org/freedesktop/DBus", "org.freedesktop.DBus");
    for (const char* method : {"ListNames", "ListActivatableNames"}) {
        char** names = nullptr;
        EXPECT_TRUE(dbus_g_proxy_call(bus, method, nullptr, G_TYPE_INVALID, G_TYPE_STRV, &names,
                                      G_TYPE_INVALID));
        for (char** name = names; name && *name; ++name) {
            EXPECT_THAT(*name, testing::AnyOf(testing::StrEq("org.freedesktop.DBus"),
                                              testing::StrEq(":1.0")));
        }
        g_strfreev(names);
    }
    g_object_unref(bus);
    drain_main_loop();
    dbus_g_connection_unref(connection);
}

TEST(private_bus, Lets_further_connections_come_and_go) {
    const resource_count before = resource_count::take();
    DBusConnection* second = dbus_bus_get_private(DBUS_BUS_SESSION, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(before.difference(resource_count::take()), "");
    dbus_connection_close(second);
    dbus_connection_unref(second);
}
