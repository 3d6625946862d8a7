// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/child_report.h"
#include "foundation/process_tracer.h"
#include "support/higher_nice_value.h"
#include "support/interpose.h"
#include "vask_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

/** What happens while a child is being started. */
struct start_of_child {
    std::function<void()> before;
    int error = 0;
    int count = 0;
} posix_spawn_call;

class descriptor {
public:
    explicit descriptor(int fd) : m_fd(fd) { EXPECT_GE(fd, 0); }
    ~descriptor() { close(m_fd); }

private:
    const int m_fd;
};

int inheritable() {
    return open("/dev/zero", O_RDONLY);
}

int close_on_exec() {
    return open("/dev/zero", O_RDONLY | O_CLOEXEC);
}

/** Makes the first descriptor behind the standard streams inheritable, whoever has it. */
class inheritable_first_descriptor {
public:
    inheritable_first_descriptor() {
        if (m_flags == -1) {
            dup2(STDERR_FILENO, number);
        } else {
            fcntl(number, F_SETFD, 0);
        }
    }
    ~inheritable_first_descriptor() {
        if (m_flags == -1) {
            close(number);
        } else {
            fcntl(number, F_SETFD, m_flags);
        }
    }

private:
    static constexpr int number = STDERR_FILENO + 1;
    const int m_flags = fcntl(number, F_GETFD);
};

/** All but those that nobody can change, and those that the C library keeps for itself. */
std::vector<int> all_signals() {
    std::vector<int> result;
    for (int signal = 1; signal <= 64; ++signal) {
        if (signal != SIGKILL && signal != SIGSTOP && signal != 32 && signal != 33) {
            result.push_back(signal);
        }
    }
    return result;
}

class blocked_signals {
public:
    explicit blocked_signals(const std::vector<int>& signals) {
        sigset_t set;
        sigemptyset(&set);
        for (int signal : signals) {
            sigaddset(&set, signal);
        }
        pthread_sigmask(SIG_BLOCK, &set, &m_before);
    }
    ~blocked_signals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before;
};

class blocked_signal : public blocked_signals {
public:
    explicit blocked_signal(int signal) : blocked_signals({signal}) {}
};

class handled_signals {
public:
    handled_signals(const std::vector<int>& signals, void (*handler)(int))
        : m_signals(signals), m_before(signals.size()) {
        struct sigaction action = {};
        action.sa_handler = handler;
        for (std::size_t i = 0; i < m_signals.size(); ++i) {
            sigaction(m_signals[i], &action, &m_before[i]);
        }
    }
    ~handled_signals() {
        for (std::size_t i = 0; i < m_signals.size(); ++i) {
            sigaction(m_signals[i], &m_before[i], nullptr);
        }
    }

private:
    const std::vector<int> m_signals;
    std::vector<struct sigaction> m_before;
};

class ignored_signal : public handled_signals {
public:
    explicit ignored_signal(int signal) : handled_signals({signal}, SIG_IGN) {}
};

void spawn_and_wait(const char* program, const char* directory) {
    const strlist argv = {program};
    int pid = -1;
    if (vask_object::spawn_async(&argv, nullptr, &pid, directory)) {
        // With SIGCHLD ignored, the wait fails as soon as the child has ended.
        waitpid(pid, nullptr, 0);
    }
}

std::string report(const char* directory = nullptr) {
    log_catcher log;
    spawn_and_wait(child_report_program, directory);
    return log.text();
}

/** The same of a child that GLib starts by itself. */
std::string report_of_glib(const char* directory = nullptr) {
    log_catcher log;
    char* argv[] = {const_cast<char*>(child_report_program), nullptr};
    char* envp[] = {nullptr};
    GPid pid = -1;
    if (g_spawn_async(directory, argv, envp, G_SPAWN_DO_NOT_REAP_CHILD, nullptr, nullptr, &pid,
                      nullptr)) {
        waitpid(pid, nullptr, 0);
    }
    return log.text();
}

/** A line of a report without the signals that differ on purpose: SIGTERM and SIGCHLD are never
 *  blocked, and those of the C library are its own affair. */
std::string without_special_signals(const std::string& line) {
    const std::string blocked = "status: SigBlk:\t";
    const std::string ignored = "status: SigIgn:\t";
    const auto bit = [](int signal) { return 1ULL << (signal - 1); };
    const auto without = [&](const std::string& heading, unsigned long long set) {
        const unsigned long long all = std::stoull(line.substr(heading.size()), nullptr, 16);
        return heading + std::to_string(all & ~(set | bit(32) | bit(33)));
    };
    if (line.compare(0, blocked.size(), blocked) == 0) {
        return without(blocked, bit(SIGTERM) | bit(SIGCHLD));
    }
    if (line.compare(0, ignored.size(), ignored) == 0) {
        return without(ignored, 0);
    }
    return line;
}

