// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "../programs/child_servant_commands.h"
#include "second_bus.h"
#include "support/open_app.h"
#include "support/test_program.h"
#include "vask_test/log_catcher.h"
#include "vask_test/main_loop.h"
#include "vask_test/served_child.h"
#include "vask_test/started_process.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char any_name_change[] = "type='signal',member='NameOwnerChanged'";

const log_line bus_lost = line("ERR", "child_servant", "The connection to the session bus is lost");

started_process::options on_bus(const second_bus& bus) {
    return {{bus.variable()}, "", -1};
}

std::string child_name_of(const started_process& process) {
    return child_name(process.pid());
}

}  // namespace

TEST(a_child, Is_on_the_bus_under_a_name_with_its_process_id) {
    bus_client client;
    client.subscribe(any_name_change);
    started_process process(test_program("child_servant"), {});
    // One for the connection, one for the name.
    ASSERT_TRUE(client.wait_for_signals(2));
    EXPECT_EQ(client.signals()[1].first_text,
              "com.example.vask.Child_" + std::to_string(process.pid()));
}

TEST(a_child, Serves_its_path_and_interface) {
    bus_client client;
    started_process process(test_program("child_servant"), {});
    const std::string name = child_name_of(process);
    ASSERT_TRUE(client.wait_for_name(name));
    const message_ptr message(dbus_message_new_method_call(name.c_str(), "/com/example/vask/Child",
                                                           "com.example.vask.Child", "Command"));
    const dbus_int32_t id = SERVANT_LITERAL;
    const char* argument = "";
    dbus_message_append_args(message.get(), DBUS_TYPE_INT32, &id, DBUS_TYPE_STRING, &argument,
                             DBUS_TYPE_INVALID);
    EXPECT_EQ(client.call(message).text, servant_literal);
}

TEST(a_child, Shares_the_bus_with_another) {
    bus_client client;
    started_process first(test_program("child_servant"), {});
    started_process second(test_program("child_servant"), {});
    ASSERT_TRUE(client.wait_for_name(child_name_of(first)));
    ASSERT_TRUE(client.wait_for_name(child_name_of(second)));
    EXPECT_NE(child_name_of(first), child_name_of(second));

    served_child(client, child_name_of(first)).set_window(1, 1, 1, 1, 1);
    served_child(client, child_name_of(second)).set_window(2, 2, 2, 2, 2);
    EXPECT_EQ(served_child(client, child_name_of(first)).command(SERVANT_LAST_WINDOW).text,
              "1 1 1 1 1");
    EXPECT_EQ(served_child(client, child_name_of(second)).command(SERVANT_LAST_WINDOW).text,
              "2 2 2 2 2");
}

TEST(a_child, Leaves_the_bus_with_its_process) {
    bus_client client;
    started_process process(test_program("child_servant"), {});
    ASSERT_TRUE(client.wait_for_name(child_name_of(process)));
    process.kill_now();
    EXPECT_TRUE(wait_until([&] { return !client.is_owned(child_name_of(process)); }));
}

