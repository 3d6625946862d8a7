// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Many processes that register at once, and some that are killed meanwhile.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <random>
#include <thread>

#include "foundation/lock_patience.h"
#include "foundation/registry_member.h"
#include "support/interpose.h"
#include "support/sanitizers.h"
#include "vask_test/timeout_factor.h"

using namespace vask_test;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr int crowd_size = 200;

using clock_type = std::chrono::steady_clock;

#ifdef VASK_TEST_HAS_ADDRESS_SANITIZER
constexpr double slowness = 3;
#else
constexpr double slowness = 1;
#endif

// When the whole crowd is slow, nobody must take a live holder for a dead one.
int extra_patience_sec() {
    return static_cast<int>(5 * (slowness * timeout_factor() - 1));
}

double seconds_since(clock_type::time_point start) {
    return std::chrono::duration<double>(clock_type::now() - start).count();
}

/** What a process of the crowd tells about itself. */
struct report {
    std::atomic<bool> has_started;
    std::atomic<bool> holds_lock;
    std::atomic<bool> has_ended;
    std::atomic<bool> was_registered;
    std::atomic<bool> has_found_itself;
    std::atomic<double> seconds;
};

report* own_report = nullptr;

struct crowd_state {
    std::atomic<bool> may_start;
    std::array<report, crowd_size> reports;
};

class registry_crowd : public registry_test {
protected:
    void start() {
        for (int i = 0; i < crowd_size; ++i) {
            processes.push_back(std::make_unique<forked_process>([this, i] {
                own_report = &state->reports[static_cast<size_t>(i)];
                named_object own("program");
                own_report->has_started = true;
                while (!state->may_start) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
                const clock_type::time_point begin = clock_type::now();
                own_report->was_registered = own.store_pid_to_shm(key_of(i));
                own_report->seconds = seconds_since(begin);
                const registry_map found = own.find_stored_pid_from_shm("program");
                const auto entry = found.find(key_of(i));
                own_report->has_found_itself = entry != found.end() && entry->second == getpid();
                own_report->has_ended = true;
                wait_for_a_signal();
                return 0;
            }));
        }
        ASSERT_TRUE(wait_until_without_loop([this] {
            return std::all_of(state->reports.begin(), state->reports.end(),
                               [](const report& r) { return r.has_started.load(); });
        }));
        state->may_start = true;
    }

    static unsigned long key_of(int i) { return static_cast<unsigned long>(i) + 1; }

    report& report_of(int i) const { return state->reports[static_cast<size_t>(i)]; }

    void kill_one(int i) {
        processes[static_cast<size_t>(i)]->kill_now();
        killed.push_back(i);
        // The killed process cannot give the lock back any more.
        dead_holders += report_of(i).holds_lock ? 1 : 0;
    }

    bool is_killed(int i) const {
        return std::find(killed.begin(), killed.end(), i) != killed.end();
    }

    bool all_survivors_have_ended() const {
        for (int i = 0; i < crowd_size; ++i) {
            if (!is_killed(i) && !report_of(i).has_ended) {
                return false;
            }
        }
        return true;
    }

    void expect_survivors_and_nobody_else() const {
        const registry_map found = find();
        EXPECT_THAT(found, SizeIs(crowd_size - killed.size()));
        for (int i = 0; i < crowd_size; ++i) {
            if (is_killed(i)) {
                EXPECT_EQ(found.count(key_of(i)), 0U) << i;
                continue;
            }
            EXPECT_TRUE(report_of(i).was_registered) << i;
            EXPECT_TRUE(report_of(i).has_found_itself) << i;
            const auto entry = found.find(key_of(i));
            ASSERT_NE(entry, found.end()) << i;
            EXPECT_EQ(entry->second, processes[static_cast<size_t>(i)]->pid());
        }
    }

    double longest_wait() const {
        double longest = 0;
        for (int i = 0; i < crowd_size; ++i) {
            if (!is_killed(i)) {
                longest = std::max(longest, report_of(i).seconds.load());
            }
        }
        return longest;
    }

