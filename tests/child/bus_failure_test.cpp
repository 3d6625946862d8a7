// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdarg>
#include <string>

#include "vask_child.h"
#include "vask_test/log_catcher.h"
#include "vask_test/served_child.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

struct {
    std::string bus_name;
    std::string path;
    std::string interface;
    std::string method;
    std::string name;
    guint flags;
} request;

struct open_child : vask_child {
    open_child() : vask_child("child", 0, nullptr) {}
    using vask_child::m_bus_object;
};

}  // namespace

extern "C" gboolean dbus_g_proxy_call(DBusGProxy* proxy, const char* method, GError** error,
                                      GType first_type, ...) {
    request = {dbus_g_proxy_get_bus_name(proxy),
               dbus_g_proxy_get_path(proxy),
               dbus_g_proxy_get_interface(proxy),
               method,
               "",
               ~0u};
    va_list arguments;
    va_start(arguments, first_type);
    if (first_type == G_TYPE_STRING) {
        request.name = va_arg(arguments, const char*);
        if (va_arg(arguments, GType) == G_TYPE_UINT) {
            request.flags = va_arg(arguments, guint);
        }
    }
    va_end(arguments);
    g_set_error(error, DBUS_GERROR, DBUS_GERROR_NO_MEMORY, "no memory today");
    return FALSE;
}

TEST(a_request_for_the_name, Goes_to_the_bus_itself_without_flags) {
    open_child child;
    EXPECT_EQ(request.bus_name, "org.freedesktop.DBus");
    EXPECT_EQ(request.path, "/org/freedesktop/DBus");
    EXPECT_EQ(request.interface, "org.freedesktop.DBus");
    EXPECT_EQ(request.method, "RequestName");
    EXPECT_EQ(request.name, "com.example.vask.Child_" + std::to_string(getpid()));
    EXPECT_EQ(request.flags, 0u);
}

TEST(a_failed_request_for_the_name, Is_logged_with_name_and_reason) {
    log_catcher log;
    open_child child;
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "child",
                                 "RequestName for 'com.example.vask.Child_" +
                                     std::to_string(getpid()) + "'' failed: no memory today")));
    EXPECT_FALSE(child.init_failed());
}

TEST(a_failed_request_for_the_name, Leaves_the_object_off_the_bus) {
    open_child child;
    EXPECT_NE(child.m_bus_object, nullptr);
    bus_client client;
    EXPECT_FALSE(client.is_owned(child_name(getpid())));
    client.subscribe("type='signal',interface='com.example.vask.Child'");
    child.emit_signal(1, "data");
    client.call_bus("GetId");
    EXPECT_TRUE(client.signals().empty());
}

TEST(a_failed_request_for_the_name, Does_not_bar_a_second_child) {
    open_child first;
    log_catcher log;
    open_child second;
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_THAT(log.lines()[0].text, testing::StartsWith("RequestName for"));
}
