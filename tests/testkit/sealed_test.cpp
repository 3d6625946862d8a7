// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus.h>
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "vask_test/main_loop.h"
#include "vask_test/process_list.h"
#include "vask_test/resource_count.h"
#include "vask_test/world.h"

using namespace vask_test;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

const std::string announcement =
    "vask-sealed: no world of its own: no private namespaces: Operation not permitted\n"
    "vask-sealed: the program sees the machine's processes, network, /tmp and /dev/shm; such runs "
    "go one after the other\n";

/** As in a container in which nobody may make a namespace. */
const std::vector<const char*> without_namespaces = {VASK_TEST_WITHOUT_NAMESPACES};

const std::string uncounted =
    "vask-sealed: descriptors are not counted: Function not implemented\n";

/** As where an emulator runs this. */
bool has_no_filters() {
    return syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, nullptr) != 0 && errno == ENOSYS;
}

void erase_all(const std::string& line, std::string& text) {
    std::size_t place;
    while ((place = text.find(line)) != std::string::npos) {
        text.erase(place, line.size());
    }
}

/** A run with pipes to its standard input and from its combined output. Where this test is in an
 * open world itself, or nobody can count descriptors, the output is without the lines that say so.
 */
class sealed_program {
public:
    explicit sealed_program(const std::vector<std::string>& arguments,
                            const std::vector<const char*>& wrapper = {})
        : m_may_be_open(is_in_open_world() && wrapper != without_namespaces) {
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

    /** The next line of the program's own. */
    std::string read_line() {
        std::string line;
        while ((line = read_any_line()).rfind("vask-sealed: ", 0) == 0) {
        }
        return line;
    }

    std::string read_any_line() {
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
        if (m_may_be_open) {
            erase_all(announcement, m_rest);
        }
        if (has_no_filters()) {
            erase_all(uncounted, m_rest);
        }
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    const std::string& rest() const { return m_rest; }

private:
    const bool m_may_be_open;
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

/** An ordinary user without a name. */
const std::vector<const char*> as_nobody = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534",
                                            "--clear-groups"};

/** In a chroot, for one, the superuser alone can make a namespace. */
bool nobody_gets_a_world() {
    sealed_program program({"--tell"}, as_nobody);
    return program.finish() == 0 && program.rest().empty();
}

/** The same for a user of whom nobody else is here, and who may have so many processes. */
std::vector<const char*> without_namespaces_and_with(const char* process_limit) {
    return {"/usr/bin/setpriv",
            "--reuid=61234",
            "--regid=61234",
            "--clear-groups",
            "/usr/bin/prlimit",
            process_limit,
            VASK_TEST_WITHOUT_NAMESPACES};
}

/** Without the two lines that say so. */
outcome run_openly(const std::string& script, const std::vector<std::string>& arguments = {}) {
    outcome result = run_shell(script, arguments, without_namespaces);
    EXPECT_THAT(result.output, StartsWith(announcement));
    result.output.erase(0, std::min(announcement.size(), result.output.size()));
    return result;
}

/** A world that is kept after a failure. */
class kept_world {
public:
    explicit kept_world(const std::vector<std::string>& arguments,
                        const std::vector<const char*>& wrapper = {})
        : m_program(arguments, wrapper) {
        const std::string words = "vask-sealed --enter ";
        for (std::string line; m_keeper.empty() && !(line = m_program.read_any_line()).empty();) {
            m_told += line + "\n";
            const std::size_t place = line.find(words);
            if (place != std::string::npos) {
                m_keeper = std::to_string(std::atoi(line.c_str() + place + words.size()));
            }
        }
    }

    const std::string& told() const { return m_told; }

    outcome run(const std::string& script) const {
        sealed_program program({"--enter", m_keeper, "--", "sh", "-c", script});
        const int status = program.finish();
        return {status, program.rest()};
    }

    /** Returns the status of the run. */
    int end() {
        kill(std::stoi(m_keeper), SIGTERM);
        return m_program.finish();
    }

private:
    sealed_program m_program;
    std::string m_keeper;
    std::string m_told;
};

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

/** With other users. */
class open_run_of_root : public open_run {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "an ordinary user cannot be another one";
        }
        open_run::SetUp();
    }
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
    EXPECT_EQ(program.rest(), "/nonexistent/program: No such file or directory\n");
}