    // A dead holder costs everybody the patience once; the rest is for the holds of the others, on
    // a machine with other work.
    double longest_acceptable_wait() const {
        return (5 + extra_patience_sec()) * (dead_holders + 1) + 4 * slowness * timeout_factor();
    }

    const shared_value<crowd_state> state;
    std::vector<std::unique_ptr<forked_process>> processes;
    std::vector<int> killed;
    int dead_holders = 0;
};

}  // namespace

namespace {

int note_hold(int result) {
    if (own_report && result == 0) {
        own_report->holds_lock = true;
    }
    return result;
}

}  // namespace

// A process that dies between the call and the note of either function looks like a dead holder, so
// one holder too many may be counted.
extern "C" int sem_clockwait(sem_t* sem, clockid_t clock, const timespec* deadline) {
    const timespec late = scaled_deadline(clock, *deadline, slowness * timeout_factor());
    return note_hold(next_time_function<int(sem_t*, clockid_t, const timespec*)>("sem_clockwait")(
        sem, clock, &late));
}

extern "C" int sem_trywait(sem_t* sem) noexcept {
    return note_hold(next_function<int(sem_t*)>("sem_trywait")(sem));
}

extern "C" int sem_post(sem_t* sem) noexcept {
    const int result = next_function<int(sem_t*)>("sem_post")(sem);
    if (own_report) {
        own_report->holds_lock = false;
    }
    return result;
}

TEST_F(registry_crowd, Is_found_as_a_whole_when_it_registers_at_once) {
    start();
    ASSERT_TRUE(wait_until_without_loop([this] { return all_survivors_have_ended(); }, 60000));
    expect_survivors_and_nobody_else();
    EXPECT_LE(longest_wait(), longest_acceptable_wait());
    EXPECT_EQ(registry_object("program").count(), crowd_size);
    EXPECT_EQ(registry_object("program").sequence(), 2U * crowd_size);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_crowd, Is_found_but_for_those_that_are_killed_meanwhile) {
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::vector<int> victims(crowd_size);
    for (int i = 0; i < crowd_size; ++i) {
        victims[static_cast<size_t>(i)] = i;
    }
    std::shuffle(victims.begin(), victims.end(), random);
    victims.resize(crowd_size / 10);

    start();
    std::uniform_int_distribution<int> pause_usec(0, 2000);
    for (const int victim : victims) {
        std::this_thread::sleep_for(std::chrono::microseconds(pause_usec(random)));
        kill_one(victim);
    }
    ASSERT_TRUE(wait_until_without_loop([this] { return all_survivors_have_ended(); }, 150000));
    expect_survivors_and_nobody_else();
    EXPECT_LE(longest_wait(), longest_acceptable_wait());

    EXPECT_TRUE(object.store_pid_to_shm(1000));
    EXPECT_EQ(registry_object("program").sequence() % 2, 0U);
    EXPECT_EQ(library_lock::value(), 1);
    EXPECT_EQ(registry_object("program").count(), crowd_size - static_cast<int>(killed.size()) + 1);
}

TEST_F(registry_crowd, Is_found_when_holders_of_the_lock_are_killed) {
    start();
    // A process that is seen with the lock may have given it back before the signal arrives.
    for (int attempts = 0; dead_holders < 2 && attempts < 20; ++attempts) {
        int victim = -1;
        wait_until_without_loop(
            [&] {
                for (int i = 0; i < crowd_size && victim < 0; ++i) {
                    if (!is_killed(i) && report_of(i).holds_lock) {
                        victim = i;
                    }
                }
                return victim >= 0 || all_survivors_have_ended();
            },
            20000);
        if (victim < 0) {
            break;
        }
        kill_one(victim);
    }
    ASSERT_TRUE(wait_until_without_loop([this] { return all_survivors_have_ended(); }, 150000));
    expect_survivors_and_nobody_else();
    EXPECT_LE(longest_wait(), longest_acceptable_wait());
}