std::vector<std::string> comparable(const std::string& report) {
    std::vector<std::string> lines;
    std::istringstream stream(report);
    for (std::string line; std::getline(stream, line);) {
        if (line.compare(0, 7, "signal ") != 0) {
            lines.push_back(without_special_signals(line));
        }
    }
    return lines;
}

void expect_what_glib_gives(const char* directory = nullptr) {
    const std::vector<std::string> expected = comparable(report_of_glib(directory));
    ASSERT_GT(expected.size(), 15U);
    EXPECT_EQ(comparable(report(directory)), expected);
}

/** The exit status of a forked process that does this; changes of its own stay with it. */
int status_of_process(const std::function<void()>& action) {
    const pid_t pid = fork();
    if (pid == 0) {
        action();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    return status;
}

bool refuse_close_range() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_close_range, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {sizeof program / sizeof program[0], program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0 &&
           syscall(SYS_close_range, ~0U, ~0U, 0) == -1 && errno == ENOSYS;
}

/** How the kernel saw one program being started. */
new_processes road(const char* directory = nullptr) {
    new_processes made;
    EXPECT_TRUE(
        trace_new_processes([directory] { spawn_and_wait("/bin/true", directory); }, &made));
    return made;
}

constexpr new_processes without_copied_memory = {0, 1, 0};

class start_of_program : public testing::Test {
protected:
    void SetUp() override {
        new_processes made;
        if (!trace_new_processes([] {}, &made)) {
            GTEST_SKIP() << "needs the right to trace a child";
        }
    }
};

const auto only_standard_streams = ElementsAre("0 1 2");

}  // namespace

typedef int spawn_function(pid_t*, const char*, const posix_spawn_file_actions_t*,
                           const posix_spawnattr_t*, char* const*, char* const*);

extern "C" int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                           const posix_spawnattr_t* attributes, char* const* argv,
                           char* const* envp) {
    ++posix_spawn_call.count;
    if (posix_spawn_call.before) {
        posix_spawn_call.before();
    }
    if (posix_spawn_call.error != 0) {
        return posix_spawn_call.error;
    }
    return next_function<spawn_function>("posix_spawn")(pid, path, actions, attributes, argv, envp);
}

TEST(spawned_child, Has_no_descriptors_but_the_standard_streams) {
    EXPECT_THAT(reported(report(), "descriptors"), only_standard_streams);
}

TEST(spawned_child, Inherits_no_close_on_exec_descriptor) {
    const descriptor low(close_on_exec());
    const descriptor high(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 500));
    EXPECT_THAT(reported(report(), "descriptors"), only_standard_streams);
}

TEST(spawned_child, Inherits_no_inheritable_descriptor) {
    const descriptor low(inheritable());
    const descriptor high(fcntl(STDERR_FILENO, F_DUPFD, 500));
    EXPECT_THAT(reported(report(), "descriptors"), only_standard_streams);
}

TEST(spawned_child, Inherits_not_even_the_descriptor_next_to_the_standard_streams) {
    const inheritable_first_descriptor open_descriptor;
    EXPECT_THAT(reported(report(), "descriptors"), only_standard_streams);
}

TEST(spawned_child, Inherits_no_inheritable_descriptor_among_close_on_exec_ones) {
    const descriptor first(close_on_exec());
    const descriptor second(inheritable());
    const descriptor third(close_on_exec());
    EXPECT_THAT(reported(report(), "descriptors"), only_standard_streams);
}

TEST(spawned_child, Inherits_no_descriptor_that_another_thread_opens_meanwhile) {
    int opened = -1;
    posix_spawn_call = {};
    posix_spawn_call.before = [&opened] { std::thread([&] { opened = inheritable(); }).join(); };
    const std::string output = report();
    EXPECT_EQ(posix_spawn_call.count, 1);
    posix_spawn_call = {};
    const descriptor closed_at_the_end(opened);
    EXPECT_THAT(reported(output, "descriptors"), only_standard_streams);
}