TEST(sealed, Reports_a_program_that_cannot_be_started) {
    sealed_program program({"--", "/etc/passwd"});
    EXPECT_EQ(program.finish(), 125);
    EXPECT_EQ(program.rest(), "/etc/passwd: Permission denied\n");
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

TEST(sealed, Runs_for_somebody_who_ignores_the_ends_of_children) {
    const outcome result =
        run_shell("exit 7", {"--timeout", "10"}, {"/usr/bin/env", "--ignore-signal=CHLD"});
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.output, "");
}

TEST(sealed, Lets_a_program_end_while_signals_come) {
    // What it has open takes a while to look at, and the timer strikes meanwhile.
    sealed_program program({"--timeout", "10", "--may-leave", "descriptors:/etc/*", "--", "python3",
                            "-c",
                            "import os, signal\n"
                            "files = [os.open('/etc/passwd', os.O_RDONLY) for _ in range(500)]\n"
                            "signal.signal(signal.SIGALRM, lambda *_: None)\n"
                            "signal.siginterrupt(signal.SIGALRM, False)\n"
                            "signal.setitimer(signal.ITIMER_REAL, 0.0002, 0.0002)\n"
                            "os._exit(7)\n"});
    EXPECT_EQ(program.finish(), 7) << program.rest();
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

TEST(sealed, Fails_for_a_descriptor_left_behind) {
    const outcome result = run_shell("exec 9</etc/passwd; exit 0");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output,
              "vask-sealed: descriptor left behind: 9 -> /etc/passwd\n"
              "vask-sealed: left behind: descriptors: 1\n");
    EXPECT_EQ(run_shell("exec 9</etc/passwd; exit 5").status, 5);
}

TEST(sealed, Fails_for_a_pipe_and_a_socket_left_behind) {
    sealed_program program({"--", "python3", "-c",
                            "import os, socket; os.pipe(); s = socket.socket(); "
                            "s.bind(('127.0.0.1', 0)); os._exit(0)"});
    EXPECT_EQ(program.finish(), 1);
    EXPECT_THAT(program.rest(), AllOf(HasSubstr("-> pipe:["), HasSubstr("-> socket:["),
                                      HasSubstr("descriptors: 3\n")));
}

TEST(sealed, Does_not_count_the_descriptors_of_other_processes) {
    EXPECT_EQ(run_shell("sh -c 'exec 9</etc/passwd; exit 0'; true").output, "");
}

TEST(sealed, Does_not_count_what_libraries_keep_until_the_end) {
    // The worker of the main loop, and a connection to the bus.
    EXPECT_EQ(run_shell("exec gdbus call --session --dest org.freedesktop.DBus --object-path / "
                        "--method org.freedesktop.DBus.GetId >/dev/null",
                        {"--bus"})
                  .output,
              "");
}

TEST(sealed, Does_not_count_the_script_that_a_shell_runs) {
    EXPECT_EQ(run_shell("echo exit 0 >$TMPDIR/script; cd $TMPDIR; exec sh ./script").output, "");
}

TEST(sealed, Fails_for_a_file_that_the_program_was_told_to_read) {
    sealed_program program({"--", "python3", "-c",
                            "import os, sys; os.open(sys.argv[1], os.O_RDONLY); os._exit(0)",
                            "/etc/passwd"});
    EXPECT_EQ(program.finish(), 1);
    EXPECT_THAT(program.rest(), HasSubstr("-> /etc/passwd\n"));
}

TEST(sealed, Says_when_it_cannot_count_descriptors) {
    // One of them watches already.
    const outcome result = run_shell(VASK_TEST_SEALED " true; true");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "vask-sealed: descriptors are not counted: Device or resource busy\n");
}

TEST(sealed, Says_when_a_program_ends_unseen) {
    sealed_program program(
        {"--", "python3", "-c",
         "import ctypes; ctypes.CDLL(None).syscall(" + std::to_string(SYS_exit) + ", 0)"});
    EXPECT_EQ(program.finish(), 0);
    EXPECT_EQ(program.rest(),
              "vask-sealed: descriptors are not counted: nobody saw the program end\n");
}