TEST(a_child, With_the_marker_as_its_name_never_appears_on_the_bus) {
    log_catcher log;
    bus_client client;
    client.subscribe(any_name_change);
    started_process process(test_program("child_servant"), {"--emit-and-quit"},
                            {{}, no_sys_init_marker, -1});
    EXPECT_EQ(process.wait_for_end(), 4);
    // The bus answers in order: had the child come and gone, it would be known by now.
    client.call_bus("GetId");
    EXPECT_THAT(client.signals(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(a_child, Runs_without_a_session_bus) {
    log_catcher log;
    started_process process(test_program("child_servant"), {"--emit-and-quit"},
                            {{"DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/bus"}, "", -1});
    EXPECT_EQ(process.wait_for_end(), 4);
    // The line has no line end.
    EXPECT_EQ(log.text(), "[child_servant:" + std::to_string(process.pid()) +
                              "] ERR: Failed to get DBUS connection: Failed to connect to socket "
                              "/nonexistent/bus: No such file or directory");
}

TEST(a_child, Runs_without_a_name_when_the_bus_denies_it) {
    log_catcher log;
    second_bus bus(second_bus::names::denied);
    bus_client client(bus.address());
    client.subscribe(any_name_change);
    started_process process(test_program("child_servant"), {"--emit-and-quit"}, on_bus(bus));
    EXPECT_EQ(process.wait_for_end(), 4);

    ASSERT_TRUE(client.wait_for_signals(2));
    const std::string own_address = client.signals()[0].first_text;
    const std::string name = child_name_of(process);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("ERR", "child_servant",
                         "RequestName for '" + name + "'' failed: Connection \"" + own_address +
                             "\" is not allowed to own the service \"" + name +
                             "\" due to security policies in the configuration file")));
    // Its connection came and went, and nothing else: no name, no signal.
    EXPECT_EQ(client.signals().size(), 2u);
}

TEST(a_child, Serves_nothing_without_its_name) {
    second_bus bus(second_bus::names::denied);
    bus_client client(bus.address());
    client.subscribe(any_name_change);
    started_process process(test_program("child_servant"), {}, on_bus(bus));
    ASSERT_TRUE(client.wait_for_signals(1));
    const std::string address = client.signals()[0].first_text;
    EXPECT_EQ(served_child(client, address).command(SERVANT_LITERAL).error_name,
              DBUS_ERROR_UNKNOWN_METHOD);
}

TEST(a_child, Ends_when_the_bus_is_lost) {
    log_catcher log;
    second_bus bus;
    started_process process(test_program("child_servant"), {}, on_bus(bus));
    ASSERT_TRUE(bus_client(bus.address()).wait_for_name(child_name_of(process)));
    bus.kill();
    EXPECT_EQ(process.wait_for_end(), 1);
    EXPECT_THAT(log.lines(), ElementsAre(bus_lost));
}

TEST(a_child, Ends_when_the_bus_was_lost_before_it_ran) {
    log_catcher log;
    second_bus bus;
    started_process process(test_program("child_servant"), {"--stop-before-run"}, on_bus(bus));
    ASSERT_TRUE(process.wait_until_stopped());
    bus.kill();
    process.send(SIGCONT);
    EXPECT_EQ(process.wait_for_end(), 1);
    EXPECT_THAT(log.lines(), ElementsAre(bus_lost));
}

TEST(a_child, Ends_when_the_loss_of_the_bus_was_noticed_before_it_ran) {
    log_catcher log;
    second_bus bus;
    started_process process(test_program("child_servant"), {"--stop-and-settle-before-run"},
                            on_bus(bus));
    ASSERT_TRUE(process.wait_until_stopped());
    bus.kill();
    process.send(SIGCONT);
    EXPECT_EQ(process.wait_for_end(), 1);
    EXPECT_THAT(log.lines(), ElementsAre(bus_lost));
}

TEST(a_child, Returns_from_run_when_the_bus_is_lost_and_may_raise_signals_still) {
    log_catcher log;
    second_bus bus;
    started_process process(test_program("child_servant"), {"--emit-after-run"}, on_bus(bus));
    ASSERT_TRUE(bus_client(bus.address()).wait_for_name(child_name_of(process)));
    bus.kill();
    EXPECT_EQ(process.wait_for_end(), 1);
    EXPECT_THAT(log.lines(),
                ElementsAre(bus_lost, line("INFO", "child_servant", "run() has returned 1")));
}

TEST(a_child, That_has_ended_does_not_take_its_process_with_it_when_the_bus_is_lost) {
    log_catcher log;
    second_bus bus;
    started_process process(test_program("child_servant"), {"--outlive-child"}, on_bus(bus));
    ASSERT_TRUE(process.wait_until_stopped());
    bus.kill();
    process.send(SIGCONT);
    process.send(SIGUSR1);
    EXPECT_EQ(process.wait_for_end(), 6);
    EXPECT_THAT(log.lines(), IsEmpty());
}
