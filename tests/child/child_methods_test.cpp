// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

#include "../programs/child_servant_commands.h"
#include "support/test_program.h"
#include "vask_test/log_catcher.h"
#include "vask_test/served_child.h"
#include "vask_test/started_process.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

/** A child process on the bus, and a stranger who calls it. */
class running_child : public testing::Test {
protected:
    explicit running_child(const std::string& program, const std::string& level = "INFO")
        : process(test_program(program), {}, {{"VASK_MSG_LV=" + level}, "", -1}),
          child(client, child_name(process.pid())) {}

    void SetUp() override { ASSERT_TRUE(client.wait_for_name(child_name(process.pid()))); }

    log_catcher log;
    bus_client client;
    started_process process;
    served_child child;
};

class servant : public running_child {
protected:
    servant() : running_child("child_servant") {}

    void expect_alive() {
        const bus_reply reply = child.command(SERVANT_ECHO, "still there");
        EXPECT_TRUE(reply.ok) << reply.error_name;
        EXPECT_EQ(reply.text, "still there");
    }

    void expect_orderly_end() {
        child.command_without_reply(SERVANT_QUIT, "3");
        EXPECT_EQ(process.wait_for_end(), 3);
    }
};

class plain_child : public running_child {
protected:
    plain_child() : running_child("child_plain", "DBG") {}
};

}  // namespace

TEST_F(servant, Replies_with_what_its_handler_stored) {
    const bus_reply reply = child.command(SERVANT_ECHO, "gr\xc3\xbc\xc3\x9f dich");
    EXPECT_TRUE(reply.ok) << reply.error_name;
    EXPECT_EQ(reply.signature, "s");
    EXPECT_EQ(reply.text, "gr\xc3\xbc\xc3\x9f dich");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(servant, Is_given_an_empty_argument_as_it_is) {
    const bus_reply reply = child.command(SERVANT_ECHO, "");
    EXPECT_TRUE(reply.ok);
    EXPECT_EQ(reply.text, "");
}

TEST_F(servant, Replies_with_the_empty_string_for_null) {
    const bus_reply reply = child.command(SERVANT_NO_REPLY);
    EXPECT_TRUE(reply.ok) << reply.error_name;
    EXPECT_EQ(reply.signature, "s");
    EXPECT_EQ(reply.text, "");
}

TEST_F(servant, Keeps_the_reply_that_its_handler_stored) {
    for (int i = 0; i < 3; ++i) {
        const bus_reply reply = child.command(SERVANT_LITERAL);
        EXPECT_TRUE(reply.ok) << reply.error_name;
        EXPECT_EQ(reply.text, servant_literal);
    }
}

TEST_F(servant, Answers_with_an_error_when_its_handler_fails) {
    const bus_reply reply = child.command(SERVANT_FAIL);
    EXPECT_FALSE(reply.ok);
    EXPECT_THAT(reply.error_name, StartsWith("org.freedesktop.DBus."));
    EXPECT_NE(reply.text, servant_literal);
    expect_alive();
    expect_orderly_end();
}

TEST_F(servant, Answers_an_unknown_command_with_an_error) {
    const bus_reply reply = child.command(99, "anything");
    EXPECT_FALSE(reply.ok);
    EXPECT_THAT(reply.error_name, StartsWith("org.freedesktop.DBus."));
    EXPECT_THAT(log.lines(),
                ElementsAre(line("WARN", "child_servant", "Command ID: 99 is not supported")));
    expect_alive();
}

TEST_F(servant, Takes_any_number_for_a_command) {
    EXPECT_FALSE(child.command(INT_MIN).ok);
    EXPECT_FALSE(child.command(INT_MAX).ok);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("WARN", "child_servant", "Command ID: -2147483648 is not supported"),
                    line("WARN", "child_servant", "Command ID: 2147483647 is not supported")));
}

