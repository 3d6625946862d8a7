// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "bridge/bus_monitor.h"
#include "bridge/recording_bridge.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StrEq;

namespace {

constexpr const char* entry_text =
    "bool vask_app_bridge::send_cmd(int, char**, const char*, vask_error*): ";
constexpr const char* handler_failed =
    "Method invoked for Command returned FALSE but did not set error";
constexpr const char* recipient_gone =
    "Message recipient disconnected from message bus without replying";
// A failing call takes this long at most; the time-out of the bus library is longer by far.
constexpr double at_once_msec = 15000;

/** An error and replies that show whether somebody has touched them. */
struct outputs {
    outputs() {
        err.set_code(VASK_ERR_INVALID_URI);
        err.set_message("untouched");
    }

    void expect_untouched() const {
        EXPECT_EQ(text, marker);
        EXPECT_EQ(string, "untouched");
        expect_error_untouched();
    }

    void expect_error_untouched() const {
        EXPECT_EQ(err.get_code(), VASK_ERR_INVALID_URI);
        EXPECT_EQ(err.get_message(), "untouched");
        EXPECT_EQ(err.get_next(), nullptr);
    }

    char marker[10] = "untouched";
    char* text = marker;
    std::string string = "untouched";
    vask_error err;
};

/** A bridge whose child was met. */
class send_cmd : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(bridge.spawn_and_meet());
        log.clear();
    }

    void expect_failure(int id, const char* argument, const std::string& reason) {
        EXPECT_FALSE(bridge.send_cmd(id, &out.text, argument, &out.err));
        out.expect_untouched();
        EXPECT_THAT(log.lines(), Contains(failure_line(id, reason)));
        EXPECT_EQ(log.text().back(), '\n');
    }

    static log_line failure_line(int id, const std::string& reason) {
        return line("ERR", "bridge",
                    "Failed to send command " + std::to_string(id) + ": " + reason);
    }

    log_catcher log;
    recording_bridge bridge;
    outputs out;
};

/** A bridge whose child was not met, or not even spawned. */
class early_send_cmd : public testing::Test {
protected:
    log_catcher log;
    recording_bridge bridge;
    outputs out;
};

}  // namespace

TEST_F(send_cmd, Gives_the_reply_of_the_child) {
    char* reply = nullptr;
    ASSERT_TRUE(bridge.send_cmd(CHILD_ECHO, &reply, "h\xc3\xa4llo \"world\"", &out.err));
    EXPECT_THAT(reply, StrEq("h\xc3\xa4llo \"world\""));
    g_free(reply);
    out.expect_error_untouched();
}

TEST_F(send_cmd, Gives_the_reply_as_a_string) {
    std::string argument = "hello";
    EXPECT_TRUE(bridge.send_cmd(CHILD_ECHO, out.string, argument, &out.err));
    EXPECT_EQ(out.string, "hello");
    out.expect_error_untouched();
}

TEST_F(send_cmd, Logs_the_id_and_the_argument) {
    vask_object::print_msg_level = VASK_P_DBG;

    bridge.ask(CHILD_ECHO, "hello");

    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "bridge", std::string(entry_text) + "1, hello")));
}

TEST_F(send_cmd, Reaches_the_child_with_the_id_and_the_argument) {
    bridge.ask(CHILD_ECHO, "hello");
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 hello"));
}

TEST_F(send_cmd, Is_not_bothered_by_a_missing_error) {
    std::string argument = "hello";
    std::string reply;
    EXPECT_TRUE(bridge.send_cmd(CHILD_ECHO, reply, argument));
    EXPECT_EQ(reply, "hello");
    EXPECT_FALSE(bridge.send_cmd(CHILD_FAIL, reply, argument, nullptr));
    EXPECT_FALSE(bridge.send_cmd(CHILD_FAIL, nullptr, "", nullptr));
}

TEST_F(send_cmd, Can_do_without_the_reply) {
    EXPECT_TRUE(bridge.send_cmd(CHILD_ECHO, nullptr, "hello", &out.err));
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 hello"));
}

TEST_F(send_cmd, Sends_a_null_argument_as_the_empty_text) {
    vask_object::print_msg_level = VASK_P_DBG;
    char* reply = nullptr;

    ASSERT_TRUE(bridge.send_cmd(CHILD_ECHO, &reply, nullptr, nullptr));

    EXPECT_THAT(reply, StrEq(""));
    g_free(reply);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "bridge", std::string(entry_text) + "1, (null)")));
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 "));
}

TEST_F(send_cmd, Gives_the_empty_text_for_a_null_reply) {
    char* reply = nullptr;
    ASSERT_TRUE(bridge.send_cmd(CHILD_REPLY_NULL, &reply, "", nullptr));
    EXPECT_THAT(reply, StrEq(""));
    g_free(reply);

    std::string argument;
    ASSERT_TRUE(bridge.send_cmd(CHILD_REPLY_NULL, out.string, argument, nullptr));
    EXPECT_EQ(out.string, "");
}

