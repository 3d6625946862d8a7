// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "support/open_app.h"
#include "vask_child.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_standard_layout<vask_child_signal_closure>::value, "a plain record");
static_assert(std::is_trivial<vask_child_signal_closure>::value, "a plain record");

namespace {

struct open_child : vask_child {
    open_child(int argc, char** argv) : vask_child("child", argc, argv) {}
    using vask_child::m_bus_object;
    using vask_child::m_signal_closures;
};

/** What an observer does is up to the test; who was called is recorded. */
struct observer {
    std::string name;
    std::vector<std::string>* calls;
    std::function<void()> action = [] {};
};

std::string text_or_null(const char* text) {
    return text ? text : "(null)";
}

void record(vask_child*, int signal_id, const char* data, void* user_data) {
    const observer& called = *static_cast<observer*>(user_data);
    called.calls->push_back(called.name + " " + std::to_string(signal_id) + " " +
                            text_or_null(data));
    called.action();
}

void record_in_other_words(vask_child*, int, const char*, void* user_data) {
    const observer& called = *static_cast<observer*>(user_data);
    called.calls->push_back(called.name + " in other words");
}

/** A child that is not on the bus: its observers do not need one. */
class observers : public testing::Test {
protected:
    void connect(observer& who, int signal_id = 1) {
        child.connect_child_signal(record, signal_id, &who);
    }
    void disconnect(observer& who, int signal_id = 1) {
        child.disconnect_child_signal(record, signal_id, &who);
    }

    command_line arguments{no_sys_init_marker};
    open_child child{arguments.argc(), arguments.argv()};
    std::vector<std::string> calls;
    observer first{"first", &calls};
    observer second{"second", &calls};
    observer third{"third", &calls};
};

}  // namespace

TEST_F(observers, Are_kept_as_they_were_given) {
    connect(first, 42);
    ASSERT_EQ(child.m_signal_closures.size(), 1u);
    EXPECT_EQ(child.m_signal_closures[0].callback, record);
    EXPECT_EQ(child.m_signal_closures[0].user_data, &first);
    EXPECT_EQ(child.m_signal_closures[0].signal_id, 42);
}

TEST_F(observers, Are_told_the_child_the_signal_the_data_and_their_own_pointer) {
    struct told {
        vask_child* child;
        int signal_id;
        const char* data;
    } heard{};
    const auto hear = [](vask_child* child, int signal_id, const char* data, void* user_data) {
        *static_cast<told*>(user_data) = {child, signal_id, data};
    };
    const char data[] = "data";
    child.connect_child_signal(hear, -7, &heard);
    child.observe_signal(-7, data);
    EXPECT_EQ(heard.child, &child);
    EXPECT_EQ(heard.signal_id, -7);
    EXPECT_EQ(heard.data, data);
}

TEST_F(observers, Are_called_in_the_order_of_registration) {
    connect(second);
    connect(first);
    connect(third);
    child.observe_signal(1, "x");
    EXPECT_THAT(calls, ElementsAre("second 1 x", "first 1 x", "third 1 x"));
}

TEST_F(observers, Hear_only_their_own_signal) {
    connect(first, 1);
    connect(second, 2);
    child.observe_signal(2, "x");
    child.observe_signal(3, "x");
    EXPECT_THAT(calls, ElementsAre("second 2 x"));
}

TEST_F(observers, Are_called_as_often_as_they_are_registered) {
    connect(first);
    connect(first);
    child.observe_signal(1, "x");
    EXPECT_THAT(calls, ElementsAre("first 1 x", "first 1 x"));
}

TEST_F(observers, Are_called_by_emit_signal) {
    connect(first);
    child.emit_signal(1, "x");
    EXPECT_THAT(calls, ElementsAre("first 1 x"));
}

TEST_F(observers, May_be_missing) {
    log_catcher log;
    child.observe_signal(1, "x");
    child.emit_signal(1, "x");
    EXPECT_EQ(child.m_bus_object, nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(observers, Are_given_null_as_null) {
    connect(first);
    child.emit_signal(1, nullptr);
    EXPECT_THAT(calls, ElementsAre("first 1 (null)"));
}

TEST_F(observers, Are_given_text_that_the_bus_would_not_take) {
    log_catcher log;
    connect(first);
    child.emit_signal(1, "caf\xe9");
    EXPECT_THAT(calls, ElementsAre("first 1 caf\xe9"));
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("ERR", "child", "Failed to emit signal 1: The text is not valid UTF-8")));
}

TEST_F(observers, Are_removed_by_the_arguments_of_their_registration) {
    connect(first);
    connect(second);
    disconnect(first);
    child.observe_signal(1, "x");
    EXPECT_THAT(calls, ElementsAre("second 1 x"));
}

