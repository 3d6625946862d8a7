// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "controller/open_controller.h"
#include "controller/running_child.h"
#include "support/library_lock_state.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

class call_by_key : public testing::Test {
protected:
    /** The process that was reached, or 0. */
    int reached(unsigned long key) {
        std::string reply = "untouched";
        if (!controller.call_by_key(key, CONTROLLER_CHILD_PID, "", &reply)) {
            EXPECT_EQ(reply, "untouched");
            return 0;
        }
        return std::stoi(reply);
    }

    std::unique_ptr<running_child> registered(const std::string& key) {
        return std::make_unique<running_child>(log, running_child::only_registered(key));
    }

    shared_objects_removed cleanup;
    log_catcher log;
    open_controller controller;
};

}  // namespace

TEST_F(call_by_key, Carries_the_argument_and_gives_the_reply) {
    const auto child = registered("5");
    std::string reply;
    EXPECT_TRUE(controller.call_by_key(5, CONTROLLER_CHILD_ECHO, "hello", &reply));
    EXPECT_EQ(reply, "hello");
    EXPECT_THAT(log.lines(), ElementsAre(line("", "", "command 1 hello")));
}

TEST_F(call_by_key, Can_do_without_the_reply) {
    const auto child = registered("5");
    EXPECT_TRUE(controller.call_by_key(5, CONTROLLER_CHILD_ECHO, "hello", nullptr));
    EXPECT_THAT(log.lines(), ElementsAre(line("", "", "command 1 hello")));
}

TEST_F(call_by_key, Reaches_the_child_with_the_key) {
    const auto first = registered("1");
    const auto second = registered("2");
    EXPECT_EQ(reached(2), second->pid());
    EXPECT_EQ(controller.m_pid, second->pid());
}

TEST_F(call_by_key, Reaches_the_child_with_the_highest_key) {
    const auto child = registered(std::to_string(~0ul));
    EXPECT_EQ(reached(~0ul), child->pid());
}

TEST_F(call_by_key, Reaches_a_child_without_a_key_under_0) {
    const auto child = registered("0");
    EXPECT_EQ(reached(0), child->pid());
}

TEST_F(call_by_key, Fails_without_a_word_for_a_key_that_no_child_has) {
    const auto child = registered("5");
    EXPECT_EQ(reached(4), 0);
    EXPECT_EQ(reached(6), 0);
    EXPECT_EQ(reached(0), 0);
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(controller.m_proxy, nullptr);
}

TEST_F(call_by_key, Fails_without_a_word_when_no_child_is_registered) {
    const running_child unregistered(log);
    EXPECT_EQ(reached(1), 0);
    EXPECT_EQ(log.text(), "");
}

TEST_F(call_by_key, Fails_without_a_word_when_the_child_with_the_key_has_ended) {
    registered("5")->end();
    log.clear();
    EXPECT_EQ(reached(5), 0);
    EXPECT_EQ(log.text(), "");
}

TEST_F(call_by_key, Keeps_the_proxy_when_it_fails_for_a_key_that_no_child_has) {
    const auto child = registered("5");
    ASSERT_EQ(reached(5), child->pid());
    const DBusGProxy* const before = controller.m_proxy;
    EXPECT_EQ(reached(6), 0);
    EXPECT_EQ(controller.m_proxy, before);
}

TEST_F(call_by_key, Goes_by_the_same_proxy_to_the_same_child) {
    const auto child = registered("5");
    ASSERT_EQ(reached(5), child->pid());
    const DBusGProxy* const before = controller.m_proxy;
    EXPECT_EQ(reached(5), child->pid());
    EXPECT_EQ(controller.m_proxy, before);
}

TEST_F(call_by_key, Goes_from_one_child_to_another_and_back) {
    const auto first = registered("1");
    const auto second = registered("2");
    EXPECT_EQ(reached(1), first->pid());
    EXPECT_EQ(reached(2), second->pid());
    EXPECT_EQ(reached(1), first->pid());
}

TEST_F(call_by_key, Replaces_the_proxy_of_a_child_that_has_ended) {
    const auto child = registered("5");
    ASSERT_EQ(reached(5), child->pid());
    child->end();
    const auto successor = registered("5");
    EXPECT_EQ(reached(5), successor->pid());
}

// Whether the child lives is not asked again.
TEST_F(call_by_key, Calls_a_child_that_was_not_reaped) {
    const auto child = registered("5");
    ASSERT_EQ(reached(5), child->pid());
    child->end_unreaped();
    log.clear();

    EXPECT_EQ(reached(5), 0);

    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "controller",
                                 "Failed to call: cmd_id: 2. The name com.example.vask.Child_" +
                                     std::to_string(child->pid()) +
                                     " was not provided by any .service files")));
}

TEST_F(call_by_key, Fails_like_the_command_itself) {
    const auto child = registered("5");
    EXPECT_FALSE(controller.call_by_key(5, CONTROLLER_CHILD_ECHO, nullptr, nullptr));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "controller",
                                              "Failed to call: cmd_id: 1. The argument is null")));
}
