// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/signal_block.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <initializer_list>

#include "foundation/unique_fd.h"
#include "foundation/withheld_signal.h"

namespace {

volatile sig_atomic_t arrived;

void note_arrival(int) {
    ++arrived;
}

/** Counts a signal's arrivals, and puts back what was there. */
class counted_signal {
public:
    explicit counted_signal(int signal) : m_signal(signal) {
        arrived = 0;
        struct sigaction action = {};
        action.sa_handler = note_arrival;
        sigaction(signal, &action, &m_before);
    }
    ~counted_signal() { sigaction(m_signal, &m_before, nullptr); }
    counted_signal(const counted_signal&) = delete;
    counted_signal& operator=(const counted_signal&) = delete;

private:
    const int m_signal;
    struct sigaction m_before;
};

bool is_blocked(int signal) {
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, nullptr, &now);
    return sigismember(&now, signal) == 1;
}

void set_blocked(int signal, bool blocked) {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &one, nullptr);
}

/** Fails as a write does beyond the greatest size that this process may give a file. */
void write_beyond_limit() {
    const unique_fd file(memfd_create("limited", MFD_CLOEXEC));
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit none = before;
    none.rlim_cur = 0;
    setrlimit(RLIMIT_FSIZE, &none);
    errno = 0;
    EXPECT_EQ(pwrite(file.get(), "x", 1, 0), -1);
    EXPECT_EQ(errno, EFBIG);
    setrlimit(RLIMIT_FSIZE, &before);
}

}  // namespace

TEST(signal_block, Lets_a_signal_arrive_only_when_it_ends) {
    for (const int signal : {SIGTERM, SIGALRM, SIGCHLD, SIGRTMIN, SIGRTMAX}) {
        SCOPED_TRACE(signal);
        const counted_signal counted(signal);
        {
            signal_block signals;
            signals.block();
            raise(signal);
            EXPECT_EQ(arrived, 0);
        }
        EXPECT_EQ(arrived, 1);
    }
}

TEST(signal_block, Leaves_the_handlers_of_faults_in_place) {
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
        signal_block signals;
        signals.block();
        EXPECT_FALSE(is_blocked(signal)) << signal;
    }
}

TEST(signal_block, Ends_with_the_mask_that_it_began_with) {
    set_blocked(SIGUSR1, true);
    {
        signal_block outer;
        outer.block();
        signal_block inner;
        inner.block();
        inner.unblock();
        EXPECT_TRUE(is_blocked(SIGTERM));
    }
    EXPECT_TRUE(is_blocked(SIGUSR1));
    EXPECT_FALSE(is_blocked(SIGTERM));
    set_blocked(SIGUSR1, false);
}

TEST(withheld_signal, Makes_a_file_that_is_too_large_a_failure_and_no_signal) {
    const counted_signal counted(SIGXFSZ);
    {
        const withheld_signal limit(SIGXFSZ);
        write_beyond_limit();
    }
    EXPECT_EQ(arrived, 0);
}

TEST(withheld_signal, Keeps_one_that_waited_before) {
    const counted_signal counted(SIGXFSZ);
    set_blocked(SIGXFSZ, true);
    write_beyond_limit();
    {
        const withheld_signal limit(SIGXFSZ);
        write_beyond_limit();
    }
    set_blocked(SIGXFSZ, false);
    EXPECT_EQ(arrived, 1);
}

TEST(withheld_signal, Ends_with_the_mask_that_it_began_with) {
    for (const bool blocked : {false, true}) {
        set_blocked(SIGXFSZ, blocked);
        { const withheld_signal limit(SIGXFSZ); }
        EXPECT_EQ(is_blocked(SIGXFSZ), blocked);
    }
    set_blocked(SIGXFSZ, false);
}
