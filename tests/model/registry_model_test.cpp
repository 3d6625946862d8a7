// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The protocol of the process registry in the memory model of C++: every execution of two changes
// of a record of two entries beside one lookup, and what becomes of it without each of its fences.
// A fence of the writer has the name of the store that it stands before.

#include "model/registry_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

using namespace vask_test;
using testing::UnorderedElementsAre;

namespace {

using entries = std::vector<registered>;

/** A record at rest and two changes of it, one after the other. */
struct scenario {
    entries before;
    entries between;
    entries after;
};

// What a registration may leave of some entries: any of them may have ended, the process's own go,
// and it comes last unless it is refused.
std::set<entries> results_of_change(const entries& found, int new_key) {
    std::set<entries> results;
    for (unsigned living = 0; living < 1U << found.size(); ++living) {
        for (const int pid : {11, 12, 13}) {
            entries kept;
            for (std::size_t i = 0; i < found.size(); ++i) {
                if ((living & 1U << i) != 0 && found[i].first != pid) {
                    kept.push_back(found[i]);
                }
            }
            results.insert(kept);
            if (kept.size() < modelled_entries) {
                kept.emplace_back(pid, new_key);
                results.insert(kept);
            }
        }
    }
    return results;
}

const std::vector<scenario>& all_scenarios() {
    static const std::vector<scenario> result = [] {
        std::vector<scenario> made;
        for (const entries& before : {entries{}, entries{{11, 1}}, entries{{11, 1}, {12, 2}}}) {
            for (const entries& between : results_of_change(before, 3)) {
                for (const entries& after : results_of_change(between, 4)) {
                    made.push_back({before, between, after});
                }
            }
        }
        return made;
    }();
    return result;
}

modelled_record record_after(int changes, const entries& registered_before) {
    modelled_writer writer{modelled_record()};
    for (int i = 0; i < changes; ++i) {
        writer.change(registered_before);
    }
    return writer.record();
}

/** A writer's steps, and the record whenever it is at rest. */
struct written {
    explicit written(const modelled_record& before)
        : initial(before), writer(before), at_rest{before} {}

    void change(const entries& next) {
        writer.change(next);
        at_rest.push_back(writer.record());
    }

    // Whether the record was ever so, at that sequence.
    bool has_been(const modelled_record& shown) const {
        return std::any_of(at_rest.begin(), at_rest.end(), [&shown](const modelled_record& was) {
            return was.sequence == shown.sequence && was.count == shown.count &&
                   std::equal(was.entries.begin(), was.entries.begin() + was.count,
                              shown.entries.begin());
        });
    }

    // The pairs that an entry of the record has ever been given.
    std::set<registered> pairs_of(int index) const {
        std::set<registered> result;
        for (const modelled_record& record : at_rest) {
            result.insert(record.entries[index]);
        }
        return result;
    }

