// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "foundation/child_report.h"
#include "support/source_line.h"
#include "vask_object.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using bytes = std::vector<unsigned char>;

const char unit[] = "vask_object_spawn";

std::string text_of(const bytes& data) {
    return std::string(data.begin(), data.end());
}

strlist shell(const std::string& script) {
    return {"/bin/sh", "-c", script};
}

std::string reason_of_glib(const char* program, const char* directory) {
    char* argv[] = {const_cast<char*>(program), nullptr};
    char* envp[] = {nullptr};
    GError* error = nullptr;
    if (g_spawn_sync(directory, argv, envp, G_SPAWN_SEARCH_PATH, nullptr, nullptr, nullptr, nullptr,
                     nullptr, &error)) {
        return "it can";
    }
    const std::string reason = error->message;
    g_error_free(error);
    return reason;
}

testing::Matcher<const log_line&> failed_to_spawn(const std::string& reason) {
    return logged("ERR", "vask", from_line_of(unit, "Failed to spawn: " + reason));
}

}  // namespace

TEST(spawn_sync, Returns_what_the_program_wrote_to_both_streams) {
    const strlist argv = shell("echo out; echo err >&2");
    bytes output;
    bytes error;
    int status = -1;
    log_catcher log;
    ASSERT_TRUE(vask_object::spawn_sync(&argv, nullptr, &status, &output, &error, nullptr));
    EXPECT_EQ(text_of(output), "out\n");
    EXPECT_EQ(text_of(error), "err\n");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(log.text(), "");
}

TEST(spawn_sync, Cuts_output_at_its_first_zero_byte) {
    const strlist argv = shell("printf 'ab\\000cd'; printf 'x\\000y' >&2");
    bytes output;
    bytes error;
    int status = -1;
    ASSERT_TRUE(vask_object::spawn_sync(&argv, nullptr, &status, &output, &error, nullptr));
    EXPECT_THAT(output, ElementsAre('a', 'b'));
    EXPECT_THAT(error, ElementsAre('x'));
}

TEST(spawn_sync, Returns_bytes_that_are_no_text) {
    const strlist argv = shell("printf '\\377\\200\\001\\n'");
    bytes output;
    int status = -1;
    ASSERT_TRUE(vask_object::spawn_sync(&argv, nullptr, &status, &output, nullptr, nullptr));
    EXPECT_THAT(output, ElementsAre(0xff, 0x80, 0x01, '\n'));
}

TEST(spawn_sync, Replaces_what_the_vectors_held) {
    const strlist argv = shell("printf new");
    bytes output(100, 'x');
    bytes error(100, 'x');
    int status = -1;
    ASSERT_TRUE(vask_object::spawn_sync(&argv, nullptr, &status, &output, &error, nullptr));
    EXPECT_EQ(text_of(output), "new");
    EXPECT_THAT(error, IsEmpty());
}

TEST(spawn_sync, Returns_large_output_of_both_streams) {
    const strlist argv = shell(
        "i=0; while [ $i -lt 64 ]; do"
        " head -c 16384 /dev/zero | tr '\\000' o; head -c 16384 /dev/zero | tr '\\000' e >&2;"
        " i=$((i+1)); done");
    const strlist envs = {"PATH=/usr/bin:/bin"};
    bytes output;
    bytes error;
    int status = -1;
    ASSERT_TRUE(vask_object::spawn_sync(&argv, &envs, &status, &output, &error, nullptr));
    EXPECT_TRUE(output == bytes(1048576, 'o')) << output.size();
    EXPECT_TRUE(error == bytes(1048576, 'e')) << error.size();
}

TEST(spawn_sync, Lets_the_program_share_standard_output_when_it_is_not_wanted) {
    const strlist argv = shell("echo out; echo err >&2");
    bytes error;
    int status = -1;
    log_catcher log;
    ASSERT_TRUE(vask_object::spawn_sync(&argv, nullptr, &status, nullptr, &error, nullptr));
    EXPECT_EQ(log.text(), "out\n");
    EXPECT_EQ(text_of(error), "err\n");
}

