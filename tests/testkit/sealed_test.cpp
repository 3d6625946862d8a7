// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "support/main_loop.h"
#include "support/resource_count.h"
#include "vask_test/process_list.h"
#include "vask_test/world.h"

using namespace vask_test;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/** A run with pipes to its standard input and from its combined output. */
class sealed_program {
public:
    explicit sealed_program(const std::vector<std::string>& arguments,
                            const std::vector<const char*>& wrapper = {}) {
        std::vector<char*> argv;
        for (const char* word : wrapper) {
            argv.push_back(const_cast<char*>(word));
        }
        argv.push_back(const_cast<char*>(VASK_TEST_SEALED));
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);

        int input[2];
        int output[2];
        if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
            std::abort();
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDERR_FILENO);
        if (posix_spawn(&m_pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
            std::abort();
        }
        posix_spawn_file_actions_destroy(&actions);
        close(input[0]);
        close(output[1]);
        m_input = input[1];
        m_output = output[0];
    }

    ~sealed_program() {
        if (m_pid > 0) {
            finish();
        }
    }

    pid_t pid() const { return m_pid; }

    bool has_output_within(int msec) const {
        pollfd output = {m_output, POLLIN, 0};
        return poll(&output, 1, msec) > 0;
    }

    std::string read_line() {
        char c;
        std::string text;
        while (read(m_output, &c, 1) == 1 && c != '\n') {
            text += c;
        }
        return text;
    }

    int finish() {
        close(m_input);
        char buffer[4096];
        ssize_t length;
        while ((length = read(m_output, buffer, sizeof buffer)) > 0) {
            m_rest.append(buffer, static_cast<size_t>(length));
        }
        close(m_output);
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    const std::string& rest() const { return m_rest; }

private:
    pid_t m_pid = -1;
    int m_input = -1;
    int m_output = -1;
    std::string m_rest;
};

struct outcome {
    int status;
    std::string output;
};

outcome run_shell(const std::string& script, std::vector<std::string> arguments = {},
                  const std::vector<const char*>& wrapper = {}) {
    arguments.insert(arguments.end(), {"--", "sh", "-c", script});
    sealed_program program(arguments, wrapper);
    const int status = program.finish();
    return {status, program.rest()};
}

/** As in a container in which nobody may make a namespace. */
const std::vector<const char*> without_namespaces = {VASK_TEST_WITHOUT_NAMESPACES};

outcome run_openly(const std::string& script, const std::vector<std::string>& arguments = {}) {
    return run_shell(script, arguments, without_namespaces);
}

/** Names in the world of this test what the runner has to put aside in its own. */
class open_run : public testing::Test {
protected:
    void SetUp() override {
        if (is_in_open_world()) {
            GTEST_SKIP() << "no private world for the runner to meet";
        }
        std::ofstream(kept) << "kept";
    }

    void TearDown() override {
        if (!IsSkipped()) {
            unlink(kept);
        }
    }

    static std::string kept_text() {
        std::string text;
        std::ifstream(kept) >> text;
        return text;
    }

    static constexpr const char* kept = "/dev/shm/vask_kept";
};

std::vector<std::string> commands_containing(const std::string& text) {
    std::vector<std::string> result;
    for (const process_entry& process : list_processes()) {
        if (process.command.find(text) != std::string::npos) {
            result.push_back(process.command);
        }
    }
    return result;
}

}  // namespace

TEST(sealed, Passes_the_exit_status_through) {
    EXPECT_EQ(run_shell("exit 0").status, 0);
    EXPECT_EQ(run_shell("exit 7").status, 7);
    EXPECT_EQ(run_shell("kill -KILL $$").status, 128 + SIGKILL);
    EXPECT_EQ(run_shell("kill -ABRT $$").status, 128 + SIGABRT);
}

TEST(sealed, Passes_input_and_arguments_through) {
    sealed_program program({"cat", "-", "/dev/null"});
    EXPECT_EQ(program.finish(), 0);
    EXPECT_EQ(run_shell("echo out; echo err >&2").output, "out\nerr\n");
}

TEST(sealed, Reports_a_missing_program) {
    sealed_program program({"--", "/nonexistent/program"});
    EXPECT_EQ(program.finish(), 127);
    EXPECT_THAT(program.rest(), HasSubstr("/nonexistent/program"));
}

TEST(sealed, Stops_a_program_that_does_not_end) {
    const outcome result = run_shell("sleep 1000; true", {"--timeout", "0.3"});
    EXPECT_EQ(result.status, 124);
    EXPECT_THAT(result.output, AllOf(HasSubstr("no end after"), HasSubstr("sleep 1000")));
}

