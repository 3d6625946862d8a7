// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The registry's protocol before a checker that is not our own, with one entry and one change.

#include <gtest/gtest.h>

#include <ostream>

// What follows would have its allocations.
#include <relacy/relacy.hpp>
#undef new
#undef delete

namespace {

enum class fence { none, odd_sequence, pid_0, key, pid, even_sequence, before_copy, behind_copy };

constexpr int writer = 0;
constexpr int first_sequence = 2;
constexpr int first_pid = 11;
constexpr int first_key = 1;
constexpr int next_pid = 12;
constexpr int next_key = 2;

/** A writer and a reader, without one of the fences. */
template <fence left_out>
struct registration : rl::test_suite<registration<left_out>, 2> {
    rl::atomic<int> sequence;
    rl::atomic<int> pid;
    rl::atomic<int> key;

    void before() {
        sequence.store(first_sequence, rl::mo_relaxed, RL_INFO);
        pid.store(first_pid, rl::mo_relaxed, RL_INFO);
        key.store(first_key, rl::mo_relaxed, RL_INFO);
    }

    void thread(unsigned index) {
        if (index == writer) {
            change();
        } else {
            look_up();
        }
    }

    void change() {
        put(fence::odd_sequence, sequence, first_sequence + 1);
        put(fence::pid_0, pid, 0);
        put(fence::key, key, next_key);
        put(fence::pid, pid, next_pid);
        put(fence::even_sequence, sequence, first_sequence + 2);
    }

    void look_up() {
        const int before = sequence.load(rl::mo_relaxed, RL_INFO);
        acquire(fence::before_copy);
        const int found_pid = pid.load(rl::mo_relaxed, RL_INFO);
        const int found_key = key.load(rl::mo_relaxed, RL_INFO);
        acquire(fence::behind_copy);
        const int behind = sequence.load(rl::mo_relaxed, RL_INFO);
        if (before != behind || before % 2 != 0) {
            return;
        }
        const bool is_first = before == first_sequence;
        RL_ASSERT(found_pid == (is_first ? first_pid : next_pid));
        RL_ASSERT(found_key == (is_first ? first_key : next_key));
    }

    static void put(fence own, rl::atomic<int>& field, int value) {
        if (own != left_out) {
            rl::atomic_thread_fence(rl::mo_release, RL_INFO);
        }
        field.store(value, rl::mo_relaxed, RL_INFO);
    }

    static void acquire(fence own) {
        if (own != left_out) {
            rl::atomic_thread_fence(rl::mo_acquire, RL_INFO);
        }
    }
};

template <fence left_out>
bool has_hole() {
    std::ostream nowhere(nullptr);
    rl::test_params all;
    all.search_type = rl::sched_full;
    all.output_stream = &nowhere;
    all.progress_stream = &nowhere;
    return !rl::simulate<registration<left_out>>(all);
}

}  // namespace

TEST(registry_before_another_checker, Lets_no_lookup_take_a_pair_that_never_was) {
    EXPECT_FALSE(has_hole<fence::none>());
}

TEST(registry_before_another_checker, Lets_a_lookup_take_one_without_any_of_these_fences) {
    EXPECT_TRUE(has_hole<fence::pid_0>());
    EXPECT_TRUE(has_hole<fence::even_sequence>());
    EXPECT_TRUE(has_hole<fence::before_copy>());
    EXPECT_TRUE(has_hole<fence::behind_copy>());
}

// The key and the pid have theirs for a reader who takes what is not at rest.
TEST(registry_before_another_checker, Needs_the_others_for_something_else) {
    EXPECT_FALSE(has_hole<fence::odd_sequence>());
    EXPECT_FALSE(has_hole<fence::key>());
    EXPECT_FALSE(has_hole<fence::pid>());
}