TEST(spawn_sync, Lets_the_program_share_standard_error_when_it_is_not_wanted) {
    const strlist argv = shell("echo out; echo err >&2");
    bytes output;
    int status = -1;
    log_catcher log;
    const int original = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(STDOUT_FILENO, STDERR_FILENO);
    const bool ran = vask_object::spawn_sync(&argv, nullptr, &status, &output, nullptr, nullptr);
    dup2(original, STDERR_FILENO);
    close(original);
    ASSERT_TRUE(ran);
    EXPECT_EQ(text_of(output), "out\n");
    EXPECT_EQ(log.text(), "err\n");
}

TEST(spawn_sync, Returns_the_raw_wait_status) {
    const strlist exits = shell("exit 7");
    int status = -1;
    ASSERT_TRUE(vask_object::spawn_sync(&exits, nullptr, &status, nullptr, nullptr, nullptr));
    EXPECT_EQ(status, 7 << 8);
    const strlist dies = shell("kill -KILL $$");
    ASSERT_TRUE(vask_object::spawn_sync(&dies, nullptr, &status, nullptr, nullptr, nullptr));
    EXPECT_EQ(status, SIGKILL);
}

TEST(spawn_sync, Returns_no_status_when_the_kernel_keeps_none) {
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction reap_at_once = {};
    reap_at_once.sa_flags = SA_NOCLDWAIT;
    const strlist argv = shell("printf done; exit 7");
    for (const struct sigaction& disposition : {ignore, reap_at_once}) {
        struct sigaction before;
        sigaction(SIGCHLD, &disposition, &before);
        log_catcher log;
        bytes output;
        int status = 0;
        EXPECT_TRUE(vask_object::spawn_sync(&argv, nullptr, &status, &output, nullptr, nullptr));
        sigaction(SIGCHLD, &before, nullptr);
        EXPECT_EQ(status, -1);
        EXPECT_FALSE(WIFEXITED(status) || WIFSIGNALED(status) || WIFSTOPPED(status));
        EXPECT_EQ(text_of(output), "done");
        EXPECT_EQ(log.text(), "");
    }
}

TEST(spawn_sync, Runs_a_program_whose_status_nobody_wants) {
    const strlist argv = shell("printf done; exit 7");
    bytes output;
    ASSERT_TRUE(vask_object::spawn_sync(&argv, nullptr, nullptr, &output, nullptr, nullptr));
    EXPECT_EQ(text_of(output), "done");
}

TEST(spawn_sync, Searches_PATH_of_the_caller) {
    setenv("PATH", VASK_TEST_PROGRAM_DIR, 1);
    const strlist argv = {"foundation_child_report", "one"};
    bytes output;
    int status = -1;
    ASSERT_TRUE(vask_object::spawn_sync(&argv, nullptr, &status, &output, nullptr, nullptr));
    EXPECT_EQ(status, 0);
    EXPECT_THAT(reported(text_of(output), "argument"),
                ElementsAre("foundation_child_report", "one"));
}

TEST(spawn_sync, Runs_a_program_with_exactly_the_given_environment) {
    setenv("OF_THE_PARENT", "1", 1);
    const strlist argv = {child_report_program};
    const strlist envs = {"B=2", "A=1", "B=3"};
    bytes output;
    int status = -1;
    ASSERT_TRUE(vask_object::spawn_sync(&argv, &envs, &status, &output, nullptr, nullptr));
    EXPECT_THAT(reported(text_of(output), "environment"), ElementsAre("B=2", "A=1", "B=3"));
}

