// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib.h>
#include <glib-object.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/interpose.h"
#include "support/open_app.h"
#include "vask_child.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

const char bus_failure[] =
    "Failed to get DBUS connection: Failed to connect to socket /nonexistent/bus: No such file or "
    "directory";

struct open_child : vask_child {
    open_child() : vask_child("child", 0, nullptr) {}
    using vask_child::m_bus_object;
};

std::vector<std::string>* order = nullptr;
int thread_initialisations = 0;
bool was_used_unprepared = false;

void note_observer(vask_child*, int, const char*, void*) {
    order->push_back("observer");
}

void note_object_signal(GObject*, int signal_id, const char* data, gpointer) {
    order->push_back("object " + std::to_string(signal_id) + " " + data);
}

}  // namespace

extern "C" void dbus_g_thread_init() {
    ++thread_initialisations;
    next_function<void()>("dbus_g_thread_init")();
}

extern "C" void dbus_g_object_type_install_info(GType type, const DBusGObjectInfo* info) {
    was_used_unprepared |= thread_initialisations == 0;
    next_function<void(GType, const DBusGObjectInfo*)>("dbus_g_object_type_install_info")(type,
                                                                                          info);
}

extern "C" DBusGConnection* dbus_g_bus_get(DBusBusType type, GError** error) {
    was_used_unprepared |= thread_initialisations == 0;
    return next_function<DBusGConnection*(DBusBusType, GError**)>("dbus_g_bus_get")(type, error);
}

TEST(without_a_session_bus, A_child_says_so_without_a_line_end) {
    log_catcher log;
    open_child child;
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "child", bus_failure)));
    EXPECT_EQ(log.text().back(), 'y');
    EXPECT_FALSE(child.init_failed());
}

TEST(without_a_session_bus, A_child_still_has_its_object) {
    open_child child;
    ASSERT_NE(child.m_bus_object, nullptr);
    EXPECT_STREQ(G_OBJECT_TYPE_NAME(child.m_bus_object), "VaskChild");
}

TEST(without_a_session_bus, A_child_has_prepared_the_bus_library_for_threads_before_use) {
    was_used_unprepared = false;
    open_child child;
    EXPECT_EQ(thread_initialisations, 1);
    EXPECT_FALSE(was_used_unprepared);
}

TEST(without_a_session_bus, A_child_releases_its_object) {
    gpointer object;
    {
        open_child child;
        object = child.m_bus_object;
        g_object_add_weak_pointer(G_OBJECT(object), &object);
        EXPECT_NE(object, nullptr);
    }
    EXPECT_EQ(object, nullptr);
}

TEST(without_a_session_bus, A_second_child_may_try_again) {
    log_catcher log;
    open_child first;
    open_child second;
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "child", bus_failure), line("ERR", "child", bus_failure)));
}

TEST(without_a_session_bus, A_signal_reaches_observers_and_then_the_object) {
    std::vector<std::string> calls;
    order = &calls;
    open_child child;
    g_signal_connect(child.m_bus_object, "child_signal", G_CALLBACK(note_object_signal), nullptr);
    child.connect_child_signal(note_observer, 5, nullptr);
    child.emit_signal(5, "data");
    EXPECT_THAT(calls, ElementsAre("observer", "object 5 data"));
}

TEST(without_system_initialisation, A_child_leaves_the_bus_library_alone) {
    command_line arguments{no_sys_init_marker};
    const vask_child child("child", arguments.argc(), arguments.argv());
    EXPECT_EQ(thread_initialisations, 0);
}