TEST_F(observers, Stay_when_any_argument_differs) {
    log_catcher log;
    connect(first);
    child.disconnect_child_signal(record, 1, &second);
    child.disconnect_child_signal(record, 1, nullptr);
    child.disconnect_child_signal(record, 2, &first);
    child.disconnect_child_signal(record_in_other_words, 1, &first);
    child.observe_signal(1, "x");
    EXPECT_THAT(calls, ElementsAre("first 1 x"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(observers, Are_removed_as_often_as_they_are_registered_and_the_others_keep_their_order) {
    connect(first);
    connect(third);
    connect(first);
    child.connect_child_signal(record_in_other_words, 1, &first);
    connect(second);
    connect(first);
    disconnect(first);
    child.observe_signal(1, "x");
    EXPECT_THAT(calls, ElementsAre("third 1 x", "first in other words", "second 1 x"));
}

TEST_F(observers, May_remove_themselves) {
    connect(first);
    connect(second);
    first.action = [this] { disconnect(first); };
    child.observe_signal(1, "x");
    child.observe_signal(1, "y");
    EXPECT_THAT(calls, ElementsAre("first 1 x", "second 1 x", "second 1 y"));
}

TEST_F(observers, That_remove_themselves_are_gone_at_once_even_if_registered_twice) {
    connect(first);
    connect(first);
    first.action = [this] { disconnect(first); };
    child.observe_signal(1, "x");
    EXPECT_THAT(calls, ElementsAre("first 1 x"));
}

TEST_F(observers, May_remove_a_later_one_which_is_not_called_any_more) {
    connect(first);
    connect(second);
    connect(third);
    first.action = [this] { disconnect(second); };
    child.observe_signal(1, "x");
    EXPECT_THAT(calls, ElementsAre("first 1 x", "third 1 x"));
}

TEST_F(observers, May_remove_an_earlier_one_without_skipping_another) {
    connect(first);
    connect(second);
    connect(third);
    second.action = [this] { disconnect(first); };
    child.observe_signal(1, "x");
    child.observe_signal(1, "y");
    EXPECT_THAT(calls,
                ElementsAre("first 1 x", "second 1 x", "third 1 x", "second 1 y", "third 1 y"));
}

TEST_F(observers, May_remove_everybody) {
    connect(first);
    connect(second);
    connect(third);
    second.action = [this] {
        disconnect(first);
        disconnect(second);
        disconnect(third);
    };
    child.observe_signal(1, "x");
    child.observe_signal(1, "y");
    EXPECT_THAT(calls, ElementsAre("first 1 x", "second 1 x"));
}

TEST_F(observers, That_are_added_meanwhile_hear_only_the_next_signal) {
    connect(first);
    first.action = [this] { connect(second); };
    child.observe_signal(1, "x");
    EXPECT_THAT(calls, ElementsAre("first 1 x"));
    child.observe_signal(1, "y");
    EXPECT_THAT(calls, ElementsAre("first 1 x", "first 1 y", "second 1 y"));
}

TEST_F(observers, May_be_added_in_great_numbers_meanwhile) {
    connect(first);
    connect(third);
    first.action = [this] {
        for (int i = 0; i < 1000; ++i) {
            connect(second);
        }
    };
    child.observe_signal(1, "x");
    EXPECT_THAT(calls, ElementsAre("first 1 x", "third 1 x"));
}

TEST_F(observers, May_raise_another_signal) {
    connect(first, 1);
    connect(second, 1);
    connect(third, 2);
    first.action = [this] { child.emit_signal(2, "y"); };
    child.emit_signal(1, "x");
    EXPECT_THAT(calls, ElementsAre("first 1 x", "third 2 y", "second 1 x"));
}

TEST_F(observers, Are_reached_through_the_virtual_operations_of_a_subclass) {
    struct counting : vask_child {
        counting(int argc, char** argv) : vask_child("counting", argc, argv) {}
        void connect_child_signal(vask_child_signal_cb callback, int id, void* data) override {
            ++connected;
            vask_child::connect_child_signal(callback, id, data);
        }
        void disconnect_child_signal(vask_child_signal_cb, int, void*) override { ++disconnected; }
        void emit_signal(int, const char*) override { ++emitted; }
        int connected = 0, disconnected = 0, emitted = 0;
    } subclass(arguments.argc(), arguments.argv());
    vask_child& base = subclass;
    base.connect_child_signal(record, 1, &first);
    base.disconnect_child_signal(record, 1, &first);
    base.emit_signal(1, "x");
    EXPECT_EQ(subclass.connected, 1);
    EXPECT_EQ(subclass.disconnected, 1);
    EXPECT_EQ(subclass.emitted, 1);
    EXPECT_THAT(calls, IsEmpty());
}
