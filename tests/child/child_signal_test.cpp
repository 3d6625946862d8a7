// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib-lowlevel.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "../programs/child_servant_commands.h"
#include "support/open_app.h"
#include "support/test_program.h"
#include "vask_child.h"
#include "vask_test/log_catcher.h"
#include "vask_test/served_child.h"
#include "vask_test/started_process.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/** A child process on the bus, and a stranger who hears its signals. */
class child_signal : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(client.wait_for_name(child_name(process.pid())));
        client.subscribe("type='signal',sender='" + child_name(process.pid()) + "'");
    }

    log_catcher log;
    bus_client client;
    started_process process{test_program("child_servant"), {}};
    served_child child{client, child_name(process.pid())};
};

// The marker takes the road that the child's signal takes: what is raised first arrives first.
void send_marker(vask_child*, int, const char*, void*) {
    DBusGConnection* shared = dbus_g_bus_get(DBUS_BUS_SESSION, nullptr);
    const message_ptr marker(
        dbus_message_new_signal("/marker", "com.example.vask.Child", "Marker"));
    dbus_connection_send(dbus_g_connection_get_connection(shared), marker.get(), nullptr);
    dbus_g_connection_unref(shared);
}

}  // namespace

TEST_F(child_signal, Reaches_every_stranger_on_the_bus) {
    child.command(SERVANT_EMIT, "gr\xc3\xbc\xc3\x9f dich");
    ASSERT_TRUE(client.wait_for_signals(1));
    const bus_signal signal = client.signals()[0];
    EXPECT_EQ(signal.sender, client.owner_of(child_name(process.pid())));
    EXPECT_EQ(signal.path, "/com/example/vask/Child");
    EXPECT_EQ(signal.interface, "com.example.vask.Child");
    EXPECT_EQ(signal.member, "ChildSignal");
    EXPECT_EQ(signal.signature, "is");
    EXPECT_EQ(signal.number, 7);
    EXPECT_EQ(signal.text, "gr\xc3\xbc\xc3\x9f dich");
    EXPECT_EQ(client.signals().size(), 1u);
}

TEST_F(child_signal, Arrives_before_the_reply_to_the_command_that_raised_it) {
    child.command(SERVANT_EMIT, "first");
    EXPECT_EQ(client.signals().size(), 1u);
}

TEST_F(child_signal, Carries_the_empty_string_for_null) {
    child.command(SERVANT_EMIT_NULL);
    ASSERT_TRUE(client.wait_for_signals(1));
    EXPECT_EQ(client.signals()[0].number, 8);
    EXPECT_EQ(client.signals()[0].signature, "is");
    EXPECT_EQ(client.signals()[0].text, "");
}

TEST_F(child_signal, Is_not_sent_with_text_that_is_not_utf8) {
    EXPECT_TRUE(child.command(SERVANT_EMIT_INVALID_UTF8).ok);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "child_servant",
                                 "Failed to emit signal 9: The text is not valid UTF-8")));
    child.command(SERVANT_EMIT, "the next one");
    ASSERT_TRUE(client.wait_for_signals(1));
    EXPECT_EQ(client.signals()[0].text, "the next one");
}

TEST(emit_signal, Calls_local_observers_before_it_sends_the_signal) {
    vask_child child("child", 0, nullptr);
    bus_client client;
    client.subscribe("type='signal',interface='com.example.vask.Child'");
    child.connect_child_signal(send_marker, 3, nullptr);
    child.emit_signal(3, "data");
    ASSERT_TRUE(client.wait_for_signals(2));
    EXPECT_EQ(client.signals()[0].member, "Marker");
    EXPECT_EQ(client.signals()[1].member, "ChildSignal");
}

TEST(emit_signal, Sends_each_signal_once) {
    vask_child child("child", 0, nullptr);
    bus_client client;
    client.subscribe("type='signal',interface='com.example.vask.Child'");
    child.emit_signal(1, "a");
    child.emit_signal(-2, "b");
    ASSERT_TRUE(client.wait_for_signals(2));
    client.call_bus("GetId");
    EXPECT_EQ(client.signals().size(), 2u);
    EXPECT_EQ(client.signals()[0].number, 1);
    EXPECT_EQ(client.signals()[1].number, -2);
}

TEST(observe_signal, Sends_nothing) {
    vask_child child("child", 0, nullptr);
    bus_client client;
    client.subscribe("type='signal',interface='com.example.vask.Child'");
    child.observe_signal(1, "for observers only");
    child.emit_signal(2, "for everybody");
    ASSERT_TRUE(client.wait_for_signals(1));
    EXPECT_EQ(client.signals()[0].number, 2);
}
