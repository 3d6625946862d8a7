// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A signal whose handler forks comes where a message on syslog takes its turn, and where it ends
// it.

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "support/forked_process.h"
#include "support/interpose.h"
#include "support/log_socket.h"
#include "vask_object.h"

using namespace vask_test;

namespace {

enum class place { nowhere, behind_lock, before_unlock };

// Of this thread. A handler that runs elsewhere is not meant.
thread_local place where = place::nowhere;

volatile sig_atomic_t children = 0;

void raise_once_at(place here) {
    if (where == here) {
        where = place::nowhere;
        raise(SIGUSR1);
    }
}

void fork_one(int) {
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(0);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    children = children + (status == 0 ? 1 : 0);
}

/** Whether a message gets out although a handler forks there. */
bool logs_with_fork_at(place there) {
    forked_process process([there] {
        alarm(20);
        signal(SIGUSR1, fork_one);
        where = there;
        vask_object::vask_p("name", VASK_P_ERR, "hello");
        return children == 1 ? 0 : 1;
    });
    return process.wait_for_end() == 0;
}

using forking_handler = syslog_route;

}  // namespace

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static auto* const next = next_function<int(pthread_mutex_t*)>("pthread_mutex_lock");
    const int error = next(mutex);
    raise_once_at(place::behind_lock);
    return error;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    static auto* const next = next_function<int(pthread_mutex_t*)>("pthread_mutex_unlock");
    raise_once_at(place::before_unlock);
    return next(mutex);
}

}  // extern "C"

TEST_F(forking_handler, May_come_as_a_message_has_its_turn_on_syslog) {
    const log_socket daemon;
    EXPECT_TRUE(logs_with_fork_at(place::behind_lock));
    EXPECT_EQ(daemon.datagrams().size(), 1U);
}

TEST_F(forking_handler, May_come_as_a_message_ends_its_turn_on_syslog) {
    const log_socket daemon;
    EXPECT_TRUE(logs_with_fork_at(place::before_unlock));
    EXPECT_EQ(daemon.datagrams().size(), 1U);
}
