// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_AFTERMATH_H
#define VASK_TEST_AFTERMATH_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "death/fault_steps.h"

namespace vask_test {

/** Something that has taken its time, and how long it may take by what the library promises. */
struct timed_call {
    std::string what;
    double seconds;
    double promised;
};

/** Of which kind, as its parent is told. */
struct child_ends {
    int exits = 0;
    int crashes = 0;
};

/** What others find when a fault has struck a process. What an operation has nothing to do with
 *  stays empty. */
struct aftermath {
    fault wanted = fault::none;
    /** By its own word. */
    bool has_succeeded = false;
    /** Whatever its step was, it must have. */
    bool must_succeed = false;
    bool victim_lives = false;
    /** An operation that has not returned although nothing stops its process. */
    bool victim_hangs = false;
    /** It has ended although nothing has ended it. */
    bool victim_has_died = false;
    bool next_of_victim_works = true;
    /** The victim stood at the two instructions in which a getter may be killed. */
    bool was_reading_record = false;

    std::vector<timed_call> calls;

    // The registry: the processes that live and have been told that they are registered.
    std::map<unsigned long, int> registered;
    // The keys under which the victim may be found, whatever it has been told.
    std::set<unsigned long> keys_of_victim;
    std::map<unsigned long, int> found;
    std::optional<bool> next_registration;
    /** What the operation itself has left, before another one could repair it. */
    std::map<unsigned long, int> registered_at_once, found_at_once;
    std::optional<std::uint32_t> sequence_at_once;
    std::optional<int> lock_at_once;
    /** The lock had been left by a dead holder, in the middle of a change, before the victim came.
     */
    bool was_abandoned = false;
    /** The victim was robbed between its look at the lock and its store, which it then made. */
    bool may_overtake = false;
    std::optional<std::uint32_t> sequence;
    std::optional<std::size_t> registry_size;
    std::int32_t registry_count = 0;
    /** When all have done what they wanted. */
    std::optional<int> library_lock;

    // The record.
    std::optional<std::size_t> record_size;
    std::optional<int> rotation;
    std::vector<int> possible_rotations;
    /** Nobody who lives holds the semaphore, and it is taken. */
    bool record_is_stranded = false;

    // Parent and child.
    std::optional<bool> next_child_is_served;
    child_ends ends, expected_ends;
    /** An end of the victim that nobody has ordered, in words. */
    std::string unordered_end;
    /** The victim is off the bus: it has less than without a fault, but nothing more. */
    bool is_cut_off = false;

    // What the victim has at its end, and what it has without a fault. Empty if it is gone.
    std::string left_behind;
    std::string left_without_fault;
    std::vector<std::string> zombies;
};

/** A store that was made after the lock was lost has hidden an entry, or shown an unused one. The
 * one known flaw of the registry. */
bool is_overtaken(const aftermath& after);

/** The invariants of the registry, the library lock, the record, a bridge and a child: those that
 *  do not hold, in words. */
std::vector<std::string> broken_invariants(const aftermath& after);

/** What has taken longer than is promised, in words. */
std::vector<std::string> late_calls(const aftermath& after);

}  // namespace vask_test

#endif
