// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../programs/child_servant_commands.h"
#include "support/test_program.h"
#include "vask_test/log_catcher.h"
#include "vask_test/served_child.h"
#include "vask_test/started_process.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

class throwing_child : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(client.wait_for_name(child_name(process.pid()))); }

    void expect_service() {
        EXPECT_EQ(child.command(SERVANT_ECHO, "still there").text, "still there");
        child.command_without_reply(SERVANT_QUIT, "3");
        EXPECT_EQ(process.wait_for_end(), 3);
    }

    log_catcher log;
    bus_client client;
    started_process process{test_program("child_servant"), {}};
    served_child child{client, child_name(process.pid())};
};

log_line thrown(const std::string& callback, const std::string& what) {
    return line("ERR", "vask", callback + ": An exception was thrown: " + what);
}

}  // namespace

TEST_F(throwing_child, Answers_the_command_with_an_error_and_obeys_the_next_one) {
    const bus_reply reply = child.command(SERVANT_THROW, "out of ink");

    EXPECT_FALSE(reply.ok);
    EXPECT_THAT(reply.error_name, StartsWith("org.freedesktop.DBus."));
    EXPECT_NE(reply.error_name, DBUS_ERROR_NO_REPLY);
    EXPECT_THAT(log.lines(), ElementsAre(thrown("vask_child::command()", "out of ink")));
    expect_service();
}

TEST_F(throwing_child, May_throw_anything) {
    EXPECT_FALSE(child.command(SERVANT_THROW_NUMBER).ok);
    EXPECT_THAT(log.lines(), ElementsAre(thrown("vask_child::command()", "unknown")));
    expect_service();
}

TEST_F(throwing_child, Answers_set_window_with_an_error_and_obeys_the_next_one) {
    ASSERT_TRUE(child.command(SERVANT_THROW_IN_WINDOW, "no screen").ok);

    EXPECT_FALSE(child.set_window(1, 2, 3, 4, 5).ok);

    EXPECT_THAT(log.lines(), ElementsAre(thrown("vask_child::set_window()", "no screen")));
    EXPECT_TRUE(child.set_window(6, 7, 8, 9, 10).ok);
    EXPECT_EQ(child.command(SERVANT_LAST_WINDOW).text, "6 7 8 9 10");
    expect_service();
}