TEST(spawn_sync, Runs_a_program_with_an_empty_environment_for_a_null_or_empty_list) {
    const strlist argv = {child_report_program};
    const strlist no_envs;
    for (const strlist* envs : {static_cast<const strlist*>(nullptr), &no_envs}) {
        bytes output;
        int status = -1;
        ASSERT_TRUE(vask_object::spawn_sync(&argv, envs, &status, &output, nullptr, nullptr));
        EXPECT_THAT(reported(text_of(output), "argument"), testing::SizeIs(1));
        EXPECT_THAT(reported(text_of(output), "environment"), IsEmpty());
    }
}

TEST(spawn_sync, Runs_a_program_in_the_given_directory) {
    const strlist argv = {child_report_program};
    bytes output;
    int status = -1;
    ASSERT_TRUE(vask_object::spawn_sync(&argv, nullptr, &status, &output, nullptr, "/proc"));
    EXPECT_THAT(reported(text_of(output), "directory"), ElementsAre("/proc"));
}

TEST(spawn_sync, Hands_no_descriptors_to_the_program_but_the_standard_streams) {
    const strlist argv = {child_report_program};
    const int inheritable = open("/dev/zero", O_RDONLY);
    bytes output;
    int status = -1;
    const bool ran = vask_object::spawn_sync(&argv, nullptr, &status, &output, nullptr, nullptr);
    close(inheritable);
    ASSERT_TRUE(ran);
    EXPECT_THAT(reported(text_of(output), "descriptors"), ElementsAre("0 1 2"));
    EXPECT_THAT(reported(text_of(output), "standard input"), ElementsAre("/dev/null"));
}

TEST(spawn_sync, Logs_no_arrays) {
    vask_object::print_msg_level = VASK_P_DBG;
    const strlist argv = {"/bin/true", "one"};
    const strlist envs = {"A=1"};
    int status = -1;
    log_catcher log;
    ASSERT_TRUE(vask_object::spawn_sync(&argv, &envs, &status, nullptr, nullptr, nullptr));
    EXPECT_EQ(log.text(), "");
}

TEST(spawn_sync, Fails_for_a_program_that_does_not_exist_and_touches_no_result) {
    const strlist argv = {"/nonexistent/program"};
    bytes output = {'a'};
    bytes error = {'b'};
    int status = 4242;
    log_catcher log;
    EXPECT_FALSE(vask_object::spawn_sync(&argv, nullptr, &status, &output, &error, nullptr));
    EXPECT_THAT(log.lines(),
                ElementsAre(failed_to_spawn(reason_of_glib("/nonexistent/program", nullptr))));
    EXPECT_THAT(output, ElementsAre('a'));
    EXPECT_THAT(error, ElementsAre('b'));
    EXPECT_EQ(status, 4242);
}

TEST(spawn_sync, Fails_for_a_directory_that_does_not_exist) {
    const strlist argv = {"/bin/true"};
    log_catcher log;
    EXPECT_FALSE(
        vask_object::spawn_sync(&argv, nullptr, nullptr, nullptr, nullptr, "/nonexistent"));
    EXPECT_THAT(log.lines(),
                ElementsAre(failed_to_spawn(reason_of_glib("/bin/true", "/nonexistent"))));
}

TEST(spawn_sync, Fails_without_a_program_to_run_and_touches_no_result) {
    // GLib would refuse this with a critical message instead of an error.
    g_log_set_always_fatal(G_LOG_LEVEL_CRITICAL);
    const strlist no_arguments;
    for (const strlist* argv : {static_cast<const strlist*>(nullptr), &no_arguments}) {
        bytes output = {'a'};
        bytes error = {'b'};
        int status = 4242;
        log_catcher log;
        EXPECT_FALSE(vask_object::spawn_sync(argv, nullptr, &status, &output, &error, nullptr));
        EXPECT_THAT(log.lines(), ElementsAre(failed_to_spawn("The argument list is empty")));
        EXPECT_THAT(output, ElementsAre('a'));
        EXPECT_THAT(error, ElementsAre('b'));
        EXPECT_EQ(status, 4242);
    }
}
