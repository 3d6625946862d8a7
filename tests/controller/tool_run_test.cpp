// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A whole run of a tool: what is printed, what is done, and the exit status.

#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "controller/running_child.h"
#include "controller/tool_fixture.h"
#include "support/library_lock_state.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/** Nobody is there to be controlled. */
class tool_alone : public tool_test {};

/** A child is there. */
class tool_with_child : public tool_test {
protected:
    std::string pid() const { return std::to_string(child.pid()); }

    std::string list() const {
        char text[100];
        snprintf(text, sizeof(text), "List of processes: wanted_child\n  %6d\n", child.pid());
        return text;
    }

    const running_child child{log};
};

std::string printed;

void note_printed(const char* text) {
    printed += text;
}

std::string wrong_pid(const std::string& pid) {
    return "No kelvo-sched process with pid: " + pid + "\n";
}

}  // namespace

TEST_F(tool_alone, Shows_its_usage_when_it_is_given_nothing) {
    EXPECT_EQ(tool.run_with({"tool"}), 1);
    EXPECT_EQ(log.text(), usage);
}

TEST_F(tool_alone, Shows_its_usage_when_not_even_its_name_is_given) {
    EXPECT_EQ(tool.run_with({}), 1);
    EXPECT_EQ(log.text(), usage);
}

TEST_F(tool_alone, Shows_its_version) {
    EXPECT_EQ(tool.run_with({"tool", "--version"}), 0);
    EXPECT_EQ(log.text(), "tool 1.2.3\n");
}

TEST_F(tool_alone, Shows_its_version_by_a_letter) {
    EXPECT_EQ(tool.run_with({"tool", "-V"}), 0);
    EXPECT_EQ(log.text(), "tool 1.2.3\n");
}

TEST_F(tool_alone, Shows_its_usage_on_request) {
    EXPECT_EQ(tool.run_with({"tool", "--usage"}), 0);
    EXPECT_EQ(log.text(), usage);
}

TEST_F(tool_alone, Shows_its_usage_by_a_letter) {
    EXPECT_EQ(tool.run_with({"tool", "-U"}), 0);
    EXPECT_EQ(log.text(), usage);
}

TEST_F(tool_alone, Shows_only_its_version_when_it_is_asked_for_its_usage_too) {
    EXPECT_EQ(tool.run_with({"tool", "-U", "-V"}), 0);
    EXPECT_EQ(log.text(), "tool 1.2.3\n");
}

TEST_F(tool_alone, Shows_its_usage_rather_than_a_list) {
    EXPECT_EQ(tool.run_with({"tool", "-l", "-U"}), 0);
    EXPECT_EQ(log.text(), usage);
}

TEST_F(tool_alone, Has_nobody_to_list) {
    EXPECT_EQ(tool.run_with({"tool", "-l"}), 1);
    EXPECT_EQ(log.text(), not_found);
}

TEST_F(tool_alone, Has_nobody_for_a_command) {
    EXPECT_EQ(tool.run_with({"tool", "note"}), 1);
    EXPECT_EQ(log.text(), not_found);
    EXPECT_THAT(tool.noted, IsEmpty());
}

TEST_F(tool_alone, Looks_for_somebody_before_it_looks_at_the_pid_or_misses_a_command) {
    EXPECT_EQ(tool.run_with({"tool", "-p", "1"}), 1);
    EXPECT_EQ(log.text(), not_found);
}

TEST_F(tool_alone, Does_not_look_into_the_registry) {
    shared_objects_removed cleanup;
    const running_child child(log, running_child::only_registered("1"));
    EXPECT_EQ(tool.run_with({"tool", "note"}), 1);
    EXPECT_EQ(log.text(), not_found);
}

TEST_F(tool_alone, Finds_itself_when_it_has_the_name_of_the_program) {
    open_tool own_controller(false, program_invocation_short_name);
    char expected[200];
    snprintf(expected, sizeof(expected), "List of processes: %s\n  %6d\n",
             program_invocation_short_name, getpid());
    EXPECT_EQ(own_controller.run_with({"tool", "-l"}), 0);
    EXPECT_EQ(log.text(), expected);
}

TEST_F(tool_with_child, Lists_it_without_a_command) {
    EXPECT_EQ(tool.run_with({"tool", "-l"}), 0);
    EXPECT_EQ(log.text(), list());
    EXPECT_EQ(tool.m_proxy, nullptr);
}

