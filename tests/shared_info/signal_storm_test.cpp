// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Processes that are ended at random instants while they make, change and detect.

#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "support/forked_process.h"
#include "support/shared_objects.h"
#include "vask_object.h"

using namespace vask_test;

namespace {

constexpr int most_victims = 20000;
constexpr std::chrono::seconds longest_storm(15);
constexpr long longest_life_nsec = 300000;

class signal_storm : public shared_info_test {
protected:
    // What is left of a semaphore that was made in a process that was ended: glibc gives it its
    // name last.
    ~signal_storm() override {
        std::vector<std::filesystem::path> unfinished;
        for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
            if (entry.path().filename().string().rfind("sem.", 0) == 0) {
                unfinished.push_back(entry.path());
            }
        }
        for (const std::filesystem::path& path : unfinished) {
            std::filesystem::remove(path);
        }
    }

    static void live_until_ended() {
        own_shared_info own;
        for (int i = 0;; ++i) {
            own.set_monitor_rotation(VASK_MONITOR_ROTATION_1);
            own.set_pseudo_portrait_flag(true);
            if (i % 16 == 0) {
                own.get_vask_cpu_type(i % 32 == 0);
            }
            if (i % 4 == 0) {
                own.unmap_shared_info(false);
            }
        }
    }

    // The kernel sends the signal, so that the victim need not share the processor with who sends
    // it.
    static void end_after(long nsec) {
        sigevent event = {};
        event.sigev_notify = SIGEV_SIGNAL;
        event.sigev_signo = SIGTERM;
        timer_t timer;
        const itimerspec life = {{}, {0, nsec}};
        if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0 ||
            timer_settime(timer, 0, &life, nullptr) != 0) {
            std::abort();
        }
    }

    void end_one() {
        const long life_nsec = 1 + static_cast<long>(m_random() % longest_life_nsec);
        forked_process victim([life_nsec]() -> int {
            end_after(life_nsec);
            live_until_ended();
            return 0;
        });
        ASSERT_EQ(victim.wait_for_end(), -SIGTERM);
    }

private:
    std::minstd_rand m_random{20000};
};

}  // namespace

TEST_F(signal_storm, Leaves_the_semaphore_free) {
    const auto start = std::chrono::steady_clock::now();
    int i = 0;
    for (; i < most_victims && std::chrono::steady_clock::now() < start + longest_storm; ++i) {
        // Every other one makes the record first.
        if (i % 2 == 0 && record.exists()) {
            record.remove();
        }
        end_one();
        if (HasFatalFailure()) {
            return;
        }
        ASSERT_NE(record.sem_value(), 0) << "after " << i;
    }
    RecordProperty("victims", i);
    EXPECT_TRUE(vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_2));
}