    modelled_record initial;
    modelled_writer writer;
    std::vector<modelled_record> at_rest;
};

written write_all(const scenario& history) {
    written result(record_after(2, history.before));
    result.change(history.between);
    result.change(history.after);
    return result;
}

/** What was found in all executions of all scenarios. */
struct findings {
    long executions = 0;
    long taken = 0;
    long wrong = 0;
};

void look_up(const written& made, const std::string& left_out, findings& result) {
    for_each_execution(
        {without(made.writer.thread(), left_out), without(modelled_reading(), left_out)},
        made.initial.values(), [&](const std::vector<int>& values) {
            const modelled_copy copy(values);
            ++result.executions;
            result.taken += copy.is_stable;
            result.wrong += copy.is_stable && !made.has_been(copy.record);
        });
}

// Wrong is a copy that is taken and is not the record as it was at that sequence.
findings look_up_undisturbed(const std::string& left_out) {
    findings result;
    for (const scenario& history : all_scenarios()) {
        look_up(write_all(history), left_out, result);
        if (result.wrong > 0) {
            break;
        }
    }
    return result;
}

// A writer dies after each step of its change. The next one makes the sequence 1 and then 2, the
// one after it 3 and then 4.
findings look_up_after_a_death(int changes_before, int changes_after) {
    findings result;
    for (const scenario& history : all_scenarios()) {
        const modelled_record before = record_after(changes_before, history.before);
        modelled_writer whole(before);
        whole.change(history.between);
        for (std::size_t steps_done = 1; steps_done < whole.thread().size(); ++steps_done) {
            written made(before);
            made.writer.change_in_part(history.between, steps_done);
            for (int i = 0; i < changes_after; ++i) {
                made.change(history.after);
            }
            look_up(made, "", result);
            if (result.wrong > 0) {
                return result;
            }
        }
    }
    return result;
}

bool are_all_the_same_pair(const std::vector<int>& values) {
    for (std::size_t i = 2; i < values.size(); ++i) {
        if (values[i] != values[i - 2]) {
            return false;
        }
    }
    return true;
}

void compare_copies_of_entry(const written& made, int index, int copies,
                             const std::string& left_out, findings& result) {
    const std::set<registered> stored = made.pairs_of(index);
    for_each_execution({without(made.writer.thread(), left_out),
                        without(modelled_copies_of_entry(index, copies), left_out)},
                       made.initial.values(), [&](const std::vector<int>& values) {
                           const bool is_taken = values[0] > 0 && are_all_the_same_pair(values);
                           ++result.executions;
                           result.taken += is_taken;
                           result.wrong += is_taken && stored.count({values[0], values[1]}) == 0;
                       });
}

// Wrong is an entry that is the same in all copies and was never stored as a pair.
findings compare_copies(int copies, const std::string& left_out) {
    findings result;
    for (const scenario& history : all_scenarios()) {
        const written made = write_all(history);
        for (int index = 0; index < modelled_entries && result.wrong == 0; ++index) {
            compare_copies_of_entry(made, index, copies, left_out, result);
        }
    }
    return result;
}

void add_fences_of(const steps& thread, std::set<std::string>& fences) {
    for (const step& one : thread) {
        if (!one.site.empty()) {
            fences.insert(one.site);
        }
    }
}

template <typename Check>
std::set<std::string> fences_that_are_missed(Check check) {
    std::set<std::string> fences;
    for (const scenario& history : all_scenarios()) {
        add_fences_of(write_all(history).writer.thread(), fences);
    }
    add_fences_of(modelled_reading(), fences);
    add_fences_of(modelled_copies_of_entry(0, copies_of_a_disturbed_lookup), fences);

    std::set<std::string> missed;
    for (const std::string& fence : fences) {
        if (check(fence).wrong > 0) {
            missed.insert(fence);
        }
    }
    return missed;
}

}  // namespace

TEST(registry_model, Lets_no_lookup_take_a_record_that_never_was) {
    const findings found = look_up_undisturbed("");
    EXPECT_GT(found.executions, 100000);
    EXPECT_GT(found.taken, 1000);
    EXPECT_EQ(found.wrong, 0);
}

// The one before the odd sequence orders nothing that another does not, nor those before the entry
// that is only given room.
TEST(registry_model, Lets_a_lookup_take_one_without_any_of_these_fences) {
    EXPECT_THAT(fences_that_are_missed(look_up_undisturbed),
                UnorderedElementsAre("pid 0", "count", "even sequence", "before the copy",
                                     "behind the copy"));
}

TEST(registry_model, Lets_no_disturbed_lookup_take_a_pair_that_never_was) {
    const findings found = compare_copies(copies_of_a_disturbed_lookup, "");
    EXPECT_GT(found.executions, 10000);
    EXPECT_GT(found.taken, 1000);
    EXPECT_EQ(found.wrong, 0);
}

// The one before the second copy comes right behind the one of the first copy.
TEST(registry_model, Lets_a_disturbed_lookup_take_one_without_any_of_these_fences) {
    EXPECT_THAT(fences_that_are_missed([](const std::string& fence) {
                    return compare_copies(copies_of_a_disturbed_lookup, fence);
                }),
                UnorderedElementsAre("key", "pid", "before the third copy"));
}

// Two processes take turns in an entry. One copy has the first one's number and the second one's
// key; the next one the first one's number again and, read before it, the key from between.
TEST(registry_model, Lets_a_disturbed_lookup_that_copies_twice_take_a_pair_that_never_was) {
    EXPECT_GT(compare_copies(2, "").wrong, 0);
}

TEST(registry_model, Lets_no_lookup_take_a_record_that_never_was_one_change_after_a_death) {
    const findings found = look_up_after_a_death(2, 1);
    EXPECT_GT(found.taken, 1000);
    EXPECT_EQ(found.wrong, 0);
}

// A writer that begins again from 1 has waited for 5 seconds, and so has the lookup, between its
// two looks.
TEST(registry_model, Lets_a_lookup_take_one_when_its_sequence_comes_back_after_a_death) {
    EXPECT_GT(look_up_after_a_death(1, 1).wrong, 0);
    EXPECT_GT(look_up_after_a_death(2, 2).wrong, 0);
}
