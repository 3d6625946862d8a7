// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "controller/open_controller.h"
#include "controller/running_child.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

/** A controller that has found its child. */
class cmd_func : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(controller.make_proxy(child.pid(), false)); }

    void expect_failure(int id, const char* argument, const std::string& reason) {
        std::string reply = "untouched";
        EXPECT_FALSE(controller.cmd_func(id, argument, &reply));
        EXPECT_EQ(reply, "untouched");
        EXPECT_THAT(log.lines(), testing::Contains(failure(id, reason)));
        EXPECT_EQ(log.text().back(), '\n');
    }

    void expect_only_failure(int id, const char* argument, const std::string& reason) {
        expect_failure(id, argument, reason);
        EXPECT_THAT(log.lines(), ElementsAre(failure(id, reason)));
    }

    static log_line failure(int id, const std::string& reason) {
        return line("ERR", "controller",
                    "Failed to call: cmd_id: " + std::to_string(id) + ". " + reason);
    }

    log_catcher log;
    running_child child{log};
    open_controller controller;
};

constexpr const char* handler_failed =
    "Method invoked for Command returned FALSE but did not set error";

}  // namespace

TEST_F(cmd_func, Gives_the_reply_of_the_child) {
    std::string reply = "replaced";
    EXPECT_TRUE(controller.cmd_func(CONTROLLER_CHILD_ECHO, "h\xc3\xa4llo \"world\"", &reply));
    EXPECT_EQ(reply, "h\xc3\xa4llo \"world\"");
    EXPECT_THAT(log.lines(), ElementsAre(line("", "", "command 1 h\xc3\xa4llo \"world\"")));
}

TEST_F(cmd_func, Can_do_without_the_reply) {
    EXPECT_TRUE(controller.cmd_func(CONTROLLER_CHILD_ECHO, "hello", nullptr));
    EXPECT_THAT(log.lines(), ElementsAre(line("", "", "command 1 hello")));
}

TEST_F(cmd_func, Carries_the_empty_text) {
    std::string reply = "replaced";
    EXPECT_TRUE(controller.cmd_func(CONTROLLER_CHILD_ECHO, "", &reply));
    EXPECT_EQ(reply, "");
}

TEST_F(cmd_func, Gives_the_empty_text_when_the_child_has_stored_no_reply) {
    std::string reply = "replaced";
    EXPECT_TRUE(controller.cmd_func(CONTROLLER_CHILD_NO_REPLY, "", &reply));
    EXPECT_EQ(reply, "");
}

TEST_F(cmd_func, Carries_long_texts) {
    const std::string text(1000000, 'x');
    std::string reply;
    EXPECT_TRUE(controller.cmd_func(CONTROLLER_CHILD_ECHO, text.c_str(), &reply));
    EXPECT_EQ(reply, text);
}

TEST_F(cmd_func, Fails_when_the_handler_fails) {
    expect_failure(CONTROLLER_CHILD_FAIL, "x", handler_failed);
}

TEST_F(cmd_func, Fails_when_the_child_has_no_handler) {
    expect_failure(controller_child_unknown_command, "x", handler_failed);
}

TEST_F(cmd_func, Fails_when_the_child_ends_before_it_answers) {
    expect_failure(CONTROLLER_CHILD_DIE, "x",
                   "Message recipient disconnected from message bus without replying");
}

TEST_F(cmd_func, Fails_when_the_child_has_ended) {
    child.end();
    expect_only_failure(CONTROLLER_CHILD_ECHO, "x",
                        "The name com.example.vask.Child_" + std::to_string(child.pid()) +
                            " was not provided by any .service files");
}

TEST_F(cmd_func, Fails_for_a_null_argument) {
    expect_only_failure(CONTROLLER_CHILD_ECHO, nullptr, "The argument is null");
}

TEST_F(cmd_func, Fails_for_an_argument_that_is_not_valid_UTF_8) {
    for (const char* argument : {"\xff", "cut \xc3", "\xed\xa0\x80"}) {
        log.clear();
        expect_only_failure(CONTROLLER_CHILD_ECHO, argument, "The text is not valid UTF-8");
    }
}

TEST_F(cmd_func, Fails_for_an_argument_that_is_too_long_for_the_bus) {
    const std::string text(128 * 1024 * 1024, 'x');
    expect_only_failure(CONTROLLER_CHILD_ECHO, text.c_str(), "The text is too long for the bus");
}

TEST_F(cmd_func, Goes_on_after_a_failure) {
    EXPECT_FALSE(controller.cmd_func(CONTROLLER_CHILD_FAIL, "x", nullptr));
    std::string reply;
    EXPECT_TRUE(controller.cmd_func(CONTROLLER_CHILD_ECHO, "hello", &reply));
    EXPECT_EQ(reply, "hello");
}

TEST_F(cmd_func, Fails_without_a_proxy) {
    open_controller fresh;
    std::string reply = "untouched";

    EXPECT_FALSE(fresh.cmd_func(CONTROLLER_CHILD_ECHO, "x", &reply));

    EXPECT_EQ(reply, "untouched");
    EXPECT_THAT(log.lines(),
                ElementsAre(failure(CONTROLLER_CHILD_ECHO, "There is no proxy to a child")));
}
