// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <string>
#include <vector>

#include "bridge/bus_monitor.h"
#include "bridge/recording_bridge.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* entry_text =
    "bool vask_app_bridge::send_cmd_no_reply(int, const char*, vask_error*): ";

class send_cmd_no_reply : public testing::Test {
protected:
    void SetUp() override {
        err.set_code(VASK_ERR_INVALID_URI);
        err.set_message("untouched");
    }

    void expect_error_untouched() const {
        EXPECT_EQ(err.get_code(), VASK_ERR_INVALID_URI);
        EXPECT_EQ(err.get_message(), "untouched");
        EXPECT_EQ(err.get_next(), nullptr);
    }

    log_line queued_line() const {
        char text[100];
        snprintf(text, sizeof(text), "No child proxy yet!. Command is queued (%p)",
                 static_cast<void*>(bridge.main_worker()));
        return line("DBG", "bridge", text);
    }

    log_catcher log;
    recording_bridge bridge;
    vask_error err;
};

}  // namespace

TEST_F(send_cmd_no_reply, Reaches_the_child) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, "hello", &err));
    expect_error_untouched();
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 hello"));
}

TEST_F(send_cmd_no_reply, Takes_a_literal_a_variable_a_constant_and_a_temporary) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    std::string variable = "variable";
    const std::string constant = "constant";

    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, "literal", nullptr));
    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, variable, nullptr));
    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, constant, nullptr));
    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, std::string("temporary"), nullptr));
    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, variable));

    EXPECT_THAT(bridge.journal(),
                ElementsAre("Command 1 literal", "Command 1 variable", "Command 1 constant",
                            "Command 1 temporary", "Command 1 variable"));
}

TEST_F(send_cmd_no_reply, Logs_the_id_and_the_argument) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    vask_object::print_msg_level = VASK_P_DBG;
    log.clear();

    bridge.send_cmd_no_reply(CHILD_ECHO, "hello", nullptr);

    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "bridge", std::string(entry_text) + "1, hello")));
}

TEST_F(send_cmd_no_reply, Sends_a_null_argument_as_the_empty_text) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    vask_object::print_msg_level = VASK_P_DBG;
    log.clear();
    const char* null = nullptr;

    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, null, &err));

    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "bridge", std::string(entry_text) + "1, (null)")));
    vask_object::print_msg_level = VASK_P_INFO;
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 "));
}

TEST_F(send_cmd_no_reply, Stays_in_order_with_the_calls_that_wait) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.send_cmd_no_reply(CHILD_ECHO, "A", nullptr);
    bridge.ask(CHILD_ECHO, "B");
    bridge.send_cmd_no_reply(CHILD_ECHO, "C", nullptr);
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 A", "Command 1 B", "Command 1 C"));
}

TEST_F(send_cmd_no_reply, Ignores_the_failure_of_the_handler) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    log.clear();

    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_FAIL, "x", &err));

    EXPECT_EQ(bridge.ask(CHILD_ECHO, "hello"), "hello");
    drain_main_loop();
    EXPECT_EQ(log.text(), "");
    expect_error_untouched();
}

TEST_F(send_cmd_no_reply, Ignores_that_the_child_has_no_handler) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    log.clear();

    EXPECT_TRUE(bridge.send_cmd_no_reply(bridge_child_unknown_command, "x", &err));

    EXPECT_EQ(bridge.ask(CHILD_ECHO, "hello"), "hello");
    drain_main_loop();
    EXPECT_THAT(log.lines(),
                ElementsAre(line("WARN", "bridge_child", "Command ID: 4711 is not supported")));
}

TEST_F(send_cmd_no_reply, Is_lost_silently_when_the_child_was_killed_meanwhile) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    log.clear();
    kill(bridge.get_child_pid(), SIGKILL);

    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, "hello", &err));

    EXPECT_TRUE(bridge.wait_for_ends(1));
    drain_main_loop();
    EXPECT_EQ(log.text(), "");
    expect_error_untouched();
}

TEST_F(send_cmd_no_reply, Is_lost_silently_while_the_child_is_without_its_name) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.ask(CHILD_RELEASE_NAME);
    log.clear();

    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, "hello", &err));

    drain_main_loop();
    EXPECT_EQ(log.text(), "");
}

