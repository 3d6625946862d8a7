// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Outside of run(), what a child calls may delete the child.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <stdexcept>

#include "vask_child.h"
#include "vask_test/log_catcher.h"
#include "vask_test/served_child.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/** The commands 1 and 2, and its window, delete it; the last two throw as well. */
class short_lived_child : public vask_child {
public:
    short_lived_child() : vask_child("short_lived", 0, nullptr) {
        add_cmd_handler(1, static_cast<cmd_handler>(&short_lived_child::end));
        add_cmd_handler(2, static_cast<cmd_handler>(&short_lived_child::end_and_throw));
    }

    void set_window(int, int, int, int, unsigned int) override { end_and_throw("", nullptr); }

private:
    bool end(const char*, const char** reply) {
        *reply = "farewell";
        delete this;
        return true;
    }

    bool end_and_throw(const char*, const char**) {
        delete this;
        throw std::runtime_error("farewell");
    }
};

struct deleted_child : testing::Test {
    vask_child* const child = new short_lived_child;
    bus_client client;
    served_child served{client, child_name(getpid())};
    log_catcher log;
};

log_line thrown(const std::string& callback) {
    return line("ERR", "vask", callback + ": An exception was thrown: farewell");
}

void delete_child(vask_child* child, int, const char*, void*) {
    delete child;
}

void count_call(vask_child*, int, const char*, void* count) {
    ++*static_cast<int*>(count);
}

void throw_data(vask_child*, int, const char* data, void*) {
    throw std::runtime_error(data);
}

}  // namespace

TEST_F(deleted_child, Has_sent_the_reply_of_the_handler_that_deletes_it) {
    EXPECT_EQ(served.command(1).text, "farewell");
    EXPECT_FALSE(served.command(1).ok);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(deleted_child, May_end_in_a_command_that_throws) {
    EXPECT_FALSE(served.command(2).ok);
    EXPECT_THAT(log.lines(), ElementsAre(thrown("vask_child::command()")));
    EXPECT_FALSE(served.command(1).ok);
}

TEST_F(deleted_child, May_end_in_a_window_that_throws) {
    EXPECT_FALSE(served.set_window(1, 2, 3, 4, 5).ok);
    EXPECT_THAT(log.lines(), ElementsAre(thrown("vask_child::set_window()")));
    EXPECT_FALSE(served.command(1).ok);
}

TEST_F(deleted_child, Calls_no_further_observer_and_sends_no_signal) {
    int calls = 0;
    child->connect_child_signal(delete_child, 1, nullptr);
    child->connect_child_signal(count_call, 1, &calls);
    client.subscribe("type='signal',interface='com.example.vask.Child'");

    child->emit_signal(1, "data");

    EXPECT_EQ(calls, 0);
    EXPECT_FALSE(served.command(1).ok);
    EXPECT_THAT(client.signals(), IsEmpty());
}

TEST_F(deleted_child, May_end_in_a_signal_that_an_observer_raises) {
    int calls = 0;
    const auto raise_next = [](vask_child* child, int, const char* data, void*) {
        child->emit_signal(2, data);
    };
    child->connect_child_signal(raise_next, 1, nullptr);
    child->connect_child_signal(delete_child, 2, nullptr);
    child->connect_child_signal(count_call, 1, &calls);

    child->emit_signal(1, "data");

    EXPECT_EQ(calls, 0);
}

TEST_F(deleted_child, Is_not_needed_for_what_an_observer_throws) {
    client.subscribe("type='signal',interface='com.example.vask.Child'");
    child->connect_child_signal(throw_data, 1, nullptr);

    EXPECT_THROW(child->emit_signal(1, "not sent"), std::runtime_error);
    child->emit_signal(2, "sent");

    ASSERT_TRUE(client.wait_for_signals(1));
    EXPECT_EQ(client.signals()[0].text, "sent");
    delete child;
}
