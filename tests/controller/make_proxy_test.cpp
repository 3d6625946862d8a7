// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <iterator>
#include <memory>
#include <type_traits>

#include "controller/open_controller.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::StrEq;

namespace {

struct open_fields : vask_child_cmd_base {
    open_fields() : vask_child_cmd_base("controller", "program") {}

    // Tools that were built against the library reach them by their places.
    bool are_in_order() const {
        const void* const places[] = {&m_proxy, &m_connection, &m_program, &m_pid};
        return std::is_sorted(std::begin(places), std::end(places));
    }
};

struct other_class : virtual vask_object {};
class controller_and_other : public vask_child_cmd_base, public other_class {};
static_assert(std::is_convertible<controller_and_other*, vask_object*>::value,
              "there is one base object");

}  // namespace

TEST(controller, Begins_without_a_proxy) {
    const open_controller controller;
    EXPECT_EQ(controller.m_proxy, nullptr);
    EXPECT_EQ(controller.m_connection, nullptr);
    EXPECT_EQ(controller.m_pid, 0);
}

TEST(controller, Keeps_a_copy_of_the_program_name) {
    std::string program = "program";
    const open_controller controller(program.c_str());
    program = "changed";
    EXPECT_EQ(controller.m_program, "program");
}

TEST(controller, Has_its_fields_in_order) {
    EXPECT_TRUE(open_fields().are_in_order());
}

TEST(bus_name, Ends_with_the_process_id) {
    EXPECT_EQ(vask_child_cmd_base::make_dbus_servie_name(4711), "com.example.vask.Child_4711");
}

TEST(bus_name, Takes_any_number) {
    EXPECT_EQ(vask_child_cmd_base::make_dbus_servie_name(0), "com.example.vask.Child_0");
    EXPECT_EQ(vask_child_cmd_base::make_dbus_servie_name(-1), "com.example.vask.Child_-1");
    EXPECT_EQ(vask_child_cmd_base::make_dbus_servie_name(INT_MAX),
              "com.example.vask.Child_2147483647");
}

TEST(make_proxy, Leads_to_the_interface_of_the_child) {
    open_controller controller;
    ASSERT_TRUE(controller.make_proxy(4711, false));
    EXPECT_THAT(dbus_g_proxy_get_bus_name(controller.m_proxy),
                StrEq("com.example.vask.Child_4711"));
    EXPECT_THAT(dbus_g_proxy_get_path(controller.m_proxy), StrEq("/com/example/vask/Child"));
    EXPECT_THAT(dbus_g_proxy_get_interface(controller.m_proxy), StrEq("com.example.vask.Child"));
}

TEST(make_proxy, Remembers_the_process_and_the_connection) {
    open_controller controller;
    ASSERT_TRUE(controller.make_proxy(4711, false));
    EXPECT_EQ(controller.m_pid, 4711);
    EXPECT_NE(controller.m_connection, nullptr);
}

TEST(make_proxy, Does_not_ask_whether_there_is_such_a_child) {
    log_catcher log;
    open_controller controller;
    EXPECT_TRUE(controller.make_proxy(INT_MAX, false));
    EXPECT_EQ(log.text(), "");
}

TEST(make_proxy, Makes_one_even_if_none_is_there_to_be_replaced) {
    open_controller controller;
    ASSERT_TRUE(controller.make_proxy(4711, true));
    EXPECT_EQ(controller.m_pid, 4711);
}

TEST(make_proxy, Keeps_a_proxy_with_its_process_whatever_process_is_asked_for) {
    open_controller controller;
    ASSERT_TRUE(controller.make_proxy(4711, false));
    const DBusGProxy* const before = controller.m_proxy;

    EXPECT_TRUE(controller.make_proxy(4712, false));

    EXPECT_EQ(controller.m_proxy, before);
    EXPECT_EQ(controller.m_pid, 4711);
    EXPECT_THAT(dbus_g_proxy_get_bus_name(controller.m_proxy),
                StrEq("com.example.vask.Child_4711"));
}

TEST(make_proxy, Replaces_a_proxy_by_force) {
    open_controller controller;
    ASSERT_TRUE(controller.make_proxy(4711, false));
    gpointer former = controller.m_proxy;
    g_object_add_weak_pointer(G_OBJECT(former), &former);

    EXPECT_TRUE(controller.make_proxy(4712, true));

    EXPECT_EQ(former, nullptr);
    EXPECT_EQ(controller.m_pid, 4712);
    EXPECT_THAT(dbus_g_proxy_get_bus_name(controller.m_proxy),
                StrEq("com.example.vask.Child_4712"));
}

TEST(make_proxy, Makes_another_one_by_force_for_the_same_process) {
    open_controller controller;
    ASSERT_TRUE(controller.make_proxy(4711, false));
    gpointer former = controller.m_proxy;
    g_object_add_weak_pointer(G_OBJECT(former), &former);

    EXPECT_TRUE(controller.make_proxy(4711, true));

    EXPECT_EQ(former, nullptr);
    EXPECT_NE(controller.m_proxy, nullptr);
}

TEST(make_proxy, Leaves_a_proxy_that_the_destructor_releases) {
    auto controller = std::make_unique<open_controller>();
    ASSERT_TRUE(controller->make_proxy(4711, false));
    gpointer proxy = controller->m_proxy;
    g_object_add_weak_pointer(G_OBJECT(proxy), &proxy);

    controller.reset();

    EXPECT_EQ(proxy, nullptr);
}