TEST_F(send_cmd_no_reply, Goes_through_the_bus_proxy_even_without_a_bus_address) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    bridge.main_worker()->set_bus_addr(nullptr);

    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, "hello", &err));

    child_cmd_buffer* queued = bridge.main_worker()->dequeue_cmd();
    EXPECT_EQ(queued, nullptr);
    delete queued;
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 hello"));
}

TEST_F(send_cmd_no_reply, Costs_one_message_on_the_bus) {
    ASSERT_TRUE(bridge.spawn_and_settle());
    bus_monitor bus;

    bridge.send_cmd_no_reply(CHILD_ECHO, "A", nullptr);
    bridge.send_cmd_no_reply(CHILD_FAIL, "B", nullptr);
    bridge.ask(CHILD_ECHO, "C");

    const bus_message no_reply_call = {"call without reply", "Command"};
    const std::vector<bus_message> seen = bus.stop();
    EXPECT_THAT(seen, ElementsAre(no_reply_call, no_reply_call, bus_message{"call", "Command"},
                                  bus_message{"reply", ""}));
}

TEST_F(send_cmd_no_reply, Fails_before_spawn) {
    vask_object::print_msg_level = VASK_P_DBG;
    log.clear();

    EXPECT_FALSE(bridge.send_cmd_no_reply(CHILD_ECHO, "hello", &err));

    EXPECT_EQ(err.get_code(), VASK_ERR_NOT_SPAWNED);
    EXPECT_EQ(err.get_message(), "Cannot call send_cmd_no_reply() prior to spawn()!");
    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("DBG", "bridge", std::string(entry_text) + "1, hello"),
                    line("ERR", "bridge", "Cannot call send_cmd_no_reply() prior to spawn()!")));
}

TEST_F(send_cmd_no_reply, Fails_before_spawn_in_every_form) {
    std::string variable = "hello";
    for (const bool temporary : {false, true}) {
        vask_error filled;
        EXPECT_FALSE(temporary ? bridge.send_cmd_no_reply(CHILD_ECHO, std::string("hello"), &filled)
                               : bridge.send_cmd_no_reply(CHILD_ECHO, variable, &filled));
        EXPECT_EQ(filled.get_code(), VASK_ERR_NOT_SPAWNED);
        EXPECT_EQ(filled.get_message(), "Cannot call send_cmd_no_reply() prior to spawn()!");
    }
    EXPECT_FALSE(bridge.send_cmd_no_reply(CHILD_ECHO, "hello", nullptr));
}

TEST_F(send_cmd_no_reply, Is_queued_before_the_child_is_met) {
    bridge.spawn_child();
    vask_object::print_msg_level = VASK_P_DBG;
    log.clear();

    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, "hello", &err));

    expect_error_untouched();
    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("DBG", "bridge", std::string(entry_text) + "1, hello"), queued_line()));
    vask_object::print_msg_level = VASK_P_INFO;
    child_cmd_buffer* queued = bridge.main_worker()->dequeue_cmd();
    ASSERT_NE(queued, nullptr);
    EXPECT_EQ(queued->id, CHILD_ECHO);
    EXPECT_EQ(queued->argument, "hello");
    delete queued;
}

TEST_F(send_cmd_no_reply, Queues_a_copy_of_the_argument) {
    bridge.spawn_child();
    std::string argument = "before";
    bridge.send_cmd_no_reply(CHILD_ECHO, argument, nullptr);
    argument = "overwritten";

    ASSERT_TRUE(bridge.wait_until_met());
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 before"));
}

TEST_F(send_cmd_no_reply, Queues_a_null_argument_as_the_empty_text) {
    bridge.spawn_child();
    const char* null = nullptr;
    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, null, nullptr));

    ASSERT_TRUE(bridge.wait_until_met());
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 "));
}

TEST_F(send_cmd_no_reply, Fails_directly_when_the_argument_is_not_valid_UTF_8) {
    ASSERT_TRUE(bridge.spawn_and_meet());
    log.clear();

    EXPECT_FALSE(bridge.send_cmd_no_reply(CHILD_ECHO, "\xff", &err));
    EXPECT_FALSE(bridge.send_cmd_no_reply(CHILD_FAIL, std::string("cut \xc3"), &err));

    expect_error_untouched();
    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            line("ERR", "bridge", "Failed to send command 1: The text is not valid UTF-8"),
            line("ERR", "bridge", "Failed to send command 2: The text is not valid UTF-8")));
    EXPECT_THAT(bridge.journal(), IsEmpty());
}