TEST(spawned_child, Inherits_no_descriptor_of_threads_that_open_and_close_without_a_pause) {
    std::atomic<bool> ends{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (!ends) {
                close(inheritable());
            }
        });
    }
    for (int i = 0; i < 40; ++i) {
        EXPECT_THAT(reported(report(), "descriptors"), only_standard_streams) << i;
    }
    ends = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(spawned_child, Inherits_no_descriptor_where_the_kernel_refuses_to_close_a_range) {
    const descriptor low(inheritable());
    const descriptor high(fcntl(STDERR_FILENO, F_DUPFD, 500));
    log_catcher log;
    EXPECT_EQ(status_of_process([] {
                  ASSERT_TRUE(refuse_close_range());
                  posix_spawn_call = {};
                  spawn_and_wait(child_report_program, nullptr);
                  EXPECT_EQ(posix_spawn_call.count, 1);
              }),
              0);
    EXPECT_THAT(reported(log.text(), "descriptors"), only_standard_streams);
}

TEST(spawned_child, Inherits_no_descriptor_in_another_directory_either) {
    const descriptor first(close_on_exec());
    const descriptor second(inheritable());
    EXPECT_THAT(reported(report("/"), "descriptors"), only_standard_streams);
}

TEST(spawned_child, Reads_from_nothing) {
    EXPECT_THAT(reported(report(), "standard input"), ElementsAre("/dev/null"));
}

TEST(spawned_child, Reads_from_nothing_also_when_its_parent_has_closed_its_standard_input) {
    log_catcher log;
    EXPECT_EQ(status_of_process([] {
                  close(STDIN_FILENO);
                  spawn_and_wait(child_report_program, nullptr);
              }),
              0);
    EXPECT_THAT(reported(log.text(), "standard input"), ElementsAre("/dev/null"));
    EXPECT_THAT(reported(log.text(), "descriptors"), only_standard_streams);
}

TEST(spawned_child, Has_the_standard_error_closed_that_its_parent_has_closed) {
    log_catcher log;
    EXPECT_EQ(status_of_process([] {
                  close(STDERR_FILENO);
                  spawn_and_wait(child_report_program, nullptr);
              }),
              0);
    EXPECT_THAT(reported(log.text(), "descriptors"), ElementsAre("0 1"));
}

TEST(spawned_child, Starts_in_a_directory_that_its_parent_names_by_a_descriptor) {
    const int number = open("/proc", O_RDONLY | O_DIRECTORY);
    const descriptor directory(number);
    const std::string path = "/proc/self/fd/" + std::to_string(number);
    EXPECT_THAT(reported(report(path.c_str()), "directory"), ElementsAre("/proc"));
}

TEST(spawned_child, Is_as_one_of_glib) {
    expect_what_glib_gives();
}

TEST(spawned_child, Is_as_one_of_glib_in_another_directory) {
    expect_what_glib_gives("/proc");
}

TEST(spawned_child, Is_as_one_of_glib_whichever_signal_its_parent_ignores) {
    for (const int signal : all_signals()) {
        SCOPED_TRACE(signal);
        const ignored_signal ignored(signal);
        expect_what_glib_gives();
    }
}

TEST(spawned_child, Is_as_one_of_glib_when_its_parent_ignores_all_signals) {
    const handled_signals ignored(all_signals(), SIG_IGN);
    expect_what_glib_gives();
}

TEST(spawned_child, Is_as_one_of_glib_when_its_parent_blocks_all_signals) {
    const blocked_signals blocked(all_signals());
    expect_what_glib_gives();
}

TEST(spawned_child, Is_as_one_of_glib_when_its_parent_blocks_and_ignores_all_signals) {
    const blocked_signals blocked(all_signals());
    const handled_signals ignored(all_signals(), SIG_IGN);
    expect_what_glib_gives();
}

TEST(spawned_child, Is_as_one_of_glib_when_its_parent_handles_all_signals) {
    const handled_signals handled(all_signals(), [](int) {});
    expect_what_glib_gives();
}

TEST(spawned_child, Is_as_one_of_glib_when_its_parent_has_changed_what_is_inherited) {
    EXPECT_EQ(status_of_process([] {
                  umask(027);
                  const int nice_value = higher_nice_value();
                  ASSERT_EQ(setpriority(PRIO_PROCESS, 0, nice_value), 0);
                  std::ofstream("/proc/self/oom_score_adj") << 321;
                  expect_what_glib_gives();
                  EXPECT_THAT(reported(report(), "nice value"),
                              ElementsAre(std::to_string(nice_value)));
                  EXPECT_THAT(reported(report(), "out-of-memory score"), ElementsAre("321"));
              }),
              0);
}

TEST(spawned_child, Keeps_the_terminal_and_the_process_group_of_its_parent) {
    EXPECT_EQ(status_of_process([] {
                  ASSERT_GT(setsid(), 0);
                  const int master = posix_openpt(O_RDWR | O_NOCTTY);
                  ASSERT_EQ(grantpt(master), 0);
                  ASSERT_EQ(unlockpt(master), 0);
                  // The first terminal that the leader of a session opens becomes the session's.
                  ASSERT_GE(open(ptsname(master), O_RDWR), 0);
                  expect_what_glib_gives();
              }),
              0);
}

