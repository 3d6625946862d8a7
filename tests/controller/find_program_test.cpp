// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Which processes are found, with processes as they come.

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "support/file_scratch.h"
#include "support/idle_process.h"
#include "support/test_program.h"
#include "vask_child_cmd.h"
#include "vask_test/log_catcher.h"
#include "vask_test/main_loop.h"
#include "vask_test/started_process.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

namespace {

std::vector<int> find(const char* program) {
    return vask_child_cmd_base("finder", program).find_program();
}

}  // namespace

TEST(find_program, Finds_a_program_started_by_its_path) {
    const idle_process process("/usr/bin/wanted");
    EXPECT_THAT(find("wanted"), ElementsAre(process.pid()));
}

TEST(find_program, Finds_a_program_started_from_its_directory) {
    const idle_process process("./wanted");
    EXPECT_THAT(find("wanted"), ElementsAre(process.pid()));
}

TEST(find_program, Finds_a_program_started_by_its_name) {
    const idle_process process("wanted");
    EXPECT_THAT(find("wanted"), ElementsAre(process.pid()));
}

TEST(find_program, Does_not_find_a_longer_name) {
    const idle_process longer_at_the_end("wanted_too");
    const idle_process longer_at_the_beginning("/usr/bin/most_wanted");
    EXPECT_THAT(find("wanted"), IsEmpty());
}

TEST(find_program, Does_not_find_a_shorter_name) {
    const idle_process process("/usr/bin/want");
    EXPECT_THAT(find("wanted"), IsEmpty());
}

TEST(find_program, Tells_capital_letters_from_small_ones) {
    const idle_process process("Wanted");
    EXPECT_THAT(find("wanted"), IsEmpty());
}

TEST(find_program, Does_not_find_a_directory_on_the_way) {
    const idle_process process("/opt/wanted/other");
    EXPECT_THAT(find("wanted"), IsEmpty());
}

TEST(find_program, Does_not_look_at_arguments) {
    const scratch_directory scratch;
    const std::string script = scratch / "sleeper";
    std::ofstream(script) << "kill -STOP $$\n";
    started_process process("sh", {script, "wanted", "/usr/bin/wanted"});
    ASSERT_TRUE(process.wait_until_stopped());

    EXPECT_THAT(find("wanted"), IsEmpty());
    EXPECT_THAT(find("sh"), Contains(process.pid()));
}

TEST(find_program, Does_not_look_behind_an_empty_first_word) {
    char empty[] = "";
    char duration[] = "1000";
    char* const argv[] = {empty, duration, nullptr};
    pid_t pid = -1;
    ASSERT_EQ(posix_spawnp(&pid, "sleep", nullptr, nullptr, argv, environ), 0);
    wait_for_command_line(pid, empty);

    EXPECT_THAT(find("1000"), IsEmpty());
    EXPECT_THAT(find(""), IsEmpty());

    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

TEST(find_program, Passes_over_trailing_slashes) {
    const idle_process process("/usr/bin/wanted//");
    EXPECT_THAT(find("wanted"), ElementsAre(process.pid()));
}

TEST(find_program, Passes_over_trailing_tabs_and_line_ends) {
    const idle_process tab("wanted\t");
    const idle_process line_end("./wanted\r\n");
    EXPECT_THAT(find("wanted"), UnorderedElementsAre(tab.pid(), line_end.pid()));
}

TEST(find_program, Takes_tabs_and_line_ends_for_separators) {
    const idle_process tab("other\twanted");
    const idle_process carriage_return("other\rwanted");
    const idle_process line_end("other\nwanted");
    EXPECT_THAT(find("wanted"),
                UnorderedElementsAre(tab.pid(), carriage_return.pid(), line_end.pid()));
    EXPECT_THAT(find("other"), IsEmpty());
}

TEST(find_program, Takes_a_blank_for_a_part_of_the_name) {
    const idle_process process("/usr/bin/wanted --daemon");
    EXPECT_THAT(find("wanted"), IsEmpty());
    EXPECT_THAT(find("wanted --daemon"), ElementsAre(process.pid()));
}

TEST(find_program, Does_not_find_a_first_word_of_separators) {
    const idle_process process("/\t//\r\n");
    EXPECT_THAT(find(""), IsEmpty());
    EXPECT_THAT(find("/"), IsEmpty());
}

TEST(find_program, Compares_bytes) {
    const idle_process process("/opt/caf\xe9");
    EXPECT_THAT(find("caf\xe9"), ElementsAre(process.pid()));
    EXPECT_THAT(find("caf\xc3\xa9"), IsEmpty());
}

TEST(find_program, Finds_a_name_of_several_pages) {
    const std::string name(20000, 'x');
    const idle_process process("/usr/bin/" + name);
    EXPECT_THAT(find(name.c_str()), ElementsAre(process.pid()));
}

TEST(find_program, Finds_all_processes_of_the_program) {
    const idle_process first("wanted");
    const idle_process other("other");
    const idle_process second("/usr/bin/wanted");
    EXPECT_THAT(find("wanted"), UnorderedElementsAre(first.pid(), second.pid()));
}

TEST(find_program, Finds_the_calling_process_too) {
    EXPECT_THAT(find(program_invocation_short_name), ElementsAre(getpid()));
}

TEST(find_program, Does_not_find_what_has_ended) {
    idle_process process("wanted");
    process.kill_now();
    EXPECT_THAT(find("wanted"), IsEmpty());
}

TEST(find_program, Does_not_find_a_zombie) {
    const idle_process process("wanted");
    process.send(SIGKILL);
    siginfo_t info;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(process.pid()), &info, WEXITED | WNOWAIT), 0);

    ASSERT_EQ(kill(process.pid(), 0), 0);
    EXPECT_THAT(find("wanted"), IsEmpty());
}

TEST(find_program, Finds_a_program_by_the_first_word_it_has_given_itself) {
    log_catcher log;
    started_process::options wanted;
    wanted.argv0 = "/usr/bin/before_the_change";
    started_process process(test_program("retitled_program"), {"./wanted"}, wanted);
    ASSERT_TRUE(wait_until_without_loop([&] { return log.text() == "retitled\n"; }));

    EXPECT_THAT(find("wanted"), ElementsAre(process.pid()));
    EXPECT_THAT(find("before_the_change"), IsEmpty());
}

TEST(find_program, Finds_a_script_under_its_interpreter) {
    const scratch_directory scratch;
    const std::string script = scratch / "wanted";
    std::ofstream(script) << "#!/bin/sh\nkill -STOP $$\n";
    ASSERT_EQ(chmod(script.c_str(), 0755), 0);
    started_process process(script, {});
    ASSERT_TRUE(process.wait_until_stopped());

    EXPECT_THAT(find("wanted"), Not(Contains(process.pid())));
    EXPECT_THAT(find("sh"), Contains(process.pid()));
}

TEST(find_program, Finds_nothing_when_it_can_open_nothing_more) {
    // The descriptor of the directory is the last one.
    log_catcher log;
    const idle_process process("wanted");
    const vask_child_cmd_base finder("finder", "wanted");
    const int next = dup(STDOUT_FILENO);
    close(next);
    rlimit before;
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit one_more = before;
    one_more.rlim_cur = static_cast<rlim_t>(next) + 1;

    setrlimit(RLIMIT_NOFILE, &one_more);
    const std::vector<int> found = finder.find_program();
    setrlimit(RLIMIT_NOFILE, &before);

    EXPECT_THAT(found, IsEmpty());
    EXPECT_EQ(log.text(), "");
}
