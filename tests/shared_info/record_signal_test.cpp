// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Signals that come while the semaphore is held, and while it is waited for.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <memory>

#include "shared_info/shared_info_faults.h"
#include "support/forked_process.h"
#include "support/shared_objects.h"
#include "vask_object.h"
#include "vask_test/main_loop.h"
#include "vask_test/process_list.h"

using namespace vask_test;
using shared_info_faults::now;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int handled_signal = SIGTERM;

const shared_object* watched = nullptr;
int handler_calls = 0;
int sem_value_in_handler = -2;

void note_semaphore(int) {
    ++handler_calls;
    sem_value_in_handler = watched->sem_value();
}

/** Every signal that tells of no fault. */
sigset_t ordinary_signals() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int number : {SIGKILL, SIGSTOP, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
        sigdelset(&signals, number);
    }
    return signals;
}

std::vector<int> blocked_signals() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    std::vector<int> numbers;
    for (int number = 1; number <= SIGRTMAX; ++number) {
        if (sigismember(&mask, number) == 1) {
            numbers.push_back(number);
        }
    }
    return numbers;
}

class record_signal : public shared_info_test {
protected:
    record_signal() {
        watched = &record;
        handler_calls = 0;
        struct sigaction action = {};
        action.sa_handler = note_semaphore;
        sigaction(handled_signal, &action, &m_former);
    }
    ~record_signal() override { sigaction(handled_signal, &m_former, nullptr); }

    /** A signal comes just before the semaphore is given back. */
    static void expect_late_handler(const std::function<void()>& action) {
        handler_calls = 0;
        std::vector<int> blocked;
        now.before_post = [&blocked] {
            const int calls_before = handler_calls;
            raise(handled_signal);
            blocked = blocked_signals();
            EXPECT_EQ(handler_calls, calls_before);
        };
        action();
        now.before_post = nullptr;
        EXPECT_GE(handler_calls, 1);
        EXPECT_NE(sem_value_in_handler, 0);
        EXPECT_THAT(blocked, testing::IsSupersetOf({SIGTERM, SIGINT, SIGHUP, SIGALRM, SIGXFSZ,
                                                    SIGPROF, SIGABRT, SIGTSTP, SIGRTMAX}));
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
            EXPECT_THAT(blocked, testing::Not(testing::Contains(fault)));
        }
        EXPECT_THAT(blocked_signals(), IsEmpty());
    }

    static bool waits(const forked_process& process) {
        return wait_until_without_loop([&process] {
            return kernel_position(process.pid()).find("futex") != std::string::npos;
        });
    }

    /** From now on standard output is a pipe that is full. */
    static void fill_stdout() {
        int ends[2];
        if (pipe2(ends, O_NONBLOCK) != 0) {
            std::abort();
        }
        while (write(ends[1], "x", 1) == 1) {
        }
        fcntl(ends[1], F_SETFL, 0);
        dup2(ends[1], STDOUT_FILENO);
    }

    shared_info_faults::healed healed;
    own_shared_info info;

private:
    struct sigaction m_former;
};

}  // namespace

TEST_F(record_signal, Waits_until_the_record_is_created) {
    expect_late_handler([this] { info.map_shared_info(true); });
    EXPECT_EQ(record.int_at(0), 5);
}

TEST_F(record_signal, Waits_until_the_rotation_is_set) {
    info.map_shared_info(true);
    expect_late_handler([this] { info.set_monitor_rotation(VASK_MONITOR_ROTATION_1); });
}

TEST_F(record_signal, Waits_until_the_flag_is_set) {
    info.map_shared_info(true);
    expect_late_handler([this] { info.set_pseudo_portrait_flag(true); });
}

TEST_F(record_signal, Waits_until_a_detected_type_is_kept) {
    info.map_shared_info(true);
    expect_late_handler([this] { info.get_vask_cpu_type(false); });
    expect_late_handler([this] { info.get_vask_gpu_type(true); });
}

TEST_F(record_signal, Waits_until_the_record_is_destroyed) {
    info.map_shared_info(true);
    expect_late_handler([this] { info.unmap_shared_info(true); });
    EXPECT_FALSE(record.exists());
    EXPECT_FALSE(record.sem_exists());
}

TEST_F(record_signal, Waits_until_a_mapping_has_failed) {
    now.failing_call = "mmap";
    expect_late_handler([] { vask_object::get_monitor_rotation(); });
}

