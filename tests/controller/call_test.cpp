// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// To whom a call goes that names nobody.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <memory>
#include <string>

#include "controller/open_controller.h"
#include "controller/running_child.h"
#include "support/library_lock_state.h"
#include "support/registry_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::AnyOf;
using testing::ElementsAre;

namespace {

class call : public testing::Test {
protected:
    /** The process that was reached, or 0. */
    static int reached_by(open_controller& controller) {
        std::string reply = "untouched";
        if (!controller.call(CONTROLLER_CHILD_PID, "", &reply)) {
            EXPECT_EQ(reply, "untouched");
            return 0;
        }
        return std::stoi(reply);
    }

    int reached() { return reached_by(controller); }

    static log_line nobody_there(int pid) {
        return line("ERR", "controller",
                    "Failed to call: cmd_id: 2. The name com.example.vask.Child_" +
                        std::to_string(pid) + " was not provided by any .service files");
    }

    std::unique_ptr<running_child> registered(const std::string& key) {
        return std::make_unique<running_child>(log, running_child::only_registered(key));
    }

    shared_objects_removed cleanup;
    log_catcher log;
    open_controller controller;
};

}  // namespace

TEST_F(call, Carries_the_argument_and_gives_the_reply) {
    const running_child child(log);
    std::string reply;
    EXPECT_TRUE(controller.call(CONTROLLER_CHILD_ECHO, "hello", &reply));
    EXPECT_EQ(reply, "hello");
    EXPECT_THAT(log.lines(), ElementsAre(line("", "", "command 1 hello")));
}

TEST_F(call, Can_do_without_the_reply) {
    const running_child child(log);
    EXPECT_TRUE(controller.call(CONTROLLER_CHILD_ECHO, "hello", nullptr));
    EXPECT_THAT(log.lines(), ElementsAre(line("", "", "command 1 hello")));
}

TEST_F(call, Reaches_the_registered_child_with_the_smallest_key) {
    const auto second = registered("2");
    const auto first = registered("1");
    EXPECT_EQ(reached(), first->pid());
    EXPECT_EQ(controller.m_pid, first->pid());
}

TEST_F(call, Takes_no_key_for_the_smallest_one) {
    const auto with_key = registered("1");
    const auto without_key = registered("0");
    EXPECT_EQ(reached(), without_key->pid());
}

TEST_F(call, Prefers_a_registered_child_to_what_the_process_table_shows) {
    const running_child before(log);
    const auto child = registered("1");
    const running_child behind(log);
    EXPECT_EQ(reached(), child->pid());
}

TEST_F(call, Reaches_the_first_process_of_the_table_when_none_is_registered) {
    const running_child first(log);
    const running_child second(log);
    const int expected = controller.find_program().front();
    EXPECT_THAT(expected, AnyOf(first.pid(), second.pid()));
    EXPECT_EQ(reached(), expected);
}

TEST_F(call, Reaches_a_process_of_the_table_when_all_registered_ones_have_ended) {
    registered("1")->end();
    const running_child child(log);
    EXPECT_EQ(reached(), child.pid());
}

TEST_F(call, Fails_without_a_word_when_there_is_nobody) {
    EXPECT_EQ(reached(), 0);
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(controller.m_proxy, nullptr);
}

TEST_F(call, Fails_without_a_word_for_a_program_that_no_registry_can_be_named_after) {
    open_controller other("no/such/program");
    EXPECT_EQ(reached_by(other), 0);
    EXPECT_EQ(log.text(), "");
}

TEST_F(call, Fails_like_the_command_itself) {
    const running_child child(log);
    std::string reply = "untouched";
    EXPECT_FALSE(controller.call(CONTROLLER_CHILD_FAIL, "x", &reply));
    EXPECT_EQ(reply, "untouched");
    EXPECT_THAT(log.lines(),
                testing::Contains(line("ERR", "controller",
                                       "Failed to call: cmd_id: 3. Method invoked for Command "
                                       "returned FALSE but did not set error")));
}

TEST_F(call, Fails_for_a_null_argument) {
    const running_child child(log);
    EXPECT_FALSE(controller.call(CONTROLLER_CHILD_ECHO, nullptr, nullptr));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "controller",
                                              "Failed to call: cmd_id: 1. The argument is null")));
}

TEST_F(call, Stays_with_the_child_that_it_has_reached) {
    const auto second = registered("2");
    ASSERT_EQ(reached(), second->pid());
    const auto first = registered("1");
    EXPECT_EQ(reached(), second->pid());
}

TEST_F(call, Goes_to_the_child_of_a_proxy_that_was_made_before) {
    const auto first = registered("1");
    const auto second = registered("2");
    ASSERT_TRUE(controller.make_proxy(second->pid(), false));
    EXPECT_EQ(reached(), second->pid());
}

TEST_F(call, Keeps_the_proxy_of_a_child_that_has_ended_and_fails) {
    const running_child other(log);
    const auto child = registered("1");
    ASSERT_EQ(reached(), child->pid());
    const DBusGProxy* const before = controller.m_proxy;
    child->end();
    log.clear();

    EXPECT_EQ(reached(), 0);
    EXPECT_EQ(reached(), 0);

    EXPECT_THAT(log.lines(), ElementsAre(nobody_there(child->pid()), nobody_there(child->pid())));
    EXPECT_EQ(controller.m_proxy, before);
    EXPECT_EQ(controller.m_pid, child->pid());
}

TEST_F(call, Keeps_the_proxy_of_a_child_that_has_ended_though_another_is_registered) {
    const auto child = registered("1");
    ASSERT_EQ(reached(), child->pid());
    child->end();
    const auto successor = registered("1");

    EXPECT_EQ(reached(), 0);

    EXPECT_THAT(log.lines(), ElementsAre(nobody_there(child->pid())));
}

TEST_F(call, Fails_without_a_word_when_its_child_has_ended_and_there_is_nobody_else) {
    running_child child(log);
    ASSERT_EQ(reached(), child.pid());
    child.end();
    log.clear();

    EXPECT_EQ(reached(), 0);

    EXPECT_EQ(log.text(), "");
}

TEST_F(call, Takes_a_child_that_was_not_reaped_for_alive) {
    running_child child(log);
    ASSERT_EQ(reached(), child.pid());
    child.end_unreaped();
    log.clear();

    EXPECT_EQ(reached(), 0);

    EXPECT_THAT(log.lines(), ElementsAre(nobody_there(child.pid())));
}

TEST_F(call, Reaches_another_child_with_a_new_object) {
    const auto child = registered("1");
    ASSERT_EQ(reached(), child->pid());
    child->end();
    const running_child other(log);

    open_controller fresh;
    EXPECT_EQ(reached_by(fresh), other.pid());
}
