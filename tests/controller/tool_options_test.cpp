// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Options are parsed by GLib and with its habits.

#include <glib.h>

#include <string>

#include "controller/tool_fixture.h"
#include "support/idle_process.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

namespace {

const vask_child_cmd::option_values before_any_run = vask_child_cmd::options;

/** A process is there that would be a target. */
class tool_options : public tool_test {
protected:
    const idle_process target{controller_child_name};
};

void expect_entry(int index, const char* long_name, char short_name, GOptionArg type,
                  const void* place, const char* help) {
    const GOptionEntry& entry = vask_child_cmd::option_entries[index];
    EXPECT_THAT(entry.long_name, StrEq(long_name));
    EXPECT_EQ(entry.short_name, short_name);
    EXPECT_EQ(entry.flags, 0);
    EXPECT_EQ(entry.arg, type);
    EXPECT_EQ(entry.arg_data, place);
    EXPECT_THAT(entry.description, StrEq(help));
    EXPECT_EQ(entry.arg_description, nullptr);
}

}  // namespace

TEST(option_table, Has_the_version) {
    expect_entry(0, "version", 'V', G_OPTION_ARG_NONE, &vask_child_cmd::options.version,
                 "Show the version number of ruvo_cmd");
}

TEST(option_table, Has_the_usage) {
    expect_entry(1, "usage", 'U', G_OPTION_ARG_NONE, &vask_child_cmd::options.usage,
                 "Show available commands");
}

TEST(option_table, Has_the_list) {
    expect_entry(2, "list", 'l', G_OPTION_ARG_NONE, &vask_child_cmd::options.list,
                 "Show the list of the target processes");
}

TEST(option_table, Has_the_process_id) {
    expect_entry(3, "pid", 'p', G_OPTION_ARG_INT, &vask_child_cmd::options.pid,
                 "Specify a ruvoko pid to send command");
}

TEST(option_table, Ends_with_an_empty_entry) {
    EXPECT_EQ(vask_child_cmd::option_entries[4].long_name, nullptr);
}

TEST(option_record, Is_what_GLib_writes_into) {
    EXPECT_EQ(sizeof(vask_child_cmd::options.version), sizeof(gboolean));
    EXPECT_EQ(sizeof(vask_child_cmd::options.pid), sizeof(gint));
    EXPECT_EQ(sizeof(vask_child_cmd::options), 4 * sizeof(gint));
}

TEST(option_record, Begins_with_zeros) {
    EXPECT_EQ(before_any_run.version, 0);
    EXPECT_EQ(before_any_run.usage, 0);
    EXPECT_EQ(before_any_run.list, 0);
    EXPECT_EQ(before_any_run.pid, 0);
}

TEST_F(tool_options, Are_kept_for_the_next_run_and_for_other_tools) {
    EXPECT_EQ(tool.run_with({"tool", "-V"}), 0);
    log.clear();
    open_tool other;
    EXPECT_EQ(other.run_with({"tool", "note"}), 0);
    EXPECT_EQ(log.text(), "tool 1.2.3\n");
    EXPECT_THAT(other.noted, IsEmpty());
}

TEST_F(tool_options, May_stand_behind_the_command) {
    const std::string pid = std::to_string(target.pid());
    EXPECT_EQ(tool.run_with({"tool", "note", "a", "-p", pid, "b"}), 0);
    EXPECT_THAT(tool.noted, ElementsAre(ElementsAre("a", "b")));
    EXPECT_EQ(vask_child_cmd::options.pid, target.pid());
}

TEST_F(tool_options, Are_found_among_the_words_of_the_command) {
    EXPECT_EQ(tool.run_with({"tool", "note", "a", "--version"}), 0);
    EXPECT_EQ(log.text(), "tool 1.2.3\n");
    EXPECT_THAT(tool.noted, IsEmpty());
}

TEST_F(tool_options, May_share_one_dash) {
    EXPECT_EQ(tool.run_with({"tool", "-lV"}), 0);
    EXPECT_EQ(log.text(), "tool 1.2.3\n");
}

TEST_F(tool_options, End_at_two_dashes_which_vanish) {
    EXPECT_EQ(tool.run_with({"tool", "--", "note", "a"}), 0);
    EXPECT_THAT(tool.noted, ElementsAre(ElementsAre("a")));
}

TEST_F(tool_options, End_at_two_dashes_which_stay_before_a_word_with_a_dash) {
    EXPECT_EQ(tool.run_with({"tool", "note", "--", "a", "--version"}), 0);
    EXPECT_THAT(tool.noted, ElementsAre(ElementsAre("--", "a", "--version")));
}

TEST_F(tool_options, Do_not_include_a_single_dash) {
    EXPECT_EQ(tool.run_with({"tool", "note", "-"}), 0);
    EXPECT_THAT(tool.noted, ElementsAre(ElementsAre("-")));
}

TEST_F(tool_options, Fail_when_one_is_unknown) {
    EXPECT_EQ(tool.run_with({"tool", "--unknown", "note"}), 1);
    EXPECT_EQ(log.text(), "option parsing failed: Unknown option --unknown\n");
    EXPECT_THAT(tool.noted, IsEmpty());
}

TEST_F(tool_options, Fail_when_one_is_unknown_even_beside_the_version) {
    EXPECT_EQ(tool.run_with({"tool", "--version", "-x"}), 1);
    EXPECT_EQ(log.text(), "option parsing failed: Unknown option -x\n");
}

TEST_F(tool_options, Fail_when_the_pid_is_missing) {
    EXPECT_EQ(tool.run_with({"tool", "note", "-p"}), 1);
    EXPECT_EQ(log.text(), "option parsing failed: Missing argument for -p\n");
    EXPECT_THAT(tool.noted, IsEmpty());
}

TEST_F(tool_options, Fail_when_the_pid_is_no_number) {
    EXPECT_EQ(tool.run_with({"tool", "--pid=a", "note"}), 1);
    EXPECT_THAT(log.text(), StartsWith("option parsing failed: Cannot parse integer value"));
    EXPECT_THAT(tool.noted, IsEmpty());
}

TEST_F(tool_options, Fail_when_the_pid_is_out_of_range) {
    EXPECT_EQ(tool.run_with({"tool", "--pid=4294967296", "note"}), 1);
    EXPECT_THAT(log.text(), StartsWith("option parsing failed: Integer value"));
    EXPECT_THAT(tool.noted, IsEmpty());
}
