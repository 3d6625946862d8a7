// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "support/counted_memory.h"
#include "vask_error.h"
#include "vask_object.h"

using testing::ElementsAre;

namespace {

/** Counts its copies, so that what a chain deletes can be told. */
class counted_error : public vask_abstract_error {
public:
    explicit counted_error(const std::string& text = "") {
        set_message(text);
        ++alive;
    }
    counted_error(const counted_error& source) : vask_abstract_error(source) { ++alive; }
    counted_error& operator=(const counted_error&) = default;
    ~counted_error() override { --alive; }
    counted_error* clone() const override { return new counted_error(*this); }

    static int alive;
};

int counted_error::alive = 0;

vask_error error_of(const std::string& message, vask_error_code_t code = VASK_ERR_NONE) {
    vask_error error;
    error.set_message(message);
    error.set_code(code);
    return error;
}

vask_error chain_of(const std::vector<std::string>& messages) {
    vask_error head = error_of(messages.front());
    if (messages.size() > 1) {
        const vask_error rest = chain_of({messages.begin() + 1, messages.end()});
        head.set_next(&rest);
    }
    return head;
}

std::vector<std::string> messages_of(const vask_abstract_error& head) {
    std::vector<std::string> result;
    for (const vask_abstract_error* error = &head; error != nullptr; error = error->get_next()) {
        result.push_back(error->get_message());
    }
    return result;
}

const std::string message_from_the_heap(100, 'm');

counted_error long_chain() {
    counted_error head(message_from_the_heap);
    for (int i = 0; i < 2; ++i) {
        const counted_error rest = head;
        head.set_next(&rest);
    }
    return head;
}

/** Takes the memory away at each place in turn, until the action gets what it needs. */
template <typename Action, typename Check>
void without_memory_at_any_place(Action action, Check check_failure) {
    for (int place = 1;; ++place) {
        const int alive = counted_error::alive;
        vask_test::allocation_that_fails = place;
        try {
            action();
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(counted_error::alive, alive) << "at allocation " << place;
            check_failure();
            continue;
        }
        vask_test::allocation_that_fails = 0;
        ASSERT_GT(place, 3);
        return;
    }
}

}  // namespace

TEST(error, Is_none_at_first) {
    const vask_error error;
    EXPECT_EQ(error.get_code(), VASK_ERR_NONE);
    EXPECT_EQ(error.get_message(), "");
    EXPECT_EQ(error.get_next(), nullptr);
}

TEST(error, Keeps_message_and_code) {
    vask_error error;
    error.set_message("Invalid URI: 'x'.");
    error.set_code(VASK_ERR_INVALID_URI);
    EXPECT_EQ(error.get_message(), "Invalid URI: 'x'.");
    EXPECT_EQ(error.get_code(), VASK_ERR_INVALID_URI);
    error.set_message("");
    error.set_code(VASK_ERR_NONE);
    EXPECT_EQ(error.get_message(), "");
    EXPECT_EQ(error.get_code(), VASK_ERR_NONE);
}

TEST(error, Takes_codes_of_the_application) {
    vask_error error;
    error.set_code(static_cast<vask_error_code_t>(70000));
    EXPECT_EQ(error.get_code(), static_cast<vask_error_code_t>(70000));
    error.set_code(static_cast<vask_error_code_t>(-5));
    EXPECT_EQ(vask_error(error).get_code(), static_cast<vask_error_code_t>(-5));
}

TEST(error, Has_codes_with_the_published_numbers) {
    EXPECT_EQ(VASK_ERR_NONE, 0);
    EXPECT_EQ(VASK_ERR_INVALID_URI, 101);
    EXPECT_EQ(VASK_ERR_NOT_SPAWNED, 102);
    EXPECT_EQ(VASK_ERR_NO_CHILD_PROXY, 103);
    EXPECT_EQ(sizeof(vask_error_code_t), 4U);
}

TEST(error, Is_no_base_object) {
    EXPECT_FALSE((std::is_base_of<vask_object, vask_error>::value));
    EXPECT_TRUE((std::is_base_of<vask_abstract_error, vask_error>::value));
    EXPECT_TRUE(std::is_abstract<vask_abstract_error>::value);
}