TEST_F(send_cmd_no_reply, Fails_instead_of_queueing_what_is_not_valid_UTF_8) {
    bridge.spawn_child();
    log.clear();

    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, "A", &err));
    EXPECT_FALSE(bridge.send_cmd_no_reply(CHILD_ECHO, "\xff", &err));
    EXPECT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, "C", &err));

    expect_error_untouched();
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "bridge",
                                 "Failed to send command 1: The text is not valid UTF-8")));
    ASSERT_TRUE(bridge.wait_until_met());
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 A", "Command 1 C"));
}

TEST_F(send_cmd_no_reply, Fails_when_the_argument_is_too_long_for_the_bus) {
    bridge.spawn_child();
    log.clear();
    EXPECT_FALSE(bridge.send_cmd_no_reply(CHILD_ECHO, std::string(size_t{128} << 20, 'x'), &err));
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "bridge",
                                 "Failed to send command 1: The text is too long for the bus")));
}

TEST_F(send_cmd_no_reply, Is_delivered_in_order_when_the_child_is_met) {
    bridge.spawn_child();
    bridge.send_cmd_no_reply(CHILD_ECHO, "A", nullptr);
    bridge.send_cmd_no_reply(CHILD_FAIL, "B", nullptr);
    bridge.send_cmd_no_reply(CHILD_ECHO, "C", nullptr);

    ASSERT_TRUE(bridge.wait_until_met());

    EXPECT_EQ(bridge.main_worker()->dequeue_cmd(), nullptr);
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 A", "Command 2 B", "Command 1 C"));
}

TEST_F(send_cmd_no_reply, Is_delivered_to_a_child_that_takes_its_time) {
    const std::string gate = std::string(getenv("TMPDIR")) + "/gate";
    bridge.spawn_child({"--join-after-file", gate});
    bridge.send_cmd_no_reply(CHILD_ECHO, "A", nullptr);
    drain_main_loop();
    bridge.send_cmd_no_reply(CHILD_ECHO, "B", nullptr);
    ASSERT_EQ(bridge.get_child_bus_addr(), nullptr);

    ASSERT_TRUE(g_file_set_contents(gate.c_str(), "", 0, nullptr));

    ASSERT_TRUE(bridge.wait_until_met());
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 A", "Command 1 B"));
}

TEST_F(send_cmd_no_reply, Is_delivered_right_after_the_geometry_ten_thousand_times_in_order) {
    constexpr int count = 10000;
    bridge.set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);
    bridge.spawn_child();
    std::vector<std::string> expected = {"SetWindow 1 2 3 4 5"};
    for (int i = 0; i < count; ++i) {
        const std::string argument = std::to_string(i);
        ASSERT_TRUE(bridge.send_cmd_no_reply(CHILD_ECHO, argument, nullptr));
        expected.push_back("Command 1 " + argument);
    }
    bridge.set_window(1, 2, 3, 4, 5);

    ASSERT_TRUE(bridge.wait_until_met());

    const std::vector<std::string> journal = bridge.journal();
    EXPECT_EQ(journal.size(), expected.size());
    EXPECT_TRUE(journal == expected);
}

TEST_F(send_cmd_no_reply, Is_lost_with_a_child_that_is_never_met) {
    bridge.spawn_child({"--exit", "0"});
    bridge.send_cmd_no_reply(CHILD_ECHO, "for the first child", nullptr);
    ASSERT_TRUE(bridge.wait_for_ends(1));

    ASSERT_TRUE(bridge.spawn_and_meet());

    EXPECT_THAT(bridge.journal(), IsEmpty());
}

TEST_F(send_cmd_no_reply, Is_queued_for_each_of_the_twins_by_itself) {
    bridge.enable_twins_mode();
    bridge.spawn_child();
    bridge.send_cmd_no_reply(CHILD_ECHO, "to the first", nullptr);
    bridge.switch_main_worker();
    bridge.send_cmd_no_reply(CHILD_ECHO, "to the second", nullptr);
    ASSERT_TRUE(bridge.wait_until_met());

    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 to the second"));
    bridge.switch_main_worker();
    EXPECT_THAT(bridge.journal(), ElementsAre("Command 1 to the first"));
}
