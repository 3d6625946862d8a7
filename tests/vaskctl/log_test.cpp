// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "running_system.h"
#include "support/test_program.h"
#include "tool_run.h"

using namespace vask_test;
using testing::HasSubstr;

namespace {

// A file of the test's own.
class text_file {
public:
    explicit text_file(const std::string& text) {
        std::string name = testing::TempDir() + "logXXXXXX";
        close(mkstemp(name.data()));
        m_path = name;
        append(text);
    }
    ~text_file() { unlink(m_path.c_str()); }
    text_file(const text_file&) = delete;
    text_file& operator=(const text_file&) = delete;

    const std::string& path() const { return m_path; }
    void append(const std::string& text) { std::ofstream(m_path, std::ios::app) << text; }
    void replace(const std::string& text) { std::ofstream(m_path, std::ios::trunc) << text; }

private:
    std::string m_path;
};

}  // namespace

TEST(vaskctl_log, Merges_files_by_their_times) {
    const text_file parent(
        "12.000001 [parent:5] INFO: one\n"
        "12.000003 [parent:5] DBG: three\n and what belongs to it\n\n"
        "12.000005 [parent:5] INFO: five");
    const text_file child(
        "12.000002 [child:6:0x7f00] ERR: two\n"
        "12.000004 [child:6:(nil)] WARN: four\n");
    EXPECT_EQ(run_tool({"log", parent.path(), child.path()}),
              (tool_result{0,
                           "12.000001 [parent:5] INFO: one\n"
                           "12.000002 [child:6] ERR: two\n"
                           "12.000003 [parent:5] DBG: three\n and what belongs to it\n\n"
                           "12.000004 [child:6] WARN: four\n"
                           "12.000005 [parent:5] INFO: five\n",
                           ""}));
}

TEST(vaskctl_log, Cuts_a_line_in_which_a_second_message_begins) {
    tool_setting setting;
    setting.input =
        "1.000000 [a:1] ERR: Failed to get DBUS connection: none2.000000 [b:2] INFO: next\n"
        "with [brackets] and 7.5 [more:9] of them\n";
    EXPECT_EQ(run_tool({"log"}, setting),
              (tool_result{0,
                           "1.000000 [a:1] ERR: Failed to get DBUS connection: none\n"
                           "2.000000 [b:2] INFO: next\n"
                           "with [brackets] and 7.5 [more:9] of them\n",
                           ""}));
}

TEST(vaskctl_log, Keeps_lines_without_a_time_behind_those_before_them) {
    const text_file without(
        "before all\n[a:1] INFO: without\n3.000000 [a:1] INFO: with\n[a:1] "
        "ERR: after it\n");
    const text_file with("2.000000 [b:2] INFO: two\n4.000000 [b:2] INFO: four\n");
    EXPECT_EQ(run_tool({"log", without.path(), with.path()}).output,
              "before all\n"
              "[a:1] INFO: without\n"
              "2.000000 [b:2] INFO: two\n"
              "3.000000 [a:1] INFO: with\n"
              "[a:1] ERR: after it\n"
              "4.000000 [b:2] INFO: four\n");
}

TEST(vaskctl_log, Leaves_out_what_is_above_a_level) {
    tool_setting setting;
    setting.input =
        "1.000000 [a:1] DBG: no\nwith a tail\n2.000000 [a:1] WARN: yes\n3.000000 [a:1] INFO: no\n";
    const tool_result expected = {0, "2.000000 [a:1] WARN: yes\n", ""};
    EXPECT_EQ(run_tool({"log", "--level=WARN"}, setting), expected);
    EXPECT_EQ(run_tool({"log", "--level=4"}, setting), expected);
    EXPECT_EQ(run_tool({"log", "--level=LOUD"}, setting).status, 2);
}