TEST(error, Adds_no_fields_to_its_base) {
    EXPECT_EQ(sizeof(vask_error), sizeof(vask_abstract_error));
}

TEST(error, Has_its_fields_in_the_published_order) {
    struct reached : vask_error {
        using vask_abstract_error::code;
        using vask_abstract_error::dump_text;
        using vask_abstract_error::message;
        using vask_abstract_error::next;
    } error;
    const void* const fields[] = {&error, &error.next, &error.code, &error.message,
                                  &error.dump_text};
    for (size_t i = 1; i < sizeof fields / sizeof fields[0]; ++i) {
        EXPECT_LT(fields[i - 1], fields[i]) << i;
    }
}

TEST(error, Has_clone_behind_the_destructor_in_its_table) {
    // A pointer to a virtual member holds the offset in the table, plus one where the processor's
    // functions never begin at an odd address. A destructor takes two entries.
#if defined(__arm__) || defined(__aarch64__)
    constexpr ptrdiff_t mark = 0;
#else
    constexpr ptrdiff_t mark = 1;
#endif
    vask_abstract_error* (vask_abstract_error::*member)() const = &vask_abstract_error::clone;
    ptrdiff_t representation;
    memcpy(&representation, &member, sizeof representation);
    EXPECT_EQ(representation, static_cast<ptrdiff_t>(mark + 2 * sizeof(void*)));
}

TEST(error_copy, Has_new_nodes_with_equal_codes_and_messages) {
    vask_error third = error_of("third", VASK_ERR_NO_CHILD_PROXY);
    vask_error second = error_of("second", VASK_ERR_NOT_SPAWNED);
    vask_error first = error_of("first", VASK_ERR_INVALID_URI);
    second.set_next(&third);
    first.set_next(&second);

    const vask_error copy(first);

    EXPECT_THAT(messages_of(copy), ElementsAre("first", "second", "third"));
    EXPECT_EQ(copy.get_code(), VASK_ERR_INVALID_URI);
    const auto* copied_second = dynamic_cast<const vask_error*>(copy.get_next());
    ASSERT_NE(copied_second, nullptr);
    EXPECT_EQ(copied_second->get_code(), VASK_ERR_NOT_SPAWNED);
    EXPECT_NE(copied_second, first.get_next());
    const auto* copied_third = dynamic_cast<const vask_error*>(copied_second->get_next());
    ASSERT_NE(copied_third, nullptr);
    EXPECT_EQ(copied_third->get_code(), VASK_ERR_NO_CHILD_PROXY);
    EXPECT_NE(copied_third, first.get_next()->get_next());
    EXPECT_EQ(copied_third->get_next(), nullptr);
}

TEST(error_copy, Leaves_the_original_whole_when_it_is_deleted) {
    const vask_error original = chain_of({"a", "b", "c"});
    delete new vask_error(original);
    EXPECT_THAT(messages_of(original), ElementsAre("a", "b", "c"));
}

TEST(error_copy, Does_not_take_the_collected_text_along) {
    vask_error original = error_of("a");
    original.dump_errors(0);
    vask_error copy(original);
    EXPECT_EQ(copy.dump_errors(0), "a");
}

TEST(error_copy, Is_also_made_by_clone) {
    const vask_error original = chain_of({"a", "b"});
    const vask_abstract_error& base = original;
    const std::unique_ptr<vask_abstract_error> copy(base.clone());
    EXPECT_NE(dynamic_cast<vask_error*>(copy.get()), nullptr);
    EXPECT_THAT(messages_of(*copy), ElementsAre("a", "b"));
    EXPECT_NE(copy->get_next(), original.get_next());
}

TEST(error_copy, Leaks_nothing_without_memory) {
    const counted_error head = long_chain();
    without_memory_at_any_place([&] { counted_error copy(head); }, [] {});
}

