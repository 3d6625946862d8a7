// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The library lock with real processes and its real time-out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>

#include <chrono>
#include <memory>
#include <thread>

#include "support/library_lock_state.h"
#include "support/shown_clock.h"
#include "vask_test/process_list.h"
#include "vask_test/timeout_factor.h"

using namespace vask_test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using clock_type = std::chrono::steady_clock;

double seconds_since(clock_type::time_point start) {
    return std::chrono::duration<double>(clock_type::now() - start).count();
}

// Far above what is expected, for a machine that is busy with other tests.
double slack() {
    return 3 * timeout_factor();
}

// The clock has been set by so many seconds since it was read for a deadline.
void set_clock_by(time_t seconds) {
    show_clock([seconds](clockid_t clock, timespec* time) {
        const int result = read_system_clock(clock, time);
        if (clock == CLOCK_REALTIME) {
            time->tv_sec -= seconds;
        }
        return result;
    });
}

class library_lock_recovery : public testing::Test {
protected:
    ~library_lock_recovery() override { show_clock(nullptr); }

    shared_objects_removed cleanup;
    log_catcher log;
};

volatile sig_atomic_t interruptions = 0;

/** A signal that interrupts system calls, twenty times a second while it lives. */
class interrupting_timer {
public:
    interrupting_timer() {
        struct sigaction action = {};
        action.sa_handler = [](int) { interruptions = interruptions + 1; };
        sigaction(SIGALRM, &action, &m_before);
        const itimerval period = {{0, 50000}, {0, 50000}};
        setitimer(ITIMER_REAL, &period, nullptr);
    }
    ~interrupting_timer() {
        const itimerval never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
        sigaction(SIGALRM, &m_before, nullptr);
    }

private:
    struct sigaction m_before;
};

/** Counts those who hold the lock at one time. */
struct holders {
    std::atomic<int> now;
    std::atomic<int> most;
    std::atomic<int> all;

    void enter() {
        const int present = ++now;
        ++all;
        int before = most;
        while (before < present && !most.compare_exchange_weak(before, present)) {
        }
    }
    void leave() { --now; }
};

}  // namespace

TEST_F(library_lock_recovery, Spares_a_living_holder_when_the_clock_is_set_forward) {
    named_object holder("holder");
    ASSERT_TRUE(holder.shm_lock());
    const ino_t identity = library_lock::identity();
    forked_process waiter([] {
        set_clock_by(3600);
        named_object object("waiter");
        return object.shm_lock() ? 0 : 1;
    });
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_TRUE(waiter.is_running());
    holder.shm_unlock();
    EXPECT_EQ(waiter.wait_for_end(), 0);
    EXPECT_EQ(library_lock::identity(), identity);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(library_lock_recovery, Takes_no_longer_when_the_clock_is_set_back) {
    library_lock::leave_to_a_dead_holder();
    named_object object("object");
    set_clock_by(-3600);
    const clock_type::time_point start = clock_type::now();
    EXPECT_TRUE(object.shm_lock());
    EXPECT_GE(seconds_since(start), 4.9);
    EXPECT_LE(seconds_since(start), 5 + slack());
    EXPECT_THAT(log.lines(), ElementsAre(library_lock::forced("object")));
}

TEST_F(library_lock_recovery, Spares_a_living_holder_when_the_waiter_was_stopped_meanwhile) {
    named_object holder("holder");
    ASSERT_TRUE(holder.shm_lock());
    forked_process waiter([] {
        named_object object("waiter");
        return object.shm_lock() ? 0 : 1;
    });
    ASSERT_TRUE(wait_until_without_loop(
        [&waiter] { return kernel_position(waiter.pid()).find("futex") != std::string::npos; }));
    kill(waiter.pid(), SIGSTOP);
    std::this_thread::sleep_for(std::chrono::seconds(6));
    kill(waiter.pid(), SIGCONT);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_TRUE(waiter.is_running());
    holder.shm_unlock();
    EXPECT_EQ(waiter.wait_for_end(), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(library_lock_recovery, Takes_5_seconds_after_the_holder_was_killed) {
    library_lock::leave_to_a_dead_holder();
    ASSERT_EQ(library_lock::value(), 0);
    named_object object("object");
    const clock_type::time_point start = clock_type::now();
    EXPECT_TRUE(object.shm_lock());
    EXPECT_GE(seconds_since(start), 4.9);
    EXPECT_LE(seconds_since(start), 5 + slack());
    EXPECT_THAT(log.lines(), ElementsAre(library_lock::forced("object")));
}

TEST_F(library_lock_recovery, Takes_no_longer_when_signals_interrupt_the_wait) {
    library_lock::leave_to_a_dead_holder();
    named_object object("object");
    const interrupting_timer timer;
    const clock_type::time_point start = clock_type::now();
    EXPECT_TRUE(object.shm_lock());
    EXPECT_GE(seconds_since(start), 4.9);
    EXPECT_LE(seconds_since(start), 5 + slack());
    EXPECT_GE(interruptions, 10);
    EXPECT_THAT(log.lines(), ElementsAre(library_lock::forced("object")));
}

TEST_F(library_lock_recovery, Lets_one_in_at_a_time_when_many_break_the_lock) {
    library_lock::leave_to_a_dead_holder();
    const shared_value<holders> inside;
    const auto hold_once = [&inside] {
        named_object object("waiter");
        if (!object.shm_lock()) {
            return 1;
        }
        inside->enter();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        inside->leave();
        object.shm_unlock();
        return 0;
    };
    std::vector<std::unique_ptr<forked_process>> waiters;
    for (int i = 0; i < 8; ++i) {
        waiters.push_back(std::make_unique<forked_process>(hold_once));
        std::this_thread::sleep_for(std::chrono::milliseconds(i % 2 * 20));
    }
    for (const auto& waiter : waiters) {
        EXPECT_EQ(waiter->wait_for_end(), 0);
    }
    EXPECT_EQ(inside->all, 8);
    EXPECT_EQ(inside->most, 1);
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_THAT(log.lines(), Each(library_lock::forced("waiter")));
}

TEST_F(library_lock_recovery, Keeps_a_late_waiter_out_when_the_broken_lock_is_given_back) {
    const shared_value<std::atomic<bool>> first_holds;
    const shared_value<std::atomic<bool>> first_may_go;
    const shared_value<std::atomic<bool>> second_holds;
    named_object slow("slow");
    ASSERT_TRUE(slow.shm_lock());
    forked_process first([&] {
        named_object object("first");
        *first_holds = object.shm_lock();
        wait_until_without_loop([&] { return first_may_go->load(); });
        object.shm_unlock();
        return 0;
    });
    std::this_thread::sleep_for(std::chrono::seconds(2));
    forked_process second([&] {
        named_object object("second");
        *second_holds = object.shm_lock();
        object.shm_unlock();
        return 0;
    });
    ASSERT_TRUE(wait_until_without_loop([&] { return first_holds->load(); }));

    slow.shm_unlock();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_FALSE(*second_holds);

    *first_may_go = true;
    EXPECT_EQ(second.wait_for_end(), 0);
    EXPECT_TRUE(*second_holds);
    EXPECT_EQ(first.wait_for_end(), 0);
    EXPECT_EQ(library_lock::value(), 1);
}
