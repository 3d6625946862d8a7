#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "foundation/child_report.h"
#include "foundation/process_tracer.h"
#include "support/interpose.h"
#include "support/log_catcher.h"
#include "vask_object.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

bool proc_is_missing = false;

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
        if (m_flags == -1)
            dup2(STDERR_FILENO, number);
        else
            fcntl(number, F_SETFD, 0);
    }
    ~inheritable_first_descriptor() {
        if (m_flags == -1)
            close(number);
        else
            fcntl(number, F_SETFD, m_flags);
    }

private:
    static constexpr int number = STDERR_FILENO + 1;
    const int m_flags = fcntl(number, F_GETFD);
};

class blocked_signal {
public:
    explicit blocked_signal(int signal) {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, signal);
        pthread_sigmask(SIG_BLOCK, &set, &m_before);
    }
    ~blocked_signal() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before;
};

class ignored_signal {
public:
    explicit ignored_signal(int signal) : m_signal(signal) {
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        sigaction(signal, &ignore, &m_before);
    }
    ~ignored_signal() { sigaction(m_signal, &m_before, nullptr); }

private:
    const int m_signal;
    struct sigaction m_before;
};

void spawn_and_wait(const char* program, const char* directory) {
    const strlist argv = {program};
    int pid = -1;
    if (vask_object::spawn_async(&argv, nullptr, &pid, directory))
        // With SIGCHLD ignored, the wait fails as soon as the child has ended.
        waitpid(pid, nullptr, 0);
}

std::string report(const char* directory = nullptr) {
    log_catcher log;
    spawn_and_wait(child_report_program, directory);
    return log.text();
}

/** How the kernel saw one program being started. */
new_processes road(const char* directory = nullptr) {
    new_processes made;
    EXPECT_TRUE(
        trace_new_processes([directory] { spawn_and_wait("/bin/true", directory); }, &made));
    return made;
}

constexpr new_processes fast_road = {0, 1, 0};
constexpr new_processes slow_road = {1, 0, 0};

class spawn_road : public testing::Test {
protected:
    void SetUp() override {
        new_processes made;
        if (!trace_new_processes([] {}, &made))
            GTEST_SKIP() << "needs the right to trace a child";
    }
};

const auto only_standard_streams = ElementsAre("0 1 2");

}  // namespace

extern "C" DIR* opendir(const char* path) {
    if (proc_is_missing && strncmp(path, "/proc/", 6) == 0) {
        errno = ENOENT;
        return nullptr;
    }
    return next_function<DIR*(const char*)>("opendir")(path);
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

TEST(spawned_child, Inherits_no_descriptor_when_they_cannot_be_listed) {
    const descriptor open_descriptor(inheritable());
    proc_is_missing = true;
    const std::string output = report();
    proc_is_missing = false;
    EXPECT_THAT(reported(output, "descriptors"), only_standard_streams);
}

TEST(spawned_child, Inherits_no_descriptor_in_another_directory_either) {
    const descriptor first(close_on_exec());
    const descriptor second(inheritable());
    EXPECT_THAT(reported(report("/"), "descriptors"), only_standard_streams);
}

TEST(spawned_child, Reads_from_nothing_on_either_road) {
    EXPECT_THAT(reported(report(), "standard input"), ElementsAre("/dev/null"));
    const descriptor open_descriptor(inheritable());
    EXPECT_THAT(reported(report(), "standard input"), ElementsAre("/dev/null"));
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

TEST(spawned_child, Receives_the_signals_that_its_parent_ignores_on_either_road) {
    const ignored_signal term(SIGTERM);
    const ignored_signal child(SIGCHLD);
    const std::string on_fast_road = report();
    const descriptor open_descriptor(inheritable());
    const std::string on_slow_road = report();
    for (const std::string& output : {on_fast_road, on_slow_road}) {
        EXPECT_EQ(reported_signal(output, SIGTERM), "not blocked, default");
        EXPECT_EQ(reported_signal(output, SIGCHLD), "not blocked, default");
    }
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

TEST_F(spawn_road, Makes_one_process_without_a_copy_of_the_memory) {
    EXPECT_EQ(road(), fast_road);
}

TEST_F(spawn_road, Is_fast_while_every_descriptor_is_close_on_exec) {
    const descriptor first(close_on_exec());
    const descriptor second(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 500));
    EXPECT_EQ(road(), fast_road);
}

TEST_F(spawn_road, Is_fast_while_the_caller_ignores_signals_or_blocks_others) {
    const ignored_signal ignored(SIGTERM);
    const blocked_signal blocked(SIGUSR1);
    EXPECT_EQ(road(), fast_road);
}

TEST_F(spawn_road, Is_slow_with_an_inheritable_descriptor) {
    const descriptor first(close_on_exec());
    const descriptor second(inheritable());
    EXPECT_EQ(road(), slow_road);
}

TEST_F(spawn_road, Is_slow_when_the_descriptors_cannot_be_listed) {
    proc_is_missing = true;
    const new_processes made = road();
    proc_is_missing = false;
    EXPECT_EQ(made, slow_road);
}

TEST_F(spawn_road, Is_slow_when_a_signal_must_be_unblocked) {
    for (const int signal : {SIGTERM, SIGCHLD}) {
        const blocked_signal blocked(signal);
        EXPECT_EQ(road(), slow_road) << signal;
    }
}

TEST_F(spawn_road, Is_slow_when_the_directory_must_be_changed) {
    EXPECT_EQ(road("/"), slow_road);
}