TEST(error_assignment, Replaces_code_message_and_chain) {
    vask_error target = chain_of({"x", "y", "z"});
    vask_error source = chain_of({"a", "b"});
    source.set_code(VASK_ERR_NOT_SPAWNED);
    vask_error& result = (target = source);
    EXPECT_EQ(&result, &target);
    EXPECT_EQ(target.get_code(), VASK_ERR_NOT_SPAWNED);
    EXPECT_THAT(messages_of(target), ElementsAre("a", "b"));
    EXPECT_THAT(messages_of(source), ElementsAre("a", "b"));
    EXPECT_NE(target.get_next(), source.get_next());
}

TEST(error_assignment, Forgets_the_collected_text) {
    vask_error target = error_of("x");
    target.dump_errors(0);
    target = error_of("a");
    EXPECT_EQ(target.dump_errors(0), "a");
}

TEST(error_assignment, Of_an_error_to_itself_changes_nothing) {
    vask_error error = chain_of({"a", "b"});
    error.set_code(VASK_ERR_INVALID_URI);
    error.dump_errors(0);
    const vask_error& same = error;
    error = same;
    EXPECT_EQ(error.get_code(), VASK_ERR_INVALID_URI);
    EXPECT_THAT(messages_of(error), ElementsAre("a", "b"));
    EXPECT_EQ(error.dump_errors(0), "a\n ba\n b");
}

TEST(error_assignment, Takes_a_member_of_its_own_chain) {
    vask_error error = chain_of({"a", "b", "c"});
    error = *static_cast<vask_error*>(error.get_next());
    EXPECT_THAT(messages_of(error), ElementsAre("b", "c"));
}

TEST(error_assignment, Deletes_the_chain_that_it_replaces) {
    {
        vask_error error;
        const counted_error cause("cause");
        error.set_next(&cause);
        EXPECT_EQ(counted_error::alive, 2);
        error = vask_error();
        EXPECT_EQ(counted_error::alive, 1);
    }
    EXPECT_EQ(counted_error::alive, 0);
}

TEST(error_assignment, Leaks_nothing_and_changes_nothing_without_memory) {
    const counted_error source = long_chain();
    counted_error target("target");
    without_memory_at_any_place([&] { target = source; },
                                [&] { EXPECT_THAT(messages_of(target), ElementsAre("target")); });
    EXPECT_EQ(messages_of(target), messages_of(source));
}

TEST(error_chain, Leaks_nothing_and_changes_nothing_without_memory) {
    const counted_error rest = long_chain();
    counted_error head("head");
    without_memory_at_any_place([&] { head.set_next(&rest); },
                                [&] { EXPECT_EQ(head.get_next(), nullptr); });
    EXPECT_EQ(messages_of(head).size(), 1 + messages_of(rest).size());
}

TEST(error_chain, Holds_a_copy_of_what_is_chained) {
    vask_error head = error_of("head");
    {
        vask_error cause = error_of("cause", VASK_ERR_NOT_SPAWNED);
        head.set_next(&cause);
        EXPECT_NE(head.get_next(), &cause);
        cause.set_message("changed");
    }
    EXPECT_THAT(messages_of(head), ElementsAre("head", "cause"));
    EXPECT_EQ(static_cast<vask_error*>(head.get_next())->get_code(), VASK_ERR_NOT_SPAWNED);
}

TEST(error_chain, Takes_along_what_hangs_behind_the_argument) {
    vask_error head = error_of("head");
    const vask_error cause = chain_of({"a", "b"});
    head.set_next(&cause);
    EXPECT_THAT(messages_of(head), ElementsAre("head", "a", "b"));
    EXPECT_THAT(messages_of(cause), ElementsAre("a", "b"));
}

TEST(error_chain, Deletes_the_first_copy_when_a_second_replaces_it) {
    vask_error head;
    const counted_error first("first");
    const counted_error second("second");
    head.set_next(&first);
    head.set_next(&second);
    EXPECT_EQ(counted_error::alive, 3);
    EXPECT_EQ(head.get_next()->get_message(), "second");
    EXPECT_EQ(first.get_message(), "first");
    EXPECT_EQ(second.get_message(), "second");
}

TEST(error_chain, Is_deleted_with_its_head) {
    {
        const counted_error last("c");
        counted_error middle("b");
        counted_error head("a");
        middle.set_next(&last);
        head.set_next(&middle);
        EXPECT_EQ(counted_error::alive, 6);
    }
    EXPECT_EQ(counted_error::alive, 0);
}