TEST(sealed, Lets_the_program_act_on_the_timeout) {
    const outcome result = run_shell("trap 'echo aborted; exit' ABRT; while :; do sleep 0.01; done",
                                     {"--timeout", "0.3"});
    EXPECT_EQ(result.status, 124);
    EXPECT_THAT(result.output, HasSubstr("\naborted\n"));
}

TEST(sealed, Fails_for_processes_left_behind) {
    const outcome result = run_shell("sleep 1000 & exit 0");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, AllOf(HasSubstr("process left behind"), HasSubstr("sleep 1000")));
}

TEST(sealed, Waits_for_processes_that_are_about_to_end) {
    EXPECT_EQ(run_shell("sleep 0.2 & exit 0").status, 0);
    EXPECT_EQ(run_shell("(sleep 0.1 & exec sleep 0.2) & exit 3").status, 3);
}

TEST(sealed, Fails_for_shared_memory_left_behind) {
    const outcome result = run_shell("touch /dev/shm/forgotten");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("/dev/shm/forgotten"));
    EXPECT_EQ(run_shell("touch /dev/shm/forgotten; exit 5").status, 5);
}

TEST(sealed, Accepts_shared_memory_that_may_be_left_behind) {
    EXPECT_EQ(run_shell("touch /dev/shm/kept", {"--may-leave-shared-memory"}).status, 0);
}

TEST(sealed, Dies_as_a_whole) {
    sealed_program program({"--bus", "--", "sh", "-c", "echo started; exec sleep 4321"});
    EXPECT_EQ(program.read_line(), "started");
    EXPECT_THAT(commands_containing("sleep 4321"), testing::Not(IsEmpty()));
    kill(program.pid(), SIGKILL);
    EXPECT_EQ(program.finish(), -SIGKILL);
    EXPECT_TRUE(wait_until_without_loop([] { return commands_containing("sleep 4321").empty(); }));
}

TEST(sealed, Starts_with_empty_shared_memory_and_directories) {
    if (is_in_open_world()) {
        GTEST_SKIP() << "no private /dev/shm";
    }
    EXPECT_THAT(resource_count::take().shared_objects, IsEmpty());
    EXPECT_EQ(run_shell("ls -A /dev/shm $TMPDIR/ $XDG_RUNTIME_DIR/ | grep -v :$ | grep .").status,
              1);
    EXPECT_EQ(run_shell("touch $TMPDIR/x $XDG_RUNTIME_DIR/x").status, 0);
}

TEST(sealed, Reaches_no_bus_unless_asked_for) {
    DBusError error = DBUS_ERROR_INIT;
    for (DBusBusType type : {DBUS_BUS_SESSION, DBUS_BUS_SYSTEM}) {
        EXPECT_EQ(dbus_bus_get_private(type, &error), nullptr);
        dbus_error_free(&error);
    }
    EXPECT_EQ(getenv("DISPLAY"), nullptr);
}

TEST(sealed, Cleans_the_environment) {
    for (const char* name :
         {"VASK_MSG_LV", "VASK_MSG_FLAGS", "VASK_SYSLOG", "VASK_NEST_LV", "VASK_TEST_ANYTHING"}) {
        setenv(name, "1", 1);
    }
    EXPECT_EQ(run_shell("env | grep ^VASK_ | grep -v 'FACTOR\\|OPEN_WORLD'").output,
              "VASK_TEST_ANYTHING=1\n");
}

TEST(sealed, Runs_displays_in_parallel) {
    const std::string probe = std::string(VASK_TEST_PROGRAM_DIR) + "/display_probe";
    sealed_program first({"--display", "--bus", "--", probe});
    sealed_program second({"--display", "--bus", "--", probe});
    EXPECT_EQ(first.read_line(), "640");
    EXPECT_EQ(second.read_line(), "640");
    EXPECT_EQ(first.finish(), 0) << first.rest();
    EXPECT_EQ(second.finish(), 0) << second.rest();
}

TEST(sealed, Keeps_the_keymap_of_its_display_to_itself) {
    if (is_in_open_world()) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(run_shell("test ! -d /var/lib/xkb || touch /var/lib/xkb/server-0.xkm").status, 0);
    EXPECT_NE(access("/var/lib/xkb/server-0.xkm", F_OK), 0);
}

