// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>

#include "foundation/child_report.h"
#include "support/file_scratch.h"
#include "support/source_line.h"
#include "vask_object.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char unit[] = "vask_object_spawn";

int status_after_end_of(int pid) {
    int status = -1;
    waitpid(pid, &status, 0);
    return status;
}

/** GLib's own words for why it cannot start a program like that. */
std::string reason_of_glib(const char* program, const char* directory) {
    char* argv[] = {const_cast<char*>(program), nullptr};
    char* envp[] = {nullptr};
    GError* error = nullptr;
    if (g_spawn_async(directory, argv, envp, G_SPAWN_DO_NOT_REAP_CHILD, nullptr, nullptr, nullptr,
                      &error)) {
        return "it can";
    }
    const std::string reason = error->message;
    g_error_free(error);
    return reason;
}

testing::Matcher<const log_line&> failed_to_spawn(const std::string& reason) {
    return logged("ERR", "vask", from_line_of(unit, "Failed to spawn: " + reason));
}

testing::Matcher<const log_line&> at_dbg(const std::string& text) {
    return logged("DBG", "vask", from_line_of(unit, text));
}

}  // namespace

TEST(spawn_async, Starts_a_program_with_its_arguments) {
    const strlist argv = {child_report_program, "one", "", "with blank", "$HOME \"'\\"};
    int pid = -1;
    log_catcher log;
    ASSERT_TRUE(vask_object::spawn_async(&argv, nullptr, &pid, nullptr));
    EXPECT_EQ(status_after_end_of(pid), 0);
    EXPECT_THAT(reported(log.text(), "argument"),
                ElementsAre(child_report_program, "one", "", "with blank", "$HOME \"'\\"));
}

TEST(spawn_async, Starts_a_program_with_exactly_the_given_environment) {
    setenv("OF_THE_PARENT", "1", 1);
    const strlist argv = {child_report_program};
    const strlist envs = {"B=2", "A=1", "B=3", "EMPTY="};
    int pid = -1;
    log_catcher log;
    ASSERT_TRUE(vask_object::spawn_async(&argv, &envs, &pid, nullptr));
    EXPECT_EQ(status_after_end_of(pid), 0);
    EXPECT_THAT(reported(log.text(), "environment"), ElementsAre("B=2", "A=1", "B=3", "EMPTY="));
}

TEST(spawn_async, Starts_a_program_with_an_empty_environment_for_a_null_or_empty_list) {
    const strlist argv = {child_report_program};
    const strlist no_envs;
    for (const strlist* envs : {static_cast<const strlist*>(nullptr), &no_envs}) {
        int pid = -1;
        log_catcher log;
        ASSERT_TRUE(vask_object::spawn_async(&argv, envs, &pid, nullptr));
        EXPECT_EQ(status_after_end_of(pid), 0);
        EXPECT_THAT(reported(log.text(), "argument"), testing::SizeIs(1));
        EXPECT_THAT(reported(log.text(), "environment"), IsEmpty());
    }
}

TEST(spawn_async, Starts_a_program_in_the_given_directory) {
    const strlist argv = {child_report_program};
    int pid = -1;
    log_catcher log;
    ASSERT_TRUE(vask_object::spawn_async(&argv, nullptr, &pid, "/proc"));
    EXPECT_EQ(status_after_end_of(pid), 0);
    EXPECT_THAT(reported(log.text(), "directory"), ElementsAre("/proc"));
}

TEST(spawn_async, Starts_a_program_in_the_directory_of_the_caller_by_default) {
    ASSERT_EQ(chdir("/proc"), 0);
    const strlist argv = {child_report_program};
    int pid = -1;
    log_catcher log;
    ASSERT_TRUE(vask_object::spawn_async(&argv, nullptr, &pid, nullptr));
    EXPECT_EQ(status_after_end_of(pid), 0);
    EXPECT_THAT(reported(log.text(), "directory"), ElementsAre("/proc"));
}

TEST(spawn_async, Does_not_wait_and_leaves_the_child_to_the_caller) {
    const strlist argv = {"/bin/sleep", "1000"};
    int pid = -1;
    ASSERT_TRUE(vask_object::spawn_async(&argv, nullptr, &pid, nullptr));
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0);
    kill(pid, SIGKILL);
    siginfo_t info = {};
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(info.si_code, CLD_KILLED);
    const int status = status_after_end_of(pid);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
}

