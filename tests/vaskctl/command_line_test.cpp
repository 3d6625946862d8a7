// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tool_run.h"

using namespace vask_test;
using testing::HasSubstr;
using testing::StartsWith;

TEST(vaskctl_command_line, Names_all_verbs_in_its_help) {
    const tool_result result = run_tool({"--help"});
    EXPECT_EQ(result.status, 0);
    for (const char* verb :
         {"tree", "status", "call", "send", "monitor", "record", "repair", "log"}) {
        EXPECT_THAT(result.output, HasSubstr(std::string("\n  ") + verb + " "));
    }
}

TEST(vaskctl_command_line, Has_a_help_for_each_verb) {
    for (const char* verb :
         {"tree", "status", "call", "send", "monitor", "record", "repair", "log"}) {
        const tool_result result = run_tool({verb, "--help"});
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(result.output, StartsWith("Usage:\n  vaskctl " + std::string(verb) + " ["));
        EXPECT_EQ(result.errors, "");
    }
}

TEST(vaskctl_command_line, Refuses_what_it_does_not_know_in_one_line) {
    EXPECT_EQ(run_tool({"fly"}), (tool_result{2, "",
                                              "vaskctl: there is no verb 'fly'; see "
                                              "\"vaskctl --help\"\n"}));
    EXPECT_EQ(run_tool({"tree", "--fly"}),
              (tool_result{2, "", "vaskctl: Unknown option --fly; see \"vaskctl tree --help\"\n"}));
    EXPECT_EQ(run_tool({"tree", "fly"}),
              (tool_result{2, "", "vaskctl: usage: vaskctl tree [OPTION...] \n"}));
    EXPECT_EQ(run_tool({"call", "1"}),
              (tool_result{2, "",
                           "vaskctl: usage: vaskctl call [OPTION...] TARGET COMMAND "
                           "[ARGUMENT]\n"}));
    EXPECT_EQ(run_tool({"call", "1", "eat"}),
              (tool_result{2, "", "vaskctl: 'eat' is not a command number\n"}));
    for (const char* target :
         {"0", "99999999999", ":7", "program:", "program:x", "program:-1", ""}) {
        EXPECT_EQ(run_tool({"call", target, "1"}).status, 2) << target;
    }
}

TEST(vaskctl_command_line, Fails_when_its_output_cannot_be_written) {
    tool_setting full;
    full.has_full_output = true;
    full.input = "1.000000 [a:1] INFO: one\n";
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"--version"}, {"tree"}, {"tree", "--json"}, {"log"}, {"log", "--json"}}) {
        const tool_result result = run_tool(words, full);
        EXPECT_EQ(result.status, 1) << words.back();
        EXPECT_THAT(result.errors, testing::HasSubstr("vaskctl: the output cannot be written"));
    }
}

TEST(vaskctl_command_line, Tells_the_version) {
    const tool_result result = run_tool({"--version"});
    EXPECT_THAT(result.output, StartsWith("vaskctl "));
    EXPECT_EQ(result.status, 0);
}
