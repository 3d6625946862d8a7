// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What processes see that follow each other under a semaphore, in the memory model of C++: a record
// that one of them has filled in, and a registry that they change one after the other.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model/memory_model.h"

using namespace vask_test;

namespace {

enum location { semaphore, pid, key, sequence, locations };

constexpr int given_back = 1;

const std::vector<int> nothing_written(locations, 0);

// sem_post() releases and sem_wait() acquires.
step give_back() {
    return {step::release_write, semaphore, given_back, "give back"};
}

step take() {
    return {step::acquire_read, semaphore, 0, "take"};
}

/** What the reads of the last threads get, in the executions in which the semaphore was taken. */
template <typename IsWrong>
bool is_ever_wrong(std::vector<steps> threads, const std::string& left_out, IsWrong is_wrong) {
    for (steps& thread : threads) {
        thread = without(thread, left_out);
    }
    int taken = 0;
    int wrong = 0;
    for_each_execution(threads, nothing_written, [&](const std::vector<int>& values) {
        const bool has_semaphore = values[0] == given_back;
        taken += has_semaphore;
        wrong += has_semaphore && is_wrong(values);
    });
    EXPECT_GT(taken, 0);
    return wrong > 0;
}

// The creator has the semaphore first, whoever opens it.
bool shows_a_record_that_is_not_filled_in(const std::string& left_out) {
    const steps creator = {{step::write, pid, 5}, {step::write, key, 6}, give_back()};
    const steps follower = {take(), {step::read, pid}, {step::read, key}};
    return is_ever_wrong({creator, follower}, left_out, [](const std::vector<int>& values) {
        return values[1] != 5 || values[2] != 6;
    });
}

const steps lookup = {{step::read, sequence},
                      {step::acquire_fence, 0, 0, "before the copy"},
                      {step::read, pid},
                      {step::read, key}};

// A writer that changes nothing of what another has registered publishes it all the same.
bool hides_what_an_earlier_writer_has_stored(const std::string& left_out) {
    const steps earlier = {{step::write, key, 3}, {step::write, pid, 13}, give_back()};
    const steps later = {take(),
                         {step::write, sequence, 1},
                         {step::release_fence, 0, 0, "even sequence"},
                         {step::write, sequence, 2}};
    return is_ever_wrong({earlier, later, lookup}, left_out, [](const std::vector<int>& values) {
        return values[1] == 2 && (values[2] != 13 || values[3] != 3);
    });
}

// A writer has died behind the key of an entry that held pid 5 and key 0. Who ends its change has
// looked at all that is there.
bool mixes_what_a_dead_writer_has_stored(const std::string& left_out) {
    const steps dead = {{step::release_fence},
                        {step::write, pid, -1},
                        {step::release_fence},
                        {step::write, key, 6}};
    const steps repair = {{step::read, pid},
                          {step::read, key},
                          {step::release_fence, 0, 0, "even sequence"},
                          {step::write, sequence, 2}};
    bool is_mixed = false;
    for_each_execution({dead, without(repair, left_out), without(lookup, left_out)}, {0, 5, 0, 1},
                       [&](const std::vector<int>& values) {
                           const bool has_seen_all = values[0] == -1 && values[1] == 6;
                           is_mixed = is_mixed || (has_seen_all && values[2] == 2 &&
                                                   values[3] == 5 && values[4] == 6);
                       });
    return is_mixed;
}

}  // namespace

TEST(lock_model, Shows_the_record_filled_in_to_who_has_the_semaphore) {
    EXPECT_FALSE(shows_a_record_that_is_not_filled_in(""));
}

TEST(lock_model, Shows_it_so_only_because_giving_back_releases_and_taking_acquires) {
    EXPECT_TRUE(shows_a_record_that_is_not_filled_in("give back"));
    EXPECT_TRUE(shows_a_record_that_is_not_filled_in("take"));
}

TEST(lock_model, Lets_a_later_writer_publish_what_an_earlier_one_has_stored) {
    EXPECT_FALSE(hides_what_an_earlier_writer_has_stored(""));
}

TEST(lock_model, Lets_it_do_so_only_with_each_step_that_orders) {
    for (const char* left_out : {"give back", "take", "even sequence", "before the copy"}) {
        EXPECT_TRUE(hides_what_an_earlier_writer_has_stored(left_out)) << left_out;
    }
}

TEST(lock_model, Lets_who_repairs_publish_what_a_dead_writer_has_stored) {
    EXPECT_FALSE(mixes_what_a_dead_writer_has_stored(""));
}

TEST(lock_model, Lets_him_do_so_only_with_each_fence) {
    for (const char* left_out : {"even sequence", "before the copy"}) {
        EXPECT_TRUE(mixes_what_a_dead_writer_has_stored(left_out)) << left_out;
    }
}