TEST(open_world, Is_told_of_with_its_reason) {
    sealed_program program({"--tell"}, without_namespaces);
    EXPECT_EQ(program.finish(), 0);
    EXPECT_THAT(program.rest(),
                AllOf(HasSubstr("allows tests no world of their own: no private namespaces"),
                      HasSubstr("one after the other")));
}

TEST(open_world, Passes_status_and_output_through) {
    EXPECT_EQ(run_openly("echo out; exit 7").status, 7);
    EXPECT_EQ(run_openly("kill -KILL $$").status, 128 + SIGKILL);
    EXPECT_EQ(run_openly("echo out").output, "out\n");
}

TEST(open_world, Has_a_bus_a_display_and_directories_of_its_own) {
    const std::string probe = std::string(VASK_TEST_PROGRAM_DIR) + "/display_probe";
    const outcome result = run_openly(
        "dbus-send --session --print-reply --dest=org.freedesktop.DBus / "
        "org.freedesktop.DBus.GetId >/dev/null && touch $TMPDIR/x $XDG_RUNTIME_DIR/x && " +
            probe + " </dev/null",
        {"--bus", "--display"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "640\n");
}

TEST(open_world, Takes_its_directory_away) {
    std::string directory = run_openly("echo $TMPDIR").output;
    ASSERT_THAT(directory, testing::StartsWith("/tmp/vask_test_"));
    directory.pop_back();
    EXPECT_NE(access(directory.c_str(), F_OK), 0);
}

TEST(open_world, Fails_for_processes_left_behind_and_ends_them) {
    const outcome result = run_openly("setsid sleep 4322 & exit 0");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, AllOf(HasSubstr("process left behind"), HasSubstr("sleep 4322")));
    EXPECT_THAT(commands_containing("sleep 4322"), IsEmpty());
}

TEST(open_world, Ends_what_is_left_of_a_program_that_does_not_end) {
    const outcome result = run_openly("sleep 4323; true", {"--timeout", "0.3"});
    EXPECT_EQ(result.status, 124);
    EXPECT_THAT(result.output, HasSubstr("sleep 4323"));
    EXPECT_THAT(commands_containing("sleep 4323"), IsEmpty());
}

TEST(open_world, Fails_for_shared_memory_left_behind_and_removes_it) {
    const outcome result = run_openly("touch /dev/shm/forgotten");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("/dev/shm/forgotten"));
    EXPECT_NE(access("/dev/shm/forgotten", F_OK), 0);
}

TEST(open_world, Removes_shared_memory_that_may_be_left_behind) {
    EXPECT_EQ(run_openly("touch /dev/shm/left", {"--may-leave-shared-memory"}).status, 0);
    EXPECT_NE(access("/dev/shm/left", F_OK), 0);
}

TEST_F(open_run, Does_not_see_what_the_users_programs_share_and_leaves_it_alone) {
    EXPECT_EQ(run_openly("test ! -e /dev/shm/vask_kept && echo other >/dev/shm/vask_kept",
                         {"--may-leave-shared-memory"})
                  .status,
              0);
    EXPECT_EQ(kept_text(), "kept");
}

TEST_F(open_run, Puts_back_what_a_killed_one_has_put_aside) {
    sealed_program killed(
        {"--", "sh", "-c", "echo other >/dev/shm/vask_kept; echo started; exec sleep 4324"},
        without_namespaces);
    EXPECT_EQ(killed.read_line(), "started");
    kill(killed.pid(), SIGKILL);
    killed.finish();
    EXPECT_EQ(kept_text(), "other");
    EXPECT_TRUE(wait_until_without_loop([] { return commands_containing("sleep 4324").empty(); }));

    EXPECT_EQ(run_openly("exit 0").status, 0);

    EXPECT_EQ(kept_text(), "kept");
}

TEST_F(open_run, Goes_on_to_its_end_when_the_tests_are_stopped) {
    sealed_program stopped({"--", "sh", "-c", "echo started; cat; exit 5"}, without_namespaces);
    EXPECT_EQ(stopped.read_line(), "started");
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        kill(stopped.pid(), number);
    }
    EXPECT_EQ(stopped.finish(), 5);
    EXPECT_EQ(kept_text(), "kept");
}

TEST_F(open_run, Is_the_only_one) {
    sealed_program first({"--", "sh", "-c", "echo started; cat"}, without_namespaces);
    EXPECT_EQ(first.read_line(), "started");
    sealed_program second({"--", "sh", "-c", "echo started"}, without_namespaces);
    EXPECT_FALSE(second.has_output_within(200));
    EXPECT_EQ(first.finish(), 0);
    EXPECT_EQ(second.read_line(), "started");
}
