// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What a child has given to the bus before its end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "../programs/child_servant_commands.h"
#include "second_bus.h"
#include "support/test_program.h"
#include "vask_test/log_catcher.h"
#include "vask_test/main_loop.h"
#include "vask_test/served_child.h"
#include "vask_test/started_process.h"

using namespace vask_test;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char every_signal[] = "type='signal',interface='com.example.vask.Child'";

class farewell : public testing::Test {
protected:
    void expect_all_signals() {
        ASSERT_TRUE(client.wait_for_signals(farewell_signals)) << client.signals().size();
        const std::vector<bus_signal> signals = client.signals();
        for (int i = 0; i < farewell_signals; ++i) {
            ASSERT_EQ(signals[static_cast<std::size_t>(i)].number, i);
        }
    }

    log_catcher log;
    bus_client client;
};

/** A child on a bus that stops before the child says farewell. */
class farewell_to_a_stopped_bus : public testing::Test {
protected:
    double seconds_until_end(const std::string& wish) {
        start(wish);
        bus.stop();
        const auto begin = std::chrono::steady_clock::now();
        process->send(SIGUSR1);
        EXPECT_EQ(process->wait_for_end(), 9);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    }

    void start(const std::string& wish) {
        process = std::make_unique<started_process>(
            test_program("child_servant"), std::vector<std::string>{wish},
            started_process::options{{bus.variable()}, "", -1});
        ASSERT_TRUE(process->wait_until_stopped());
        process->send(SIGCONT);
    }

    log_catcher log;
    second_bus bus;
    std::unique_ptr<started_process> process;
};

const log_line said = line("INFO", "child_servant", "has said farewell");
const log_line gave_up =
    line("ERR", "child_servant", "The bus does not read; messages of this child are lost");

}  // namespace

TEST_F(farewell, With_a_long_reply_arrives) {
    started_process process(test_program("child_servant"), {});
    ASSERT_TRUE(client.wait_for_name(child_name(process.pid())));
    served_child child(client, child_name(process.pid()));

    const bus_reply reply = child.command(SERVANT_LONG_FAREWELL, "500000");

    EXPECT_TRUE(reply.ok) << reply.error_name;
    EXPECT_EQ(reply.text.size(), 500000u);
    EXPECT_EQ(process.wait_for_end(), 8);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(farewell, With_many_signals_arrives) {
    started_process process(test_program("child_servant"), {});
    ASSERT_TRUE(client.wait_for_name(child_name(process.pid())));
    client.subscribe(every_signal);

    served_child(client, child_name(process.pid())).command_without_reply(SERVANT_MANY_SIGNALS, "");

    expect_all_signals();
    EXPECT_EQ(process.wait_for_end(), 9);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(farewell, Of_a_child_that_has_never_run_arrives) {
    client.subscribe(every_signal);
    started_process process(test_program("child_servant"), {"--say-farewell-only"});
    ASSERT_TRUE(process.wait_until_stopped());

    process.send(SIGCONT);

    expect_all_signals();
    EXPECT_EQ(process.wait_for_end(), 0);
}

TEST_F(farewell_to_a_stopped_bus, Is_given_up_after_five_seconds_with_one_line) {
    EXPECT_GE(seconds_until_end("--farewell-at-usr1"), 4.9);
    EXPECT_THAT(log.lines(), ElementsAre(said, gave_up));
}

TEST_F(farewell_to_a_stopped_bus, Is_given_up_although_signals_interrupt_it) {
    EXPECT_GE(seconds_until_end("--farewell-at-usr1-with-signals"), 4.9);
    EXPECT_THAT(log.lines(), ElementsAre(said, gave_up));
}

TEST_F(farewell_to_a_stopped_bus, Arrives_when_the_bus_goes_on) {
    bus_client client(bus.address());
    client.subscribe(every_signal);
    start("--farewell-at-usr1");
    bus.stop();
    process->send(SIGUSR1);
    ASSERT_TRUE(wait_until([this] { return !log.lines().empty(); }));

    bus.go_on();

    EXPECT_TRUE(client.wait_for_signals(farewell_signals)) << client.signals().size();
    EXPECT_EQ(process->wait_for_end(), 9);
    EXPECT_THAT(log.lines(), ElementsAre(said));
}

TEST_F(farewell_to_a_stopped_bus, Ends_with_the_bus) {
    start("--farewell-at-usr1");
    bus.stop();
    process->send(SIGUSR1);
    ASSERT_TRUE(wait_until([this] { return !log.lines().empty(); }));

    bus.kill();

    EXPECT_EQ(process->wait_for_end(), 9);
    EXPECT_THAT(log.lines(), ElementsAre(said));
}