TEST_F(tool_with_child, Lists_it_by_the_long_option_and_runs_no_command) {
    EXPECT_EQ(tool.run_with({"tool", "--list", "note"}), 0);
    EXPECT_EQ(log.text(), list());
    EXPECT_THAT(tool.noted, IsEmpty());
}

TEST_F(tool_with_child, Lists_it_before_it_looks_at_the_pid) {
    EXPECT_EQ(tool.run_with({"tool", "-l", "-p", "1"}), 0);
    EXPECT_EQ(log.text(), list());
}

TEST_F(tool_with_child, Lists_all_in_the_order_of_the_process_table) {
    const running_child second(log);
    std::vector<int> pids = tool.find_program();
    ASSERT_EQ(pids.size(), 2u);
    char expected[100];
    snprintf(expected, sizeof(expected), "List of processes: wanted_child\n  %6d\n  %6d\n", pids[0],
             pids[1]);
    EXPECT_EQ(tool.run_with({"tool", "-l"}), 0);
    EXPECT_EQ(log.text(), expected);
}

TEST_F(tool_with_child, Runs_a_command_with_its_words) {
    EXPECT_EQ(tool.run_with({"tool", "note", "a", "", "b c"}), 0);
    EXPECT_THAT(tool.noted, ElementsAre(ElementsAre("a", "", "b c")));
    EXPECT_EQ(log.text(), "");
}

TEST_F(tool_with_child, Runs_a_command_without_words) {
    EXPECT_EQ(tool.run_with({"tool", "note"}), 0);
    EXPECT_THAT(tool.noted, ElementsAre(IsEmpty()));
}

TEST_F(tool_with_child, Runs_one_command_only) {
    EXPECT_EQ(tool.run_with({"tool", "note", "fail"}), 0);
    EXPECT_THAT(tool.noted, ElementsAre(ElementsAre("fail")));
}

TEST_F(tool_with_child, Does_not_look_at_the_result_of_a_command) {
    EXPECT_EQ(tool.run_with({"tool", "fail", "a"}), 0);
    EXPECT_THAT(tool.noted, ElementsAre(ElementsAre("a")));
    EXPECT_EQ(log.text(), "");
}

TEST_F(tool_with_child, Reaches_it) {
    EXPECT_EQ(tool.run_with({"tool", "pid"}), 0);
    EXPECT_EQ(tool.pid_reply, pid());
    EXPECT_EQ(tool.m_pid, child.pid());
}

TEST_F(tool_with_child, Leaves_it_to_the_call_to_report_that_the_child_refuses) {
    EXPECT_EQ(tool.run_with({"tool", "refused"}), 0);
    EXPECT_THAT(log.lines(),
                testing::UnorderedElementsAre(
                    line("", "", "command 3 "),
                    line("ERR", "tool",
                         "Failed to call: cmd_id: 3. Method invoked for Command returned FALSE but "
                         "did not set error")));
}

TEST_F(tool_with_child, Reaches_the_first_of_several) {
    const running_child second(log);
    const int expected = tool.find_program().front();
    EXPECT_EQ(tool.run_with({"tool", "pid"}), 0);
    EXPECT_EQ(tool.pid_reply, std::to_string(expected));
}

TEST_F(tool_with_child, Reaches_the_one_with_the_pid) {
    const running_child second(log);
    for (const running_child* wanted : {&child, &second}) {
        open_tool fresh;
        EXPECT_EQ(fresh.run_with({"tool", "-p", std::to_string(wanted->pid()), "pid"}), 0);
        EXPECT_EQ(fresh.pid_reply, std::to_string(wanted->pid()));
    }
}

TEST_F(tool_with_child, Takes_the_pid_by_the_long_option) {
    EXPECT_EQ(tool.run_with({"tool", "--pid=" + pid(), "pid"}), 0);
    EXPECT_EQ(tool.pid_reply, pid());
}

TEST_F(tool_with_child, Takes_a_pid_of_0_for_none) {
    EXPECT_EQ(tool.run_with({"tool", "-p", "0", "pid"}), 0);
    EXPECT_EQ(tool.pid_reply, pid());
}

TEST_F(tool_with_child, Takes_a_pid_below_0_for_none) {
    EXPECT_EQ(tool.run_with({"tool", "--pid=-1", "pid"}), 0);
    EXPECT_EQ(tool.pid_reply, pid());
}

TEST_F(tool_with_child, Refuses_the_pid_of_another_program) {
    const std::string own = std::to_string(getpid());
    EXPECT_EQ(tool.run_with({"tool", "-p", own, "note"}), 1);
    EXPECT_EQ(log.text(), wrong_pid(own));
    EXPECT_THAT(tool.noted, IsEmpty());
    EXPECT_EQ(tool.m_proxy, nullptr);
}

