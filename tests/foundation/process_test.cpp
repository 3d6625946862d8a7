// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>
#include <thread>

#include "foundation/paused_child.h"
#include "support/source_line.h"
#include "vask_object.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

int kills = 0;

testing::Matcher<const log_line&> failed_to_kill(int error) {
    return logged(
        "ERR", "vask",
        from_line_of("vask_object_spawn", "Failed to call kill: " + std::to_string(error)));
}

/** A child that leads a process group of its own. */
class group_leader : public paused_child {
public:
    group_leader() { setpgid(pid(), pid()); }
};

}  // namespace

extern "C" int kill(pid_t pid, int signal) noexcept {
    ++kills;
    return static_cast<int>(syscall(SYS_kill, pid, signal));
}

TEST(kill_process, Ends_a_process_by_SIGTERM) {
    paused_child child;
    log_catcher log;
    EXPECT_TRUE(vask_object::kill_process(child.pid()));
    const int status = child.wait_status();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
    EXPECT_EQ(log.text(), "");
}

TEST(kill_process, Ends_a_group_when_it_is_told_so) {
    group_leader child;
    EXPECT_TRUE(vask_object::kill_process(-child.pid()));
    const int status = child.wait_status();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
}

TEST(kill_process, Ends_the_group_of_its_caller_when_it_is_told_0) {
    const pid_t caller = fork();
    if (caller == 0) {
        setpgid(0, 0);
        vask_object::kill_process(0);
        _exit(0);
    }
    int status = 0;
    waitpid(caller, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
}

TEST(kill_process, Fails_for_a_process_that_does_not_exist) {
    log_catcher log;
    EXPECT_FALSE(vask_object::kill_process(pid_of_nobody));
    EXPECT_THAT(log.lines(), ElementsAre(failed_to_kill(ESRCH)));
}

TEST(kill_process, Fails_for_a_process_of_another_user) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs the right to become another user";
    }
    const pid_t parent = getpid();
    log_catcher log;
    const pid_t other = fork();
    if (other == 0) {
        if (setuid(65534) != 0) {
            _exit(2);
        }
        _exit(vask_object::kill_process(parent) ? 1 : 0);
    }
    int status = -1;
    waitpid(other, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_THAT(log.lines(), ElementsAre(failed_to_kill(EPERM)));
}

TEST(is_process_alive, Is_true_for_a_running_process) {
    const paused_child child;
    EXPECT_TRUE(vask_object::is_process_alive(child.pid()));
    EXPECT_TRUE(vask_object::is_process_alive(getpid()));
}

TEST(is_process_alive, Disturbs_nobody) {
    const paused_child child;
    EXPECT_TRUE(vask_object::is_process_alive(child.pid()));
    EXPECT_EQ(waitpid(child.pid(), nullptr, WNOHANG), 0);
}

TEST(is_process_alive, Is_true_for_a_zombie_and_false_when_it_is_reaped) {
    paused_child child;
    child.turn_into_zombie();
    EXPECT_TRUE(vask_object::is_process_alive(child.pid()));
    child.end();
    EXPECT_FALSE(vask_object::is_process_alive(child.pid()));
}

TEST(is_process_alive, Is_false_for_a_process_that_does_not_exist) {
    log_catcher log;
    EXPECT_FALSE(vask_object::is_process_alive(pid_of_nobody));
    EXPECT_EQ(log.text(), "");
}

TEST(is_process_alive, Is_false_for_0_and_negative_numbers_without_asking_the_system) {
    EXPECT_FALSE(vask_object::is_process_alive(0));
    EXPECT_FALSE(vask_object::is_process_alive(-1));
    EXPECT_FALSE(vask_object::is_process_alive(-getpgrp()));
    EXPECT_FALSE(vask_object::is_process_alive(INT_MIN));
    EXPECT_EQ(kills, 0);
    EXPECT_TRUE(vask_object::is_process_alive(getpid()));
    EXPECT_EQ(kills, 1);
}

TEST(is_process_alive, Is_false_for_a_process_of_another_user) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs the right to become another user";
    }
    const pid_t parent = getpid();
    const pid_t other = fork();
    if (other == 0) {
        if (setuid(65534) != 0) {
            _exit(2);
        }
        _exit(vask_object::is_process_alive(parent) ? 1 : 0);
    }
    int status = -1;
    waitpid(other, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(get_process_id, Returns_what_it_is_given) {
    for (const int id : {0, 1, -1, 42, INT_MAX, INT_MIN}) {
        EXPECT_EQ(vask_object::get_process_id(id), id);
    }
}

TEST(gettid, Is_the_id_that_the_kernel_gives_the_thread) {
    EXPECT_EQ(vask_object::gettid(), static_cast<int>(syscall(SYS_gettid)));
    EXPECT_EQ(vask_object::gettid(), getpid());
}

TEST(gettid, Differs_from_thread_to_thread) {
    int of_thread = 0;
    int of_kernel = 0;
    std::thread([&of_thread, &of_kernel] {
        of_thread = vask_object::gettid();
        of_kernel = static_cast<int>(syscall(SYS_gettid));
    }).join();
    EXPECT_EQ(of_thread, of_kernel);
    EXPECT_NE(of_thread, vask_object::gettid());
}
