// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib-lowlevel.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>

#include "support/open_app.h"
#include "vask_child.h"
#include "vask_test/log_catcher.h"
#include "vask_test/main_loop.h"
#include "vask_test/served_child.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/** A child in the test's own process that replies to command 1 with its name. */
class named_child : public vask_child {
public:
    explicit named_child(const char* name, command_line&& line = {"program"})
        : vask_child(name, line.argc(), line.argv()) {
        add_cmd_handler(1, static_cast<cmd_handler>(&named_child::reply_name));
    }

    void set_window(int, int, int, int, unsigned int id) override { window = id; }

    using vask_child::m_bus_object;
    unsigned int window = 0;

private:
    bool reply_name(const char*, const char** reply) {
        *reply = obj_name;
        return true;
    }
};

/** A child with a dispatch of its own. */
struct dispatching_child : vask_child {
    dispatching_child() : vask_child("dispatching", 0, nullptr) {}
    bool command(int id, const char*, const char** reply) override {
        if (id == 2) {
            *reply = "own dispatch";
        }
        return true;
    }
};

/** A child whose command 1 runs a main loop after a stranger has sent it command 2. */
class looping_child : public vask_child {
public:
    looping_child() : vask_child("looping", 0, nullptr) {
        add_cmd_handler(1, static_cast<cmd_handler>(&looping_child::run_loop));
        add_cmd_handler(2, static_cast<cmd_handler>(&looping_child::count));
    }

    int counted = 0;
    int counted_in_loop = -1;

private:
    bool run_loop(const char*, const char**) {
        bus_client stranger;
        served_child(stranger, child_name(getpid())).command_without_reply(2, "");
        stranger.call_bus("GetId");  // the bus has passed the command on
        drain_main_loop();
        counted_in_loop = counted;
        return true;
    }

    bool count(const char*, const char**) {
        ++counted;
        return true;
    }
};

class own_process : public testing::Test {
protected:
    std::string ask_for_name() {
        const bus_reply reply = served.command(1);
        return reply.ok ? reply.text : "failure: " + reply.error_name;
    }

    std::string shared_address() const {
        DBusGConnection* shared = dbus_g_bus_get(DBUS_BUS_SESSION, nullptr);
        const std::string address =
            dbus_bus_get_unique_name(dbus_g_connection_get_connection(shared));
        dbus_g_connection_unref(shared);
        return address;
    }

    const std::string name = child_name(getpid());
    bus_client client;
    served_child served{client, name};
    log_catcher log;
};

const log_line refused = line("ERR", "second", "This process has a child on the bus already");

}  // namespace

TEST_F(own_process, Serves_its_child) {
    named_child child("first");
    EXPECT_EQ(ask_for_name(), "first");
    EXPECT_EQ(client.owner_of(name), shared_address());
    EXPECT_FALSE(child.init_failed());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(own_process, Serves_a_child_by_its_virtual_command) {
    dispatching_child child;
    EXPECT_EQ(served.command(2).text, "own dispatch");
}

TEST_F(own_process, Hears_nothing_from_the_bus_in_a_main_loop_inside_a_handler) {
    looping_child child;
    EXPECT_TRUE(served.command(1).ok);
    EXPECT_EQ(child.counted_in_loop, 0);
    EXPECT_TRUE(wait_until([&] { return child.counted == 1; }));
}

TEST_F(own_process, Sends_the_empty_string_for_a_reply_that_was_never_touched) {
    dispatching_child child;
    const bus_reply reply = served.command(1);
    EXPECT_TRUE(reply.ok) << reply.error_name;
    EXPECT_EQ(reply.text, "");
}

TEST_F(own_process, Refuses_a_second_child) {
    named_child first("first");
    named_child second("second");
    EXPECT_THAT(log.lines(), ElementsAre(refused));
    EXPECT_EQ(second.m_bus_object, nullptr);
    EXPECT_FALSE(second.init_failed());
    EXPECT_EQ(ask_for_name(), "first");
}

TEST_F(own_process, Sends_no_signals_of_a_second_child) {
    named_child first("first");
    named_child second("second");
    client.subscribe("type='signal',interface='com.example.vask.Child'");
    second.emit_signal(1, "unheard");
    first.emit_signal(2, "heard");
    ASSERT_TRUE(client.wait_for_signals(1));
    EXPECT_EQ(client.signals()[0].text, "heard");
}

TEST_F(own_process, Serves_the_first_child_after_the_end_of_a_second) {
    named_child first("first");
    delete new named_child("second");
    EXPECT_EQ(ask_for_name(), "first");
}

TEST_F(own_process, Refuses_a_second_child_even_after_the_end_of_the_first) {
    delete new named_child("first");
    named_child second("second");
    EXPECT_THAT(log.lines(), ElementsAre(refused));
    EXPECT_EQ(second.m_bus_object, nullptr);
}

TEST_F(own_process, Answers_with_failures_after_the_end_of_its_child) {
    delete new named_child("first");
    EXPECT_EQ(client.owner_of(name), shared_address());
    EXPECT_FALSE(served.command(1).ok);
    EXPECT_FALSE(served.set_window(1, 2, 3, 4, 5).ok);
    EXPECT_FALSE(served.command(1).ok);
}

TEST_F(own_process, Answers_with_failures_for_a_refused_child_too) {
    delete new named_child("first");
    named_child second("second");
    EXPECT_FALSE(served.command(1).ok);
    EXPECT_FALSE(served.set_window(1, 2, 3, 4, 5).ok);
    EXPECT_EQ(second.window, 0u);
}

TEST_F(own_process, Answers_a_call_that_was_sent_before_the_end_of_its_child) {
    auto child = std::make_unique<named_child>("first");
    const message_ptr message = served.new_call(child_interface, "SetWindow");
    const dbus_int32_t number = 1;
    const dbus_uint32_t window = 1;
    dbus_message_append_args(message.get(), DBUS_TYPE_INT32, &number, DBUS_TYPE_INT32, &number,
                             DBUS_TYPE_INT32, &number, DBUS_TYPE_INT32, &number, DBUS_TYPE_UINT32,
                             &window, DBUS_TYPE_INVALID);
    client.send(message);
    child.reset();
    EXPECT_FALSE(served.command(1).ok);
    // The first answer has come as well, before the second.
    EXPECT_EQ(client.unexpected_replies(), 1);
}

TEST_F(own_process, Has_room_for_a_child_beside_one_without_system_initialisation) {
    named_child outside("outside", {no_sys_init_marker});
    named_child child("first");
    named_child also_outside("also_outside", {no_sys_init_marker});
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(outside.m_bus_object, nullptr);
    EXPECT_EQ(also_outside.m_bus_object, nullptr);
    EXPECT_EQ(ask_for_name(), "first");
}

TEST_F(own_process, Serves_a_child_whose_name_it_has_to_queue_for) {
    ASSERT_EQ(client.request_name(name), DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER);
    named_child child("first");
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(client.owner_of(name), client.unique_name());
    EXPECT_EQ(served_child(client, shared_address()).command(1).text, "first");

    client.release_name(name);
    EXPECT_EQ(client.owner_of(name), shared_address());
    EXPECT_EQ(ask_for_name(), "first");
}

TEST_F(own_process, Serves_a_child_whose_name_it_has_already) {
    DBusGConnection* shared = dbus_g_bus_get(DBUS_BUS_SESSION, nullptr);
    ASSERT_EQ(
        dbus_bus_request_name(dbus_g_connection_get_connection(shared), name.c_str(), 0, nullptr),
        DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER);
    named_child child("first");
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(ask_for_name(), "first");
    dbus_g_connection_unref(shared);
}