TEST_F(tool_with_child, Refuses_a_pid_that_nobody_has) {
    EXPECT_EQ(tool.run_with({"tool", "-p", "2147483647", "note"}), 1);
    EXPECT_EQ(log.text(), wrong_pid("2147483647"));
}

TEST_F(tool_with_child, Looks_at_the_pid_before_it_misses_a_command) {
    EXPECT_EQ(tool.run_with({"tool", "-p", "2147483647"}), 1);
    EXPECT_EQ(log.text(), wrong_pid("2147483647"));
}

TEST_F(tool_with_child, Shows_its_usage_when_there_are_options_but_no_command) {
    EXPECT_EQ(tool.run_with({"tool", "-p", pid()}), 1);
    EXPECT_EQ(log.text(), usage);
    EXPECT_EQ(tool.m_proxy, nullptr);
}

TEST_F(tool_with_child, Warns_of_a_command_that_nobody_added) {
    EXPECT_EQ(tool.run_with({"tool", "unknown", "a"}), 0);
    EXPECT_THAT(glib_log.entries, ElementsAre(glib_log_catcher::entry{
                                      G_LOG_LEVEL_WARNING, "The command is not supported\n"}));
    EXPECT_EQ(log.text(), "");
}

TEST_F(tool_with_child, Has_its_proxy_before_it_looks_for_the_command) {
    EXPECT_EQ(tool.run_with({"tool", "unknown"}), 0);
    EXPECT_NE(tool.m_proxy, nullptr);
    EXPECT_EQ(tool.m_pid, child.pid());
}

TEST_F(tool_with_child, Tells_capital_letters_of_a_command_from_small_ones) {
    EXPECT_EQ(tool.run_with({"tool", "Note"}), 0);
    EXPECT_THAT(tool.noted, IsEmpty());
    EXPECT_EQ(glib_log.entries.size(), 1u);
}

TEST_F(tool_with_child, Runs_the_test_without_sending_anything) {
    EXPECT_EQ(tool.run_with({"tool", "test", "a", "b"}), 0);
    // Whatever was sent before has reached the child by the end of this call.
    EXPECT_TRUE(tool.cmd_func(CONTROLLER_CHILD_ECHO, "afterwards", nullptr));
    EXPECT_EQ(log.text(), "\n*** This is test command\n[00] a\n[01] b\n\ncommand 1 afterwards\n");
}

TEST_F(tool_with_child, Has_no_test_without_the_initialisation_of_the_system) {
    open_tool bare(open_tool::no_sys_init);
    EXPECT_EQ(bare.run_with({"tool", "test", "a"}), 0);
    EXPECT_EQ(glib_log.entries.size(), 1u);
    EXPECT_EQ(log.text(), "");
}

TEST_F(tool_with_child, Reaches_it_without_the_initialisation_of_the_system) {
    open_tool bare(open_tool::no_sys_init);
    EXPECT_EQ(bare.run_with({"tool", "pid"}), 0);
    EXPECT_EQ(bare.pid_reply, pid());
}

TEST_F(tool_with_child, Stays_with_a_proxy_that_was_made_before) {
    const running_child second(log);
    ASSERT_TRUE(tool.make_proxy(second.pid(), false));
    EXPECT_EQ(tool.run_with({"tool", "-p", pid(), "pid"}), 0);
    EXPECT_EQ(tool.pid_reply, std::to_string(second.pid()));
}

TEST_F(tool_with_child, Prints_with_the_print_handler_of_GLib) {
    open_tool lonely(false, "nobody_has_this_name");
    std::vector<int> pids = {20};
    std::vector<std::string> words = {"a"};
    const GPrintFunc former = g_set_print_handler(note_printed);

    tool.print_usage();
    tool.print_version();
    tool.print_proc_list(pids);
    tool.cmd_func_test(words);
    EXPECT_EQ(lonely.run_with({"tool", "note"}), 1);
    EXPECT_EQ(tool.run_with({"tool", "--unknown"}), 1);
    EXPECT_EQ(tool.run_with({"tool", "--pid=1", "note"}), 1);

    g_set_print_handler(former);
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(printed, std::string(usage) +
                           "tool 1.2.3\n"
                           "List of processes: wanted_child\n      20\n"
                           "\n*** This is test command\n[00] a\n\n"
                           "Not found 'nobody_has_this_name' in this computer\n"
                           "option parsing failed: Unknown option --unknown\n" +
                           wrong_pid("1"));
}
