// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/open_app.h"
#include "vask_child.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char untouched[] = "untouched";

class commanded_child : public vask_child {
public:
    explicit commanded_child(command_line&& line) : vask_child("child", line.argc(), line.argv()) {}

    bool succeed(const char* argument, const char** reply) {
        heard = argument;
        reply_on_entry = *reply;
        *reply = "done";
        return true;
    }
    bool say_nothing(const char*, const char**) { return true; }
    bool fail(const char*, const char**) { return false; }
    virtual bool overridable(const char*, const char** reply) {
        *reply = "base";
        return true;
    }

    void add(int id, bool (commanded_child::*handler)(const char*, const char**)) {
        add_cmd_handler(id, static_cast<cmd_handler>(handler));
    }
    using vask_child::m_cmd_handlers;

    const char* heard = nullptr;
    const char* reply_on_entry = untouched;
};

class overriding_child : public commanded_child {
public:
    using commanded_child::commanded_child;
    bool overridable(const char*, const char** reply) override {
        *reply = "subclass";
        return true;
    }
};

/** A child that is not on the bus, called directly. */
class commands : public testing::Test {
protected:
    overriding_child child{command_line{no_sys_init_marker}};
    const char* reply = untouched;
};

/** A class that has other virtual operations before those of a child. */
struct listener {
    virtual ~listener() = default;
    virtual void listen() {}
};

class listening_child : public listener, public vask_child {
public:
    explicit listening_child(command_line&& line) : vask_child("child", line.argc(), line.argv()) {
        add_cmd_handler(1, static_cast<cmd_handler>(&listening_child::reply_name));
    }

private:
    bool reply_name(const char*, const char** reply) {
        *reply = m_name;
        return true;
    }

    const char* m_name = "listening";
};

log_line received(int id) {
    return line("DBG", "child",
                "virtual bool vask_child::command(int, const char*, const char**): received a "
                "command: " +
                    std::to_string(id));
}

}  // namespace

TEST_F(commands, Are_empty_in_the_base) {
    EXPECT_THAT(child.m_cmd_handlers, IsEmpty());
}

TEST_F(commands, Reach_their_handler_with_the_callers_argument) {
    child.add(1, &commanded_child::succeed);
    const char argument[] = "argument";
    EXPECT_TRUE(child.command(1, argument, &reply));
    EXPECT_EQ(child.heard, argument);
    EXPECT_STREQ(reply, "done");
}

TEST_F(commands, Show_their_handler_no_reply_at_first) {
    child.add(1, &commanded_child::succeed);
    child.command(1, "", &reply);
    EXPECT_EQ(child.reply_on_entry, nullptr);
}

TEST_F(commands, Have_a_null_reply_when_the_handler_stores_none) {
    child.add(1, &commanded_child::say_nothing);
    EXPECT_TRUE(child.command(1, "", &reply));
    EXPECT_EQ(reply, nullptr);
}

TEST_F(commands, Fail_when_the_handler_fails) {
    child.add(1, &commanded_child::fail);
    EXPECT_FALSE(child.command(1, "", &reply));
    EXPECT_EQ(reply, nullptr);
}

TEST_F(commands, Honour_virtual_handlers) {
    child.add(1, &commanded_child::overridable);
    EXPECT_TRUE(child.command(1, "", &reply));
    EXPECT_STREQ(reply, "subclass");
}

TEST(command, Reaches_a_handler_of_a_class_that_does_not_begin_with_the_child) {
    listening_child child(command_line{no_sys_init_marker});
    const char* reply = untouched;
    EXPECT_TRUE(child.command(1, "", &reply));
    EXPECT_STREQ(reply, "listening");
}

TEST_F(commands, Are_told_apart_by_their_ids) {
    child.add(1, &commanded_child::succeed);
    child.add(-1, &commanded_child::fail);
    EXPECT_TRUE(child.command(1, "", &reply));
    EXPECT_FALSE(child.command(-1, "", &reply));
}

TEST_F(commands, Have_the_handler_that_was_added_last) {
    child.add(1, &commanded_child::fail);
    child.add(1, &commanded_child::succeed);
    EXPECT_TRUE(child.command(1, "", &reply));
    EXPECT_EQ(child.m_cmd_handlers.size(), 1u);
}

TEST_F(commands, May_also_be_put_into_the_map) {
    child.m_cmd_handlers[5] = static_cast<vask_child::cmd_handler>(&commanded_child::say_nothing);
    EXPECT_TRUE(child.command(5, "", &reply));
}

TEST_F(commands, Are_logged_for_debugging) {
    child.add(1, &commanded_child::succeed);
    vask_object::print_msg_level = VASK_P_DBG;
    log_catcher log;
    child.command(1, "", &reply);
    EXPECT_THAT(log.lines(), ElementsAre(received(1)));
}

TEST_F(commands, Without_a_handler_fail_and_leave_the_reply_alone) {
    log_catcher log;
    EXPECT_FALSE(child.command(-3, "", &reply));
    EXPECT_EQ(reply, untouched);
    EXPECT_THAT(log.lines(), ElementsAre(line("WARN", "child", "Command ID: -3 is not supported")));
}

TEST_F(commands, Without_a_handler_are_logged_for_debugging_first) {
    vask_object::print_msg_level = VASK_P_DBG;
    log_catcher log;
    child.command(9, "", &reply);
    EXPECT_THAT(log.lines(),
                ElementsAre(received(9), line("WARN", "child", "Command ID: 9 is not supported")));
}

TEST_F(commands, Set_window_is_only_logged_by_the_base) {
    vask_object::print_msg_level = VASK_P_DBG;
    log_catcher log;
    child.set_window(1, 2, 3, 4, 0xabc);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "child",
                                 "virtual void vask_child::set_window(int, int, int, int, guint): "
                                 "(x, y, w, h, id) = (1, 2, 3, 4, abc)")));
}
