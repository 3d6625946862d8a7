// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib.h>
#include <gtest/gtest.h>

#include "support/interpose.h"
#include "vask_child.h"

using namespace vask_test;

namespace {

bool no_proxies = false;

}  // namespace

extern "C" DBusGProxy* dbus_g_proxy_new_for_name(DBusGConnection* connection, const char* name,
                                                 const char* path, const char* interface) {
    if (no_proxies) {
        return nullptr;
    }
    return next_function<DBusGProxy*(DBusGConnection*, const char*, const char*, const char*)>(
        "dbus_g_proxy_new_for_name")(connection, name, path, interface);
}

TEST(bus_daemon_proxy_death_test, Is_required_by_every_child) {
    EXPECT_DEATH(
        {
            no_proxies = true;
            vask_child child("child", 0, nullptr);
        },
        "vask_child\\.cpp:[0-9]+:.*assertion failed: \\(proxy != NULL\\)");
}