TEST_F(send_cmd, Gives_a_literal_reply_as_often_as_it_is_asked_for) {
    EXPECT_EQ(bridge.ask(CHILD_REPLY_LITERAL), bridge_child_literal);
    EXPECT_EQ(bridge.ask(CHILD_REPLY_LITERAL), bridge_child_literal);
}

TEST_F(send_cmd, Carries_long_texts) {
    const std::string text(1000000, 'x');
    EXPECT_EQ(bridge.ask(CHILD_ECHO, text), text);
}

TEST_F(send_cmd, Fails_when_the_handler_fails) {
    expect_failure(CHILD_FAIL, "x", handler_failed);
    EXPECT_THAT(log.lines(), ElementsAre(failure_line(CHILD_FAIL, handler_failed)));
}

TEST_F(send_cmd, Gives_no_reply_of_a_handler_that_fails) {
    expect_failure(CHILD_REPLY_AND_FAIL, "x", handler_failed);
}

TEST_F(send_cmd, Leaves_the_string_alone_when_it_fails) {
    std::string argument = "x";
    EXPECT_FALSE(bridge.send_cmd(CHILD_FAIL, out.string, argument, &out.err));
    out.expect_untouched();
}

TEST_F(send_cmd, Fails_when_the_child_has_no_handler) {
    expect_failure(bridge_child_unknown_command, "x", handler_failed);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("WARN", "bridge_child", "Command ID: 4711 is not supported"),
                            failure_line(bridge_child_unknown_command, handler_failed)));
}

TEST_F(send_cmd, Fails_when_the_reply_is_not_valid_UTF_8) {
    expect_failure(CHILD_REPLY_INVALID_UTF8, "x", handler_failed);
    EXPECT_EQ(bridge.ask(CHILD_ECHO, "the child lives"), "the child lives");
}

TEST_F(send_cmd, Fails_when_the_argument_is_not_valid_UTF_8) {
    for (const char* argument : {"\xff", "cut \xc3", "\xed\xa0\x80"}) {
        log.clear();
        expect_failure(CHILD_ECHO, argument, "The text is not valid UTF-8");
    }
    EXPECT_THAT(bridge.journal(), IsEmpty());
}

TEST_F(send_cmd, Fails_when_the_string_is_not_valid_UTF_8) {
    std::string argument = "\xff";
    EXPECT_FALSE(bridge.send_cmd(CHILD_ECHO, out.string, argument, &out.err));
    out.expect_untouched();
    EXPECT_THAT(log.lines(), ElementsAre(failure_line(CHILD_ECHO, "The text is not valid UTF-8")));
}

// The bus would drop the parent's connection over such a message.
TEST_F(send_cmd, Fails_when_the_argument_is_too_long_for_the_bus) {
    const std::string argument(size_t{128} << 20, 'x');
    expect_failure(CHILD_ECHO, argument.c_str(), "The text is too long for the bus");
    EXPECT_EQ(bridge.ask(CHILD_ECHO, "the bus is still there"), "the bus is still there");
}

TEST_F(send_cmd, Fails_at_once_when_the_child_ends_instead_of_replying) {
    const double start = vask_object::vask_gettime(VASK_TIME_MSEC);
    expect_failure(CHILD_EXIT, "0", recipient_gone);
    EXPECT_LT(vask_object::vask_gettime(VASK_TIME_MSEC) - start, at_once_msec);
}

TEST_F(send_cmd, Fails_at_once_when_the_child_crashes_instead_of_replying) {
    const double start = vask_object::vask_gettime(VASK_TIME_MSEC);
    expect_failure(CHILD_ABORT, "", recipient_gone);
    EXPECT_LT(vask_object::vask_gettime(VASK_TIME_MSEC) - start, at_once_msec);
}

TEST_F(send_cmd, Fails_at_once_when_the_child_was_killed_meanwhile) {
    const double start = vask_object::vask_gettime(VASK_TIME_MSEC);
    ASSERT_EQ(kill(bridge.get_child_pid(), SIGKILL), 0);

    EXPECT_FALSE(bridge.send_cmd(CHILD_ECHO, &out.text, "hello", &out.err));

    EXPECT_LT(vask_object::vask_gettime(VASK_TIME_MSEC) - start, at_once_msec);
    out.expect_untouched();
    // The bus may or may not have heard of the end when the call comes.
    const std::string unknown =
        "The name " + bridge.child_name() + " was not provided by any .service files";
    EXPECT_THAT(log.lines(), ElementsAre(AnyOf(failure_line(CHILD_ECHO, recipient_gone),
                                               failure_line(CHILD_ECHO, unknown))));
    EXPECT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
}