TEST_F(record_signal, Is_let_through_when_map_shm_hands_the_semaphore_over) {
    const shared_object thing("thing");
    watched = &thing;
    vask_shm_context* context = vask_shared_info::map_shm("thing", 5000, true);
    ASSERT_NE(context, nullptr);
    EXPECT_THAT(blocked_signals(), IsEmpty());
    vask_object::post_named_sem(context->get_sem());
    vask_shared_info::unmap_shm(context);
}

TEST_F(record_signal, Stays_blocked_for_who_has_blocked_it_before) {
    const sigset_t signals = ordinary_signals();
    sigset_t former;
    pthread_sigmask(SIG_BLOCK, &signals, &former);
    const std::vector<int> before = blocked_signals();
    info.set_monitor_rotation(VASK_MONITOR_ROTATION_1);
    EXPECT_EQ(blocked_signals(), before);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

TEST_F(record_signal, Ends_a_process_whose_failure_nobody_reads) {
    record.create_sem(1);
    forked_process teller([] {
        signal(handled_signal, SIG_DFL);
        fill_stdout();
        now.failing_call = "mmap";
        vask_object::get_monitor_rotation();
        return 0;
    });
    ASSERT_TRUE(wait_until_without_loop(
        [&teller] { return kernel_position(teller.pid()).find("pipe") != std::string::npos; }));
    EXPECT_EQ(record.sem_value(), 1);
    kill(teller.pid(), handled_signal);
    EXPECT_EQ(teller.wait_for_end(), -handled_signal);
}

TEST_F(record_signal, Ends_a_process_that_waits_for_the_semaphore) {
    info.map_shared_info(true);
    ASSERT_TRUE(info.lock_shared_info());
    for (const bool is_first_access : {true, false}) {
        const shared_value<std::atomic<bool>> is_mapped;
        forked_process waiter([&] {
            signal(handled_signal, SIG_DFL);
            own_shared_info own;
            if (!is_first_access) {
                own.m_shared_info_ctx = info.m_shared_info_ctx;
            }
            own.set_monitor_rotation(VASK_MONITOR_ROTATION_1);
            return 0;
        });
        ASSERT_TRUE(waits(waiter));
        kill(waiter.pid(), handled_signal);
        EXPECT_EQ(waiter.wait_for_end(), -handled_signal);
    }
    EXPECT_EQ(record.sem_value(), 0);
    info.unlock_shared_info();
}

TEST_F(record_signal, Is_handled_by_a_process_that_waits_for_the_semaphore_and_goes_on) {
    info.map_shared_info(true);
    ASSERT_TRUE(info.lock_shared_info());
    static const shared_value<std::atomic<bool>> is_handled;
    *is_handled = false;
    forked_process waiter([] {
        signal(handled_signal, [](int) { *is_handled = true; });
        own_shared_info own;
        return own.set_monitor_rotation(VASK_MONITOR_ROTATION_2) ? 0 : 1;
    });
    ASSERT_TRUE(waits(waiter));
    kill(waiter.pid(), handled_signal);
    EXPECT_TRUE(wait_until_without_loop([] { return is_handled->load(); }));
    EXPECT_TRUE(waiter.is_running());
    info.unlock_shared_info();
    EXPECT_EQ(waiter.wait_for_end(), 0);
    EXPECT_EQ(record.int_at(0), 2);
    EXPECT_EQ(record.sem_value(), 1);
}

TEST_F(record_signal, Of_the_limit_of_a_file_is_an_ordinary_failure) {
    record.create_sem(1);
    forked_process limited([] {
        const rlimit limit = {1000, 1000};
        setrlimit(RLIMIT_FSIZE, &limit);
        return vask_object::get_monitor_rotation() == VASK_MONITOR_ROTATION_ERROR ? 0 : 1;
    });
    EXPECT_EQ(limited.wait_for_end(), 0);
    EXPECT_FALSE(record.exists());
    EXPECT_EQ(record.sem_value(), 1);
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to call ftruncate: 27 @ map_shared_info")));
}

TEST_F(record_signal, Of_the_limit_of_a_file_is_an_ordinary_failure_of_the_semaphore) {
    forked_process limited([] {
        // What catches the log is a file, too.
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
        const rlimit limit = {0, 0};
        setrlimit(RLIMIT_FSIZE, &limit);
        return vask_object::create_named_sem("test_limited", 1, 1) == nullptr ? 0 : 1;
    });
    EXPECT_EQ(limited.wait_for_end(), 0);
    EXPECT_FALSE(std::filesystem::exists("/dev/shm/sem.test_limited"));
}