TEST(spawned_child, Is_the_same_when_glib_has_to_start_it) {
    const blocked_signal term(SIGTERM);
    const ignored_signal pipe(SIGPIPE);
    const descriptor open_descriptor(inheritable());
    const std::string usual = report();
    posix_spawn_call = {};
    posix_spawn_call.error = EPERM;
    const std::string by_glib = report();
    EXPECT_EQ(posix_spawn_call.count, 1);
    posix_spawn_call = {};
    EXPECT_EQ(comparable(by_glib), comparable(usual));
    EXPECT_EQ(reported_signal(by_glib, SIGTERM), "not blocked, default");
    EXPECT_THAT(reported(by_glib, "descriptors"), only_standard_streams);
}

TEST(spawned_child, Has_SIGPIPE_at_its_default_whatever_else_is_open) {
    const ignored_signal pipe(SIGPIPE);
    EXPECT_EQ(reported_signal(report(), SIGPIPE), "not blocked, default");
    const descriptor open_descriptor(inheritable());
    EXPECT_EQ(reported_signal(report(), SIGPIPE), "not blocked, default");
}

TEST(spawned_child, Receives_the_signals_that_its_parent_blocks) {
    const blocked_signal term(SIGTERM);
    const blocked_signal child(SIGCHLD);
    const std::string output = report();
    EXPECT_EQ(reported_signal(output, SIGTERM), "not blocked, default");
    EXPECT_EQ(reported_signal(output, SIGCHLD), "not blocked, default");
}

TEST(spawned_child, Receives_the_one_signal_that_its_parent_blocks) {
    for (const int signal : {SIGTERM, SIGCHLD}) {
        const blocked_signal blocked(signal);
        const std::string output = report();
        EXPECT_EQ(reported_signal(output, SIGTERM), "not blocked, default");
        EXPECT_EQ(reported_signal(output, SIGCHLD), "not blocked, default");
    }
}

TEST(spawned_child, Receives_the_signals_that_its_parent_ignores) {
    const ignored_signal term(SIGTERM);
    const ignored_signal child(SIGCHLD);
    const std::string output = report();
    EXPECT_EQ(reported_signal(output, SIGTERM), "not blocked, default");
    EXPECT_EQ(reported_signal(output, SIGCHLD), "not blocked, default");
}

TEST(spawned_child, Keeps_other_signals_blocked_as_its_parent_has_them) {
    const blocked_signal other(SIGUSR1);
    EXPECT_EQ(reported_signal(report(), SIGUSR1), "blocked, default");
    const blocked_signal term(SIGTERM);
    EXPECT_EQ(reported_signal(report(), SIGUSR1), "blocked, default");
}

TEST(spawned_child, Can_be_ended_by_a_parent_that_blocks_and_ignores_the_signal) {
    const blocked_signal blocked(SIGTERM);
    const ignored_signal ignored(SIGTERM);
    const strlist argv = {"/bin/sleep", "1000"};
    int pid = -1;
    ASSERT_TRUE(vask_object::spawn_async(&argv, nullptr, &pid, nullptr));
    EXPECT_TRUE(vask_object::kill_process(pid));
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
}

TEST(spawn_async, Changes_no_signal_of_its_caller) {
    const blocked_signal blocked(SIGTERM);
    const ignored_signal ignored(SIGTERM);
    spawn_and_wait("/bin/true", nullptr);
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGTERM), 1);
    EXPECT_EQ(sigismember(&mask, SIGCHLD), 0);
    struct sigaction action;
    sigaction(SIGTERM, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
}

TEST_F(start_of_program, Makes_one_process_without_a_copy_of_the_memory) {
    EXPECT_EQ(road(), without_copied_memory);
}

TEST_F(start_of_program, Copies_no_memory_beside_an_inheritable_descriptor) {
    const descriptor open_descriptor(inheritable());
    EXPECT_EQ(road(), without_copied_memory);
}

TEST_F(start_of_program, Copies_no_memory_while_the_caller_ignores_or_blocks_signals) {
    const ignored_signal ignored(SIGTERM);
    const blocked_signals blocked({SIGTERM, SIGCHLD, SIGUSR1});
    EXPECT_EQ(road(), without_copied_memory);
}

TEST_F(start_of_program, Copies_no_memory_for_another_directory) {
    EXPECT_EQ(road("/"), without_copied_memory);
}