TEST_F(servant, Survives_a_reply_that_is_not_utf8) {
    EXPECT_FALSE(child.command(SERVANT_INVALID_UTF8).ok);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "vask_child",
                                 "Failed to reply to command 5: The text is not valid UTF-8")));
    expect_alive();
    expect_orderly_end();
}

TEST_F(servant, Survives_a_reply_that_is_too_long_for_the_bus) {
    EXPECT_FALSE(child.command(SERVANT_LONG_REPLY, std::to_string(DBUS_MAXIMUM_MESSAGE_LENGTH)).ok);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "vask_child",
                                 "Failed to reply to command 11: The text is too long for the "
                                 "bus")));
    expect_alive();
}

TEST_F(servant, Sends_the_longest_reply_that_it_accepts) {
    const std::size_t length = DBUS_MAXIMUM_MESSAGE_LENGTH - 64 * 1024;
    const bus_reply reply = child.command(SERVANT_LONG_REPLY, std::to_string(length));
    EXPECT_TRUE(reply.ok) << reply.error_name;
    EXPECT_EQ(reply.text.size(), length);
}

TEST_F(servant, Gets_the_window_in_its_own_set_window) {
    const bus_reply reply = child.set_window(-1, INT_MIN, INT_MAX, 4, UINT_MAX);
    EXPECT_TRUE(reply.ok) << reply.error_name;
    EXPECT_EQ(reply.signature, "");
    EXPECT_EQ(child.command(SERVANT_LAST_WINDOW).text, "-1 -2147483648 2147483647 4 4294967295");
}

TEST_F(servant, Obeys_a_command_whose_reply_nobody_wants) {
    client.subscribe("type='signal',interface='com.example.vask.Child'");
    child.command_without_reply(SERVANT_EMIT, "obeyed");
    ASSERT_TRUE(client.wait_for_signals(1));
    EXPECT_EQ(client.signals()[0].text, "obeyed");
    expect_alive();
    EXPECT_EQ(client.unexpected_replies(), 0);
}

TEST_F(servant, Fails_silently_when_nobody_wants_a_reply) {
    child.command_without_reply(SERVANT_FAIL, "");
    child.command_without_reply(SERVANT_INVALID_UTF8, "");
    expect_alive();
    EXPECT_EQ(client.unexpected_replies(), 0);
}

TEST_F(servant, Refuses_arguments_of_other_types) {
    const message_ptr message = child.new_call(child_interface, "Command");
    const char* text = "1";
    dbus_message_append_args(message.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_STRING, &text,
                             DBUS_TYPE_INVALID);
    EXPECT_FALSE(client.call(message).ok);
    expect_alive();
}

TEST_F(servant, Has_no_other_methods) {
    for (const char* method : {"command", "EmitSignal", "Quit", "ChildSignal"}) {
        EXPECT_EQ(client.call(child.new_call(child_interface, method)).error_name,
                  DBUS_ERROR_UNKNOWN_METHOD);
    }
    expect_alive();
}

TEST_F(servant, Ends_with_the_code_that_a_command_asks_for) {
    child.command(SERVANT_QUIT, "5");
    EXPECT_EQ(process.wait_for_end(), 5);
    EXPECT_FALSE(client.is_owned(child_name(process.pid())));
}

TEST_F(plain_child, Logs_the_window) {
    EXPECT_TRUE(child.set_window(1, -2, 3, 4, 0x2a00001).ok);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "child_plain",
                                 "virtual void vask_child::set_window(int, int, int, int, guint): "
                                 "(x, y, w, h, id) = (1, -2, 3, 4, 2a00001)")));
}

TEST_F(plain_child, Supports_no_command) {
    EXPECT_FALSE(child.command(0, "").ok);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("DBG", "child_plain",
                         "virtual bool vask_child::command(int, const char*, const char**): "
                         "received a command: 0"),
                    line("WARN", "child_plain", "Command ID: 0 is not supported")));
}
