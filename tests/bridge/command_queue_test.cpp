// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "bridge/bus_monitor.h"
#include "bridge/recording_bridge.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class command_queue : public testing::Test {
protected:
    void enqueue(int id, const char* argument) {
        proxy->enqueue_cmd(new child_cmd_buffer(id, argument));
    }

    /** Takes everything out of the queue, as "ID ARGUMENT". */
    std::vector<std::string> dequeue_all() {
        std::vector<std::string> result;
        while (child_cmd_buffer* cmd = proxy->dequeue_cmd()) {
            result.push_back(std::to_string(cmd->id) + " " + cmd->argument);
            delete cmd;
        }
        return result;
    }

    recording_bridge bridge;
    std::unique_ptr<vask_child_proxy> proxy =
        std::make_unique<vask_child_proxy>(bridge, "proxy", 12345, 0);
};

}  // namespace

TEST(child_cmd_buffer, Copies_a_text) {
    char text[] = "one";
    const child_cmd_buffer cmd(7, text);
    text[0] = '\0';
    EXPECT_EQ(cmd.id, 7);
    EXPECT_EQ(cmd.argument, "one");
}

TEST(child_cmd_buffer, Takes_null_as_the_empty_argument) {
    const char* null = nullptr;
    const child_cmd_buffer cmd(7, null);
    EXPECT_EQ(cmd.id, 7);
    EXPECT_EQ(cmd.argument, "");
}

TEST(child_cmd_buffer, Copies_a_string) {
    std::string text = "one";
    const child_cmd_buffer cmd(-7, text);
    text = "overwritten";
    EXPECT_EQ(cmd.id, -7);
    EXPECT_EQ(cmd.argument, "one");
}

TEST_F(command_queue, Gives_nothing_when_it_is_empty) {
    EXPECT_EQ(proxy->dequeue_cmd(), nullptr);
}

TEST_F(command_queue, Gives_back_the_very_entry) {
    auto* cmd = new child_cmd_buffer(1, "A");
    proxy->enqueue_cmd(cmd);
    EXPECT_EQ(proxy->dequeue_cmd(), cmd);
    delete cmd;
}

TEST_F(command_queue, Gives_commands_in_the_order_in_which_they_came) {
    enqueue(1, "A");
    enqueue(2, "B");
    enqueue(3, "C");
    EXPECT_THAT(dequeue_all(), ElementsAre("1 A", "2 B", "3 C"));
}

TEST_F(command_queue, Is_empty_after_a_purge) {
    enqueue(1, "A");
    enqueue(2, "B");
    proxy->queue_purge();
    EXPECT_EQ(proxy->dequeue_cmd(), nullptr);
}

TEST_F(command_queue, Can_be_purged_when_it_is_empty) {
    proxy->queue_purge();
    EXPECT_EQ(proxy->dequeue_cmd(), nullptr);
}

TEST_F(command_queue, Is_dropped_silently_with_its_proxy) {
    enqueue(1, "A");
    enqueue(2, "B");
    proxy->bus_setup(bridge.m_bus_connection);
    vask_object::print_msg_level = VASK_P_DBG;
    log_catcher log;
    bus_monitor bus;

    proxy.reset();

    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "proxy", "virtual vask_object::~vask_object()")));
    EXPECT_THAT(bus.stop(), testing::Each(testing::Field(&bus_message::member, "RemoveMatch")));
}

TEST_F(command_queue, Is_kept_by_a_flush_without_bus_proxy) {
    enqueue(1, "A");
    enqueue(2, "B");
    bridge.flush_child_cmd_buffer(proxy.get());
    EXPECT_THAT(dequeue_all(), ElementsAre("1 A", "2 B"));
}

TEST_F(command_queue, Is_not_there_to_flush_without_proxy) {
    vask_object::print_msg_level = VASK_P_DBG;
    log_catcher log;
    bridge.flush_child_cmd_buffer(nullptr);
    EXPECT_EQ(log.text(), "");
}

TEST_F(command_queue, Is_flushed_to_the_child_of_its_proxy_in_order) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.main_worker()->enqueue_cmd(new child_cmd_buffer(CHILD_ECHO, "A"));
    bridge.main_worker()->enqueue_cmd(new child_cmd_buffer(CHILD_FAIL, "B"));
    EXPECT_THAT(bridge.journal(), IsEmpty());

    bridge.flush_child_cmd_buffer(bridge.main_worker());

    EXPECT_EQ(bridge.main_worker()->dequeue_cmd(), nullptr);
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 A", "Command 2 B"));
}

TEST_F(command_queue, Costs_one_message_for_each_command_that_is_flushed) {
    ASSERT_TRUE(bridge.spawn_and_settle());
    bridge.main_worker()->enqueue_cmd(new child_cmd_buffer(CHILD_ECHO, "A"));
    bridge.main_worker()->enqueue_cmd(new child_cmd_buffer(CHILD_FAIL, "B"));
    bus_monitor bus;

    bridge.flush_child_cmd_buffer(bridge.main_worker());

    EXPECT_THAT(bus.stop(), ElementsAre(bus_message{"call without reply", "Command"},
                                        bus_message{"call without reply", "Command"}));
}

// libdbus would end the process over such a text.
TEST_F(command_queue, Drops_a_command_that_is_not_valid_UTF_8_when_it_is_flushed) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    for (const char* argument : {"A", "\xff", "C"}) {
        bridge.main_worker()->enqueue_cmd(new child_cmd_buffer(CHILD_ECHO, argument));
    }
    log_catcher log;

    bridge.flush_child_cmd_buffer(bridge.main_worker());

    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "bridge",
                                 "Failed to send command 1: The text is not valid UTF-8")));
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 A", "Command 1 C"));
}