TEST(sealed, Lets_programs_go_that_it_watches_when_they_end_in_a_crowd) {
    EXPECT_EQ(run_shell("for i in 1 2 3 4 5 6 7 8 9; do sh -c 'exit 0' & done; wait").status, 0);
}

TEST(sealed, Fails_for_semaphores_left_behind) {
    const outcome result = run_shell("touch /dev/shm/sem.forgotten");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("semaphore left behind: /dev/shm/sem.forgotten\n"));
}

TEST(sealed, Fails_for_System_V_objects_left_behind) {
    const outcome result = run_shell("ipcmk -M 100 >/dev/null && ipcmk -S 1 >/dev/null");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, AllOf(HasSubstr("shared object left behind: System V segment "),
                                     HasSubstr("semaphore left behind: System V semaphores ")));
}

TEST(sealed, Names_the_bus_names_of_processes_left_behind) {
    const outcome result = run_shell(VASK_TEST_PROGRAM_DIR
                                     "/child_plain >/dev/null & exec gdbus wait --session "
                                     "com.example.vask.Child_$!",
                                     {"--bus"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, testing::ContainsRegex("bus name left behind: "
                                                      "com.example.vask.Child_[0-9]+ of process "));
    EXPECT_THAT(result.output, HasSubstr("left behind: processes: 1, bus-names: 1\n"));
}

TEST(sealed, Sums_up_what_is_left_behind) {
    EXPECT_THAT(run_shell("sleep 1000 & exec 9</etc/passwd; touch /dev/shm/a /dev/shm/b "
                          "/dev/shm/sem.c; exit 0")
                    .output,
                HasSubstr("\nvask-sealed: left behind: processes: 1, descriptors: 1, "
                          "shared-objects: 2, semaphores: 1\n"));
}

TEST(sealed, Fails_for_shared_memory_left_behind) {
    const outcome result = run_shell("touch /dev/shm/forgotten");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("/dev/shm/forgotten"));
    EXPECT_EQ(run_shell("touch /dev/shm/forgotten; exit 5").status, 5);
}

TEST(sealed, Accepts_kinds_of_things_that_may_be_left_behind) {
    EXPECT_EQ(run_shell("touch /dev/shm/kept /dev/shm/sem.kept; exec 9</etc/passwd; sleep 1000 & "
                        "exit 0",
                        {"--may-leave", "shared-objects", "--may-leave=semaphores", "--may-leave",
                         "descriptors", "--may-leave", "processes"})
                  .output,
              "");
}

TEST(sealed, Accepts_only_what_a_pattern_lets_pass) {
    const outcome result = run_shell(
        "touch /dev/shm/kept /dev/shm/forgotten; exec 9</etc/passwd 8</etc/group; exit 0",
        {"--may-leave", "shared-objects:/dev/shm/kept", "--may-leave", "descriptors:/etc/g*"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output,
              "vask-sealed: descriptor left behind: 9 -> /etc/passwd\n"
              "vask-sealed: shared object left behind: /dev/shm/forgotten\n"
              "vask-sealed: left behind: descriptors: 1, shared-objects: 1\n");
}

TEST(sealed, Refuses_a_command_line_that_makes_no_sense) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{},
                                               {"--bus"},
                                               {"--wrong", "true"},
                                               {"--timeout", "0", "true"},
                                               {"--timeout", "soon", "true"},
                                               {"--may-leave", "things", "true"},
                                               {"--enter", "-1"},
                                               {"--tell", "true"}}) {
        sealed_program program(arguments);
        EXPECT_EQ(program.finish(), 2) << testing::PrintToString(arguments);
        EXPECT_THAT(program.rest(), HasSubstr("usage: vask-sealed"));
    }
}

TEST(sealed, Leaves_the_options_of_the_program_to_it) {
    sealed_program program({"--timeout=60", "echo", "--bus", "--", "--keep"});
    EXPECT_EQ(program.finish(), 0);
    EXPECT_EQ(program.rest(), "--bus -- --keep\n");
}