TEST_F(send_cmd, Fails_while_the_child_is_without_its_name) {
    bridge.ask(CHILD_RELEASE_NAME);
    expect_failure(CHILD_ECHO, "hello",
                   "The name " + bridge.child_name() + " was not provided by any .service files");
}

TEST_F(send_cmd, Fails_as_before_any_spawn_once_the_child_has_ended) {
    kill(bridge.get_child_pid(), SIGKILL);
    ASSERT_TRUE(bridge.wait_for_ends(1));

    EXPECT_FALSE(bridge.send_cmd(CHILD_ECHO, &out.text, "hello", &out.err));

    EXPECT_EQ(out.err.get_code(), VASK_ERR_NOT_SPAWNED);
}

TEST_F(send_cmd, Costs_a_call_and_a_reply_on_the_bus) {
    // The child may still be busy with its own start until it has answered once.
    bridge.ask(CHILD_ECHO, "zero");
    bus_monitor bus;

    bridge.ask(CHILD_ECHO, "one");
    bridge.ask(CHILD_ECHO, "two");

    const bus_message call = {"call", "Command"};
    const bus_message reply = {"reply", ""};
    EXPECT_THAT(bus.stop(), ElementsAre(call, reply, call, reply));
}

TEST_F(early_send_cmd, Fails_before_spawn) {
    vask_object::print_msg_level = VASK_P_DBG;
    log.clear();

    EXPECT_FALSE(bridge.send_cmd(CHILD_ECHO, &out.text, "hello", &out.err));

    EXPECT_EQ(out.text, out.marker);
    EXPECT_EQ(out.err.get_code(), VASK_ERR_NOT_SPAWNED);
    EXPECT_EQ(out.err.get_message(), "Cannot call send_cmd() prior to spawn()!");
    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "bridge", std::string(entry_text) + "1, hello"),
                            line("ERR", "bridge", "Cannot call send_cmd() prior to spawn()!")));
}

TEST_F(early_send_cmd, Fails_before_spawn_with_strings) {
    std::string argument = "hello";
    EXPECT_FALSE(bridge.send_cmd(CHILD_ECHO, out.string, argument, &out.err));
    EXPECT_EQ(out.string, "untouched");
    EXPECT_EQ(out.err.get_code(), VASK_ERR_NOT_SPAWNED);
    EXPECT_EQ(out.err.get_message(), "Cannot call send_cmd() prior to spawn()!");
}

TEST_F(early_send_cmd, Fails_before_spawn_without_an_error_to_fill) {
    EXPECT_FALSE(bridge.send_cmd(CHILD_ECHO, nullptr, "hello", nullptr));
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "bridge", "Cannot call send_cmd() prior to spawn()!")));
}

TEST_F(early_send_cmd, Fails_before_the_child_is_met) {
    bridge.spawn_child();
    vask_object::print_msg_level = VASK_P_DBG;
    log.clear();

    EXPECT_FALSE(bridge.send_cmd(CHILD_ECHO, &out.text, "hello", &out.err));

    EXPECT_EQ(out.text, out.marker);
    EXPECT_EQ(out.err.get_code(), VASK_ERR_NO_CHILD_PROXY);
    EXPECT_EQ(out.err.get_message(), "No child proxy yet! Command is dropped.");
    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "bridge", std::string(entry_text) + "1, hello"),
                            line("DBG", "bridge", "No child proxy yet! Command is dropped.")));
}

TEST_F(early_send_cmd, Fails_before_the_child_is_met_with_strings) {
    bridge.spawn_child();
    std::string argument = "hello";
    EXPECT_FALSE(bridge.send_cmd(CHILD_ECHO, out.string, argument, &out.err));
    EXPECT_EQ(out.string, "untouched");
    EXPECT_EQ(out.err.get_code(), VASK_ERR_NO_CHILD_PROXY);
}

TEST_F(early_send_cmd, Is_never_queued) {
    bridge.spawn_child();

    EXPECT_FALSE(bridge.send_cmd(CHILD_ECHO, nullptr, "hello", nullptr));

    ASSERT_TRUE(bridge.wait_until_met());
    EXPECT_THAT(bridge.journal(), IsEmpty());
}

TEST_F(early_send_cmd, Goes_to_the_main_one_of_twins) {
    bridge.enable_twins_mode();
    bridge.spawn_child();
    ASSERT_TRUE(bridge.wait_until_met());

    bridge.ask(CHILD_ECHO, "to the first");
    bridge.switch_main_worker();
    bridge.ask(CHILD_ECHO, "to the second");

    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 to the second"));
    bridge.switch_main_worker();
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 to the first"));
}
