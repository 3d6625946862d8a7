// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <string>
#include <vector>

#include "controller/tool_fixture.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::Key;

namespace {

class tool_texts : public tool_test {
protected:
    std::string printed_by_test(std::vector<std::string> args) {
        log.clear();
        EXPECT_TRUE(tool.cmd_func_test(args));
        return log.text();
    }
};

}  // namespace

TEST_F(tool_texts, Show_the_usage) {
    tool.print_usage();
    EXPECT_EQ(log.text(), usage);
}

TEST_F(tool_texts, Show_the_usage_without_commands) {
    vask_child_cmd bare("%s", "program", "1", open_tool::no_sys_init);
    bare.print_usage();
    EXPECT_EQ(log.text(), "Usage\n\n  $ %s command [arguments]\n\n  Supported commands are\n\n");
}

TEST_F(tool_texts, Show_the_version) {
    tool.print_version();
    EXPECT_EQ(log.text(), "tool 1.2.3\n");
}

TEST_F(tool_texts, Show_the_version_as_it_stands) {
    vask_child_cmd other("tool", "program", "100 %d", open_tool::no_sys_init);
    other.print_version();
    EXPECT_EQ(log.text(), "100 %d\n");
}

TEST_F(tool_texts, Show_processes_in_their_order_and_in_columns) {
    std::vector<int> pids = {20, 3, 4194304, 12345678};
    tool.print_proc_list(pids);
    EXPECT_EQ(log.text(),
              "List of processes: wanted_child\n"
              "      20\n"
              "       3\n"
              "  4194304\n"
              "  12345678\n");
}

TEST_F(tool_texts, Show_a_list_of_no_process) {
    std::vector<int> pids;
    tool.print_proc_list(pids);
    EXPECT_EQ(log.text(), "List of processes: wanted_child\n");
}

TEST_F(tool_texts, Of_the_test_number_the_arguments) {
    EXPECT_EQ(printed_by_test({"a", "b"}), "\n*** This is test command\n[00] a\n[01] b\n\n");
}

TEST_F(tool_texts, Of_the_test_are_there_without_arguments) {
    EXPECT_EQ(printed_by_test({}), "\n*** This is test command\n\n");
}

TEST_F(tool_texts, Of_the_test_show_arguments_as_they_stand) {
    EXPECT_EQ(printed_by_test({"%s", ""}), "\n*** This is test command\n[00] %s\n[01] \n\n");
}

TEST_F(tool_texts, Of_the_test_have_as_many_digits_as_they_need) {
    const std::string text = printed_by_test(std::vector<std::string>(101, "x"));
    EXPECT_THAT(text, testing::HasSubstr("\n[09] x\n[10] x\n"));
    EXPECT_THAT(text, testing::EndsWith("\n[99] x\n[100] x\n\n"));
}

TEST_F(tool_texts, Of_the_constructor_are_copied) {
    struct open_texts : vask_child_cmd {
        explicit open_texts(const char* version)
            : vask_child_cmd("tool", "program", version, true) {}
        using vask_child_cmd::m_program;
        using vask_child_cmd::m_tool_name;
        using vask_child_cmd::m_version;
    };
    std::string version = "1";
    const open_texts tool(version.c_str());
    version = "2";
    EXPECT_EQ(tool.m_version, "1");
    EXPECT_EQ(tool.m_tool_name, "tool");
    EXPECT_EQ(tool.m_program, "program");
}

TEST_F(tool_texts, Of_added_commands_stay_in_their_order) {
    EXPECT_THAT(tool.m_help_lines,
                ElementsAre("test : Internal test. This does not actually send a message.",
                            "note [WORD]... : Notes the words", "fail : Fails",
                            "pid : Asks for the process id", "refused : Is refused"));
}

TEST_F(tool_texts, Of_a_command_that_is_added_twice_are_both_shown) {
    struct twice : vask_child_cmd {
        twice() : vask_child_cmd("tool", "program", "1", true) {
            add("word", static_cast<cmd_handler>(&twice::first), "word : First");
            add("other", static_cast<cmd_handler>(&twice::first), "other : Between");
            add("word", static_cast<cmd_handler>(&twice::second), "word : Second");
        }
        bool first(std::vector<std::string>&) { return false; }
        bool second(std::vector<std::string>&) { return true; }
        using vask_child_cmd::m_commands;
    } tool;
    std::vector<std::string> none;

    tool.print_usage();

    EXPECT_EQ(log.text(),
              "Usage\n\n  $ tool command [arguments]\n\n  Supported commands are\n"
              "    word : First\n    other : Between\n    word : Second\n\n");
    EXPECT_THAT(tool.m_commands, ElementsAre(Key("other"), Key("word")));
    EXPECT_TRUE((tool.*tool.m_commands["word"])(none));
    EXPECT_FALSE((tool.*tool.m_commands["other"])(none));
}