TEST(sealed, Works_for_an_ordinary_user) {
    if (geteuid() == 0 && !nobody_gets_a_world()) {
        GTEST_SKIP() << "an ordinary user cannot make namespaces here";
    }
    const std::string expected = geteuid() == 0 ? "65534" : std::to_string(geteuid());
    sealed_program program({"--bus", "--display", "--", "sh", "-c",
                            "id -u; touch /dev/shm/x $TMPDIR/x; exec 9</etc/passwd; sleep 1000 & "
                            "exit 0"},
                           geteuid() == 0 ? as_nobody : std::vector<const char*>());
    EXPECT_EQ(program.finish(), 1);
    EXPECT_THAT(program.rest(),
                AllOf(StartsWith(expected + "\n"), HasSubstr("descriptor left behind: 9"),
                      HasSubstr("left behind: processes: 1, descriptors: 1, shared-objects: 1")));
}

TEST(sealed, Keeps_a_failed_world_to_be_looked_into) {
    kept_world world({"--keep", "--bus", "--", "sh", "-c",
                      "echo text >/dev/shm/left; touch $TMPDIR/left; exit 3"});

    const outcome seen = world.run(
        "cat /dev/shm/left; test -e $TMPDIR/left && cat /proc/1/comm; gdbus call --session "
        "--dest org.freedesktop.DBus --object-path / --method "
        "org.freedesktop.DBus.ReloadConfig; exit 7");

    EXPECT_EQ(seen.status, 7);
    EXPECT_THAT(seen.output, AllOf(StartsWith("text\n"), testing::EndsWith("\n()\n")));
    if (!is_in_open_world()) {
        EXPECT_EQ(seen.output, "text\nvask-sealed\n()\n");
    }
    EXPECT_THAT(world.told(), HasSubstr("shared object left behind: /dev/shm/left\n"));
    EXPECT_EQ(world.end(), 3);
}

TEST(sealed, Keeps_a_program_that_hangs_alive) {
    kept_world world({"--keep", "--timeout", "0.3", "--", "sleep", "4325"});
    EXPECT_THAT(world.run("ps ax").output, HasSubstr("sleep 4325"));
    EXPECT_THAT(world.told(), HasSubstr("no end after"));
    EXPECT_EQ(world.end(), 124);
    EXPECT_THAT(commands_containing("sleep 4325"), IsEmpty());
}

TEST(sealed, Keeps_no_world_of_a_program_that_leaves_nothing) {
    EXPECT_EQ(run_shell("exit 0", {"--keep"}).output, "");
}

TEST(sealed, Keeps_a_failed_world_for_an_ordinary_user) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "all of these tests are an ordinary user's";
    }
    if (!nobody_gets_a_world()) {
        GTEST_SKIP() << "an ordinary user cannot make namespaces here";
    }
    kept_world world({"--keep", "--", "sh", "-c", "echo text >/dev/shm/left; exit 3"}, as_nobody);
    EXPECT_EQ(world.run("cat /dev/shm/left").output, "text\n");
    EXPECT_EQ(world.end(), 3);
}

