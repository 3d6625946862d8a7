// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <signal.h>
#include <vask_test/googletest.h>
#include <vask_test/scripted_parent.h>

#include "notes.h"

using namespace vask_test;

TEST(notes_child, Notes_what_it_is_given) {
    scripted_parent parent;
    ASSERT_TRUE(parent.start({NOTES_CHILD})) << parent.problem();
    EXPECT_THAT(parent.call(NOTES_ADD, "milk"), answered(""));
    EXPECT_THAT(parent.call(NOTES_COUNT), answered("1"));
    EXPECT_TRUE(parent.wait_for_signal({NOTES_ADDED, "milk"}));
    EXPECT_EQ(parent.end_child(), -SIGTERM);
}

TEST(notes_child, Holds_nothing_for_a_note_but_its_text) {
    scripted_parent parent;
    ASSERT_TRUE(parent.start({NOTES_CHILD})) << parent.problem();
    parent.call(NOTES_ADD, "milk");
    const resource_count before = parent.resources();
    parent.call(NOTES_ADD, "honey");
    EXPECT_THAT(parent.resources(), holds_no_more_than(before));
}
