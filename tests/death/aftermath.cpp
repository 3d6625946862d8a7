// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "death/aftermath.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "vask_test/timeout_factor.h"

namespace vask_test {

namespace {

// What a loaded machine may take for an operation that waits for nobody.
constexpr double slack_sec = 2;

bool is_taken_in_time(const timed_call& call) {
    return call.seconds <= call.promised + slack_sec * timeout_factor();
}

bool has_room_for_count(const aftermath& after) {
    constexpr std::size_t header = 8, entry = 16;
    if (!after.registry_size) {
        return true;
    }
    return after.registry_count >= 0 &&
           header + static_cast<std::size_t>(after.registry_count) * entry <= *after.registry_size;
}

using process_map = std::map<unsigned long, int>;

// What should be found and is not, and the other way round.
void add_flaws(const process_map& registered, const process_map& all_found,
               const std::set<unsigned long>& possible, const char* when,
               std::vector<std::string>& flaws) {
    for (const auto& [key, pid] : registered) {
        const auto found = all_found.find(key);
        if (found == all_found.end() || found->second != pid) {
            flaws.push_back("the living process registered under " + std::to_string(key) +
                            " is found" + when);
        }
    }
    for (const auto& [key, pid] : all_found) {
        if (registered.count(key) + possible.count(key) == 0) {
            flaws.push_back("nobody is found who has not registered: key " + std::to_string(key) +
                            when);
        }
    }
}

std::vector<std::string> flaws_of_lookup(const aftermath& after) {
    std::vector<std::string> flaws;
    add_flaws(after.registered, after.found, after.keys_of_victim, "", flaws);
    add_flaws(after.registered_at_once, after.found_at_once, after.keys_of_victim, " at once",
              flaws);
    return flaws;
}

// Who lives must leave the lock free and the sequence even. What was abandoned before may stay so
// if the operation has failed.
void demand_order(const aftermath& after, std::vector<std::string>& broken) {
    if (!after.victim_lives || (after.was_abandoned && !after.has_succeeded)) {
        return;
    }
    if (after.lock_at_once == 0) {
        broken.push_back("nobody alive leaves the library lock taken");
    }
    if (after.sequence_at_once.value_or(0) % 2 != 0) {
        broken.push_back("nobody alive leaves the sequence odd");
    }
}

bool is_equal(const child_ends& a, const child_ends& b) {
    return a.exits == b.exits && a.crashes == b.crashes;
}

std::string to_text(const child_ends& ends) {
    return std::to_string(ends.exits) + " exits, " + std::to_string(ends.crashes) + " crashes";
}

std::multiset<std::string> lines_of(const std::string& text) {
    std::multiset<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.insert(line);
    }
    return lines;
}

bool keeps_what_it_should(const aftermath& after) {
    if (!after.is_cut_off) {
        return after.left_behind == after.left_without_fault;
    }
    const auto normal = lines_of(after.left_without_fault), own = lines_of(after.left_behind);
    return std::includes(normal.begin(), normal.end(), own.begin(), own.end());
}

// SIGKILL, or any end within a getter's two instructions.
bool may_strand_record(const aftermath& after) {
    return after.wanted == fault::sigkill ||
           (after.wanted == fault::sigterm && after.was_reading_record);
}

}  // namespace

bool is_overtaken(const aftermath& after) {
    return after.may_overtake && !flaws_of_lookup(after).empty();
}

std::vector<std::string> broken_invariants(const aftermath& after) {
    std::vector<std::string> broken;
    const auto demand = [&broken](bool holds, const std::string& what) {
        if (!holds) {
            broken.push_back(what);
        }
    };

    demand(!after.victim_hangs, "the operation returns");
    demand(!after.victim_has_died, "the process goes on");
    demand(after.has_succeeded || !after.must_succeed, "what a signal interrupts goes on");
    // The overtaking store may have given the victim's key to another process.
    demand(after.next_of_victim_works || is_overtaken(after),
           "the next one of the same process works");
    demand_order(after, broken);
    if (!after.may_overtake) {
        for (const std::string& flaw : flaws_of_lookup(after)) {
            demand(false, flaw);
        }
    }
    demand(after.next_registration.value_or(true), "the next registration succeeds");
    demand(after.sequence.value_or(0) % 2 == 0, "the sequence is even");
    demand(has_room_for_count(after), "the registry has room for its entries");
    demand(after.library_lock.value_or(1) == 1, "nobody dead holds the library lock");

    demand(after.record_size.value_or(2064) == 2064, "the record is whole or absent");
    demand(
        !after.rotation || std::count(after.possible_rotations.begin(),
                                      after.possible_rotations.end(), *after.rotation) != 0,
        "the record holds what was stored: it has " + std::to_string(after.rotation.value_or(0)));
    demand(!after.record_is_stranded || may_strand_record(after),
           "nobody dead or done holds the record's semaphore");

    demand(after.next_child_is_served.value_or(true), "the next child is met and answers");
    demand(is_equal(after.ends, after.expected_ends),
           "every end of a child is reported once, as what it was: " +
               to_text(after.expected_ends) + "; but there were " + to_text(after.ends));

    demand(after.unordered_end.empty(), "the child ends as it was told: it " + after.unordered_end);

    demand(after.left_behind.empty() || keeps_what_it_should(after),
           "the victim keeps what it keeps without a fault:\n" + after.left_without_fault +
               "but has:\n" + after.left_behind);
    for (const std::string& zombie : after.zombies) {
        demand(false, "no zombie is left: " + zombie);
    }
    return broken;
}

std::vector<std::string> late_calls(const aftermath& after) {
    std::vector<std::string> late;
    for (const timed_call& call : after.calls) {
        if (!is_taken_in_time(call)) {
            char times[80];
            snprintf(times, sizeof times, " within %.1f s: it took %.1f", call.promised,
                     call.seconds);
            late.push_back(call.what + times);
        }
    }
    return late;
}

}  // namespace vask_test