TEST(sealed, Enters_no_world_that_is_not_kept) {
    sealed_program program({"--enter", std::to_string(getpid())});
    EXPECT_EQ(program.finish(), 125);
    EXPECT_THAT(program.rest(), HasSubstr("keeps no world, or not for you"));
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
    EXPECT_EQ(
        run_shell("env | grep ^VASK_ | grep -v 'FACTOR\\|OPEN_WORLD\\|SKIP_LIST\\|LIVES_SEED'")
            .output,
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

TEST(open_world, Says_what_it_leaves_out) {
    EXPECT_EQ(run_shell("true", {}, without_namespaces).output, announcement);
}

TEST(open_world, Fails_for_descriptors_and_System_V_objects_left_behind) {
    const outcome result = run_openly("ipcmk -S 1 >/dev/null; exec 9</etc/passwd; exit 0");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, AllOf(HasSubstr("descriptor left behind: 9 -> /etc/passwd\n"),
                                     HasSubstr("semaphore left behind: System V semaphores ")));
    EXPECT_EQ(run_openly("ipcs -s | grep -c 0x").output, "0\n");
}

TEST(open_world, Is_kept_to_be_looked_into) {
    kept_world world({"--keep", "--", "sh", "-c", "echo text >$TMPDIR/left; exit 3"},
                     without_namespaces);
    EXPECT_EQ(world.run("cat $TMPDIR/left").output, "text\n");
    EXPECT_EQ(world.end(), 3);
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
    ASSERT_THAT(directory, StartsWith("/tmp/vask_test_"));
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
    EXPECT_EQ(run_openly("touch /dev/shm/left", {"--may-leave", "shared-objects"}).status, 0);
    EXPECT_NE(access("/dev/shm/left", F_OK), 0);
}

TEST_F(open_run, Does_not_see_what_the_users_programs_share_and_leaves_it_alone) {
    EXPECT_EQ(run_openly("test ! -e /dev/shm/vask_kept && echo other >/dev/shm/vask_kept",
                         {"--may-leave", "shared-objects"})
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

TEST_F(open_run, Loses_nothing_when_one_is_killed_that_puts_things_aside) {
    constexpr int many = 5000;
    const auto name = [](int i) { return "/dev/shm/vask_many_" + std::to_string(i); };
    const auto count = [&] {
        int found = 0;
        for (int i = 0; i < many; ++i) {
            found += access(name(i).c_str(), F_OK) == 0;
        }
        return found;
    };
    for (int i = 0; i < many; ++i) {
        std::ofstream(name(i)) << i;
    }
    {
        sealed_program killed({"--", "sleep", "4326"}, without_namespaces);
        EXPECT_TRUE(wait_until_without_loop([&] { return count() < many; }));
        kill(killed.pid(), SIGKILL);
    }
    EXPECT_TRUE(wait_until_without_loop([] { return commands_containing("sleep 4326").empty(); }));

    EXPECT_EQ(run_openly("exit 0").status, 0);

    EXPECT_EQ(count(), many);
    EXPECT_EQ(kept_text(), "kept");
    for (int i = 0; i < many; ++i) {
        unlink(name(i).c_str());
    }
}

TEST_F(open_run_of_root, Takes_nothing_from_a_directory_of_somebody_else) {
    const char* directory = "/dev/shm/.vask_test_0";
    const char* planted = "/dev/shm/.vask_test_0/vask_kept";
    mkdir(directory, 0755);
    std::ofstream(planted) << "planted";
    EXPECT_EQ(chown(directory, 65534, 65534), 0);

    const outcome result = run_shell("exit 0", {}, without_namespaces);

    EXPECT_EQ(result.status, 77);
    EXPECT_THAT(result.output, HasSubstr("/dev/shm/.vask_test_0 is in the way"));
    EXPECT_EQ(kept_text(), "kept");
    unlink(planted);
    rmdir(directory);
}

TEST_F(open_run, Leaves_the_directory_of_displays_as_it_is) {
    constexpr const char* displays = "/tmp/.X11-unix";
    ASSERT_EQ(chmod(displays, 0755), 0);

    EXPECT_EQ(run_openly("exit 0").status, 0);

    struct stat info;
    EXPECT_EQ(stat(displays, &info), 0);
    EXPECT_EQ(info.st_mode & 07777u, 0755u);
    chmod(displays, 01777);
}

TEST_F(open_run, Leaves_what_another_process_shares_meanwhile_alone) {
    sealed_program run({"--", "sh", "-c", "echo started; cat"}, without_namespaces);
    EXPECT_EQ(run.read_line(), "started");
    const char* name = "/dev/shm/of_a_stranger";
    const int object = open(name, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const int segment = shmget(IPC_PRIVATE, 1, 0600);
    void* const attached = shmat(segment, nullptr, 0);

    EXPECT_EQ(run.finish(), 0) << run.rest();

    EXPECT_EQ(access(name, F_OK), 0);
    EXPECT_EQ(shmctl(segment, IPC_RMID, nullptr), 0);
    shmdt(attached);
    close(object);
    unlink(name);
}

TEST_F(open_run_of_root, Says_that_its_program_cannot_be_started_and_stops_nobody) {
    unlink(kept);
    const outcome result =
        run_shell("exit 0", {"--timeout", "0.3"}, without_namespaces_and_with("--nproc=2"));
    EXPECT_EQ(result.status, 125);
    EXPECT_THAT(result.output, HasSubstr("sh cannot be started: Resource temporarily unavailable"));
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
    EXPECT_THAT(second.read_any_line(), HasSubstr("no world of its own"));
    EXPECT_FALSE(second.has_output_within(200));
    EXPECT_EQ(first.finish(), 0);
    EXPECT_EQ(second.read_line(), "started");
}