TEST(vaskctl_log, Gives_each_message_as_json) {
    tool_setting setting;
    setting.input = "1.500000 [a:b:1] ERR: \"q\"\nsecond\n[a:1] INFO: \xff\n";
    const std::string output = run_tool({"log", "--json"}, setting).output;
    const std::size_t end = output.find('\n');
    const parsed_json first(output.substr(0, end));
    EXPECT_EQ(first.at("time"), "1.500000");
    EXPECT_EQ(first.at("name"), "a:b");
    EXPECT_EQ(first.at("pid"), "1");
    EXPECT_EQ(first.at("level"), "ERR");
    EXPECT_EQ(first.at("text"), "\"q\"\nsecond");
    const parsed_json second(output.substr(end + 1));
    EXPECT_EQ(second.at("time"), "null");
    EXPECT_EQ(second.at("text"), "\xef\xbf\xbd");
}

TEST(vaskctl_log, Keeps_what_stands_behind_a_zero) {
    tool_setting setting;
    setting.input = std::string("1.000000 [a:1] INFO: one\n\0\0two\n", 31);
    EXPECT_EQ(run_tool({"log"}, setting), (tool_result{0, setting.input, ""}));
    const parsed_json json(run_tool({"log", "--json"}, setting).output);
    EXPECT_EQ(json.at("text"), "one\n  two");
}

TEST(vaskctl_log, Escapes_each_control_character_in_json) {
    tool_setting setting;
    setting.input = "1.000000 [a:1] INFO: ";
    for (char c = 1; c < 32; ++c) {
        setting.input += c == '\n' ? ' ' : c;
    }
    const std::string output = run_tool({"log", "--json"}, setting).output;
    EXPECT_EQ(std::count_if(output.begin(), output.end(), [](char c) { return c > 0 && c < 32; }),
              1)
        << output;
    EXPECT_THAT(output, HasSubstr("\\u001f"));
}

TEST(vaskctl_log, Says_which_file_cannot_be_opened) {
    EXPECT_EQ(run_tool({"log", "/nonexistent"}),
              (tool_result{1, "",
                           "vaskctl: /nonexistent cannot be opened: No such file or directory\n"}));
}

TEST(vaskctl_log, Follows_files_that_grow_and_begin_anew) {
    text_file first("1.000000 [a:1] INFO: one\n");
    text_file second("");
    tool_in_progress follower({"log", "--follow", first.path(), second.path()});
    ASSERT_TRUE(follower.wait_for_output("one\n"));
    second.append("2.000000 [b:2] INFO: two\n");
    ASSERT_TRUE(follower.wait_for_output("two\n"));
    first.replace("3.0000");
    first.append("00 [a:1] INFO: 3\n");
    ASSERT_TRUE(follower.wait_for_output("3.000000 [a:1] INFO: 3\n"));
}

TEST(vaskctl_log, Runs_a_program_with_the_flags_set) {
    const tool_result result = run_tool(
        {"log", "--", "sh", "-c",
         "echo \"$VASK_MSG_LV $VASK_MSG_FLAGS ${VASK_SYSLOG-none}\"; echo '1.000000 [a:1] DBG: "
         "x'; exit 3"},
        {0, {"VASK_SYSLOG=1", "VASK_MSG_FLAGS"}, ""});
    EXPECT_EQ(result, (tool_result{3, "DBG T none\n1.000000 [a:1] DBG: x\n", ""}));
    EXPECT_EQ(run_tool({"log", "--level=INFO", "--", "sh", "-c", "echo $VASK_MSG_LV"}).output,
              "INFO\n");
    EXPECT_EQ(run_tool({"log", "--", "/nonexistent"}).status, 127);
    EXPECT_EQ(run_tool({"log", "--"}).status, 2);
    EXPECT_EQ(run_tool({"log", "a", "--", "sh"}).status, 2);
}

TEST(vaskctl_log, Shows_the_lines_of_a_real_program) {
    const std::string output =
        run_tool({"log", "--", test_program("registry_program"), "noted", "5"}).output;
    EXPECT_THAT(output, testing::ContainsRegex("[0-9]+\\.[0-9]{6} \\[noted:[0-9]+\\] DBG: "
                                               "store_pid_to_shm"));
    EXPECT_THAT(output, HasSubstr("\nregistered\n"));
    unlink("/dev/shm/sem.vask_shm_lock");
    unlink("/dev/shm/vask_proc_pid_noted");
}