TEST(spawn_async, Hands_the_exit_status_to_whoever_waits) {
    const strlist argv = {"/bin/sh", "-c", "exit 7"};
    int pid = -1;
    ASSERT_TRUE(vask_object::spawn_async(&argv, nullptr, &pid, nullptr));
    const int status = status_after_end_of(pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
}

TEST(spawn_async, Starts_a_program_whose_id_nobody_wants) {
    const strlist argv = {"/bin/sh", "-c", "exit 7"};
    ASSERT_TRUE(vask_object::spawn_async(&argv, nullptr, nullptr, nullptr));
    const int status = status_after_end_of(-1);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
}

TEST(spawn_async, Logs_both_arrays_and_their_lengths_with_the_terminator_at_DBG) {
    vask_object::print_msg_level = VASK_P_DBG;
    const strlist argv = {"/bin/true", "one", "with blank"};
    const strlist envs = {"A=1", "B=%d"};
    int pid = -1;
    log_catcher log;
    ASSERT_TRUE(vask_object::spawn_async(&argv, &envs, &pid, nullptr));
    EXPECT_EQ(status_after_end_of(pid), 0);
    EXPECT_THAT(log.lines(), ElementsAre(at_dbg("argv[0] = /bin/true"), at_dbg("argv[1] = one"),
                                         at_dbg("argv[2] = with blank"), at_dbg("size_arg = [4]"),
                                         at_dbg("env[0] = A=1"), at_dbg("env[1] = B=%d"),
                                         at_dbg("size_env = [3]")));
}

TEST(spawn_async, Logs_a_null_environment_as_an_array_of_the_terminator) {
    vask_object::print_msg_level = VASK_P_DBG;
    const strlist argv = {"/bin/true"};
    int pid = -1;
    log_catcher log;
    ASSERT_TRUE(vask_object::spawn_async(&argv, nullptr, &pid, nullptr));
    EXPECT_EQ(status_after_end_of(pid), 0);
    EXPECT_THAT(log.lines(), ElementsAre(at_dbg("argv[0] = /bin/true"), at_dbg("size_arg = [2]"),
                                         at_dbg("size_env = [1]")));
}

TEST(spawn_async, Logs_nothing_below_DBG) {
    const strlist argv = {"/bin/true"};
    int pid = -1;
    log_catcher log;
    ASSERT_TRUE(vask_object::spawn_async(&argv, nullptr, &pid, nullptr));
    EXPECT_EQ(status_after_end_of(pid), 0);
    EXPECT_EQ(log.text(), "");
}

TEST(spawn_async, Fails_for_a_program_that_does_not_exist) {
    const strlist argv = {"/nonexistent/program"};
    int pid = 4242;
    log_catcher log;
    EXPECT_FALSE(vask_object::spawn_async(&argv, nullptr, &pid, nullptr));
    EXPECT_THAT(log.lines(),
                ElementsAre(failed_to_spawn(reason_of_glib("/nonexistent/program", nullptr))));
    EXPECT_EQ(pid, 4242);
}

TEST(spawn_async, Leaves_no_child_behind_when_it_fails) {
    const strlist argv = {"/nonexistent/program"};
    log_catcher log;
    EXPECT_FALSE(vask_object::spawn_async(&argv, nullptr, nullptr, nullptr));
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(spawn_async, Starts_a_script_that_names_no_interpreter_once) {
    const scratch_directory scratch;
    const std::string script = scratch / "script";
    std::ofstream(script) << "echo \"argument: $1\"; exit 7\n";
    ASSERT_EQ(chmod(script.c_str(), 0755), 0);
    const strlist argv = {script, "one"};
    int pid = -1;
    log_catcher log;
    ASSERT_TRUE(vask_object::spawn_async(&argv, nullptr, &pid, nullptr));
    const int status = status_after_end_of(pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
    EXPECT_THAT(reported(log.text(), "argument"), ElementsAre("one"));
}

TEST(spawn_async, Fails_for_a_file_that_is_no_program) {
    const strlist argv = {"/proc/version"};
    int pid = 4242;
    log_catcher log;
    EXPECT_FALSE(vask_object::spawn_async(&argv, nullptr, &pid, nullptr));
    EXPECT_THAT(log.lines(),
                ElementsAre(failed_to_spawn(reason_of_glib("/proc/version", nullptr))));
    EXPECT_EQ(pid, 4242);
}

TEST(spawn_async, Fails_for_a_directory_that_does_not_exist) {
    const strlist argv = {"/bin/true"};
    int pid = 4242;
    log_catcher log;
    EXPECT_FALSE(vask_object::spawn_async(&argv, nullptr, &pid, "/nonexistent"));
    EXPECT_THAT(log.lines(),
                ElementsAre(failed_to_spawn(reason_of_glib("/bin/true", "/nonexistent"))));
    EXPECT_EQ(pid, 4242);
}

TEST(spawn_async, Does_not_search_PATH) {
    setenv("PATH", "/bin:/usr/bin", 1);
    ASSERT_EQ(chdir("/"), 0);
    const strlist argv = {"true"};
    int pid = 4242;
    log_catcher log;
    EXPECT_FALSE(vask_object::spawn_async(&argv, nullptr, &pid, nullptr));
    EXPECT_THAT(log.lines(), ElementsAre(failed_to_spawn(reason_of_glib("true", nullptr))));
}

TEST(spawn_async, Fails_without_a_program_to_start) {
    // GLib would refuse this with a critical message instead of an error.
    g_log_set_always_fatal(G_LOG_LEVEL_CRITICAL);
    const strlist no_arguments;
    for (const strlist* argv : {static_cast<const strlist*>(nullptr), &no_arguments}) {
        int pid = 4242;
        log_catcher log;
        EXPECT_FALSE(vask_object::spawn_async(argv, nullptr, &pid, nullptr));
        EXPECT_THAT(log.lines(), ElementsAre(failed_to_spawn("The argument list is empty")));
        EXPECT_EQ(pid, 4242);
    }
}

TEST(spawn_async, Logs_the_arrays_also_without_a_program_to_start) {
    vask_object::print_msg_level = VASK_P_DBG;
    const strlist envs = {"A=1"};
    log_catcher log;
    EXPECT_FALSE(vask_object::spawn_async(nullptr, &envs, nullptr, nullptr));
    EXPECT_THAT(log.lines(), ElementsAre(at_dbg("size_arg = [1]"), at_dbg("env[0] = A=1"),
                                         at_dbg("size_env = [2]"),
                                         failed_to_spawn("The argument list is empty")));
}

TEST(spawn_async, Leaves_the_lists_as_they_were) {
    const strlist argv = {"/bin/true", "one"};
    const strlist envs = {"A=1"};
    int pid = -1;
    ASSERT_TRUE(vask_object::spawn_async(&argv, &envs, &pid, nullptr));
    EXPECT_EQ(status_after_end_of(pid), 0);
    EXPECT_THAT(argv, ElementsAre("/bin/true", "one"));
    EXPECT_THAT(envs, ElementsAre("A=1"));
}