TEST(error_chain, Keeps_the_classes_of_its_members) {
    vask_error head;
    const counted_error cause("cause");
    head.set_next(&cause);
    const vask_error copy(head);
    EXPECT_NE(dynamic_cast<counted_error*>(copy.get_next()), nullptr);
}

TEST(error_chain, Is_not_changed_by_null) {
    vask_error head = chain_of({"a", "b"});
    const vask_abstract_error* const next = head.get_next();
    head.set_next(nullptr);
    EXPECT_EQ(head.get_next(), next);
    EXPECT_THAT(messages_of(head), ElementsAre("a", "b"));
}

TEST(error_chain, Can_be_shortened_to_one_of_its_own_members) {
    vask_error head = chain_of({"a", "b", "c", "d"});
    head.set_next(head.get_next()->get_next());
    EXPECT_THAT(messages_of(head), ElementsAre("a", "c", "d"));
}

TEST(error_chain, Can_be_set_to_its_present_successor) {
    vask_error head = chain_of({"a", "b", "c"});
    head.set_next(head.get_next());
    EXPECT_THAT(messages_of(head), ElementsAre("a", "b", "c"));
}

TEST(error_chain, Can_be_continued_by_its_own_head) {
    vask_error head = chain_of({"a", "b"});
    head.set_next(&head);
    EXPECT_THAT(messages_of(head), ElementsAre("a", "a", "b"));
}

TEST(error_dump, Of_a_single_error_is_its_message) {
    vask_error error = error_of("alone");
    EXPECT_EQ(error.dump_errors(0), "alone");
}

TEST(error_dump, Of_a_new_error_is_empty) {
    vask_error error;
    EXPECT_EQ(error.dump_errors(0), "");
}

TEST(error_dump, Puts_each_error_of_a_chain_on_a_deeper_line) {
    EXPECT_EQ(chain_of({"A", "B"}).dump_errors(0), "A\n B");
    EXPECT_EQ(chain_of({"A", "B", "C"}).dump_errors(0), "A\n B\n  C");
}

TEST(error_dump, Begins_with_a_line_break_and_blanks_at_a_depth) {
    vask_error error = error_of("A");
    EXPECT_EQ(error.dump_errors(2), "\n  A");
    EXPECT_EQ(chain_of({"A", "B"}).dump_errors(1), "\n A\n  B");
}

TEST(error_dump, Has_no_line_breaks_at_depths_up_to_0) {
    EXPECT_EQ(chain_of({"A", "B"}).dump_errors(-1), "AB");
    vask_error error = error_of("A");
    EXPECT_EQ(error.dump_errors(-100), "A");
}

TEST(error_dump, Is_followed_by_the_same_text_when_it_is_made_again) {
    vask_error single = error_of("A");
    single.dump_errors(0);
    EXPECT_EQ(single.dump_errors(0), "AA");

    vask_error chain = chain_of({"A", "B", "C"});
    chain.dump_errors(0);
    EXPECT_EQ(chain.dump_errors(0), "A\n B\n  CA\n B\n  C");
    EXPECT_EQ(chain.dump_errors(0), "A\n B\n  CA\n B\n  CA\n B\n  C");
}

TEST(error_dump, Does_not_show_what_a_successor_collected_before) {
    vask_error chain = chain_of({"A", "B", "C"});
    chain.get_next()->dump_errors(0);
    EXPECT_EQ(chain.dump_errors(0), "A\n B\n  C");
}

TEST(error_dump, Leaves_each_error_its_own_part) {
    vask_error chain = chain_of({"A", "B", "C"});
    chain.dump_errors(0);
    EXPECT_EQ(chain.get_next()->dump_errors(1), "\n B\n  C\n B\n  C");
}

TEST(error_dump, Returns_the_text_that_the_error_keeps) {
    vask_error error = error_of("A");
    std::string& first = error.dump_errors(0);
    std::string& second = error.dump_errors(0);
    EXPECT_EQ(&first, &second);
    first.clear();
    EXPECT_EQ(error.dump_errors(0), "A");
}
