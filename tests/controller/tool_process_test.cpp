// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A tool in a process of its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "controller/running_child.h"
#include "support/test_program.h"
#include "vask_test/log_catcher.h"
#include "vask_test/started_process.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;

namespace {

class tool_process : public testing::Test {
protected:
    /** The exit status. */
    static int run(const std::vector<std::string>& arguments) {
        return started_process(test_program("controller_tool"), arguments).wait_for_end();
    }

    log_catcher log;
};

}  // namespace

TEST_F(tool_process, Reaches_a_child_that_it_has_not_started) {
    const running_child child(log);
    EXPECT_EQ(run({"echo", "hello"}), 0);
    EXPECT_THAT(log.lines(), ElementsAre(line("", "", "command 1 hello"), line("", "", "hello")));
}

TEST_F(tool_process, Succeeds_when_the_child_refuses) {
    const running_child child(log);
    EXPECT_EQ(run({"fail"}), 0);
    EXPECT_THAT(log.lines(),
                Contains(line("ERR", "controller_tool",
                              "Failed to call: cmd_id: 3. Method invoked for Command returned "
                              "FALSE but did not set error")));
}

TEST_F(tool_process, Sends_no_argument_that_is_not_valid_UTF_8) {
    const running_child child(log);
    EXPECT_EQ(run({"echo", "\xff"}), 0);
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "controller_tool",
                                              "Failed to call: cmd_id: 1. The text is not valid "
                                              "UTF-8")));
}

TEST_F(tool_process, Succeeds_with_a_command_that_nobody_added) {
    const running_child child(log);
    EXPECT_EQ(run({"unknown"}), 0);
}

TEST_F(tool_process, Fails_when_there_is_no_child) {
    EXPECT_EQ(run({"echo", "hello"}), 1);
    EXPECT_EQ(log.text(), "Not found 'wanted_child' in this computer\n");
}

TEST_F(tool_process, Fails_when_it_is_given_nothing) {
    EXPECT_EQ(run({}), 1);
}

TEST_F(tool_process, Shows_the_help_of_the_option_parser_and_ends) {
    EXPECT_EQ(run({"--help", "echo"}), 0);
    EXPECT_THAT(log.text(), testing::HasSubstr("[command] [command_args]\n"));
    EXPECT_THAT(log.lines(),
                testing::IsSupersetOf(
                    {line("", "", "  -V, --version     Show the version number of ruvo_cmd"),
                     line("", "", "  -U, --usage       Show available commands"),
                     line("", "", "  -l, --list        Show the list of the target processes"),
                     line("", "", "  -p, --pid         Specify a ruvoko pid to send command")}));
}
