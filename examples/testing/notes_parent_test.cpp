// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <vask_test/googletest.h>
#include <vask_test/scripted_child.h>
#include <vask_test/started_process.h>

#include "notes.h"

using namespace vask_test;
using testing::ElementsAre;

TEST(notes_parent, Starts_a_child_that_crashes_three_times) {
    scripted_child child;
    child.on_command(NOTES_ADD).crash();
    log_catcher log;
    started_process parent(NOTES_PARENT, {child.program()});
    EXPECT_EQ(parent.wait_for_end(), 0);
    EXPECT_EQ(log.text(), "the child has crashed\nthe child has crashed\nthe child has crashed\n");
}

TEST(notes_parent, Has_the_second_child_end_when_that_has_noted_something) {
    scripted_child child;
    child.at_start().exit(0);
    child.at_start();
    child.on_command(NOTES_ADD).emit(NOTES_ADDED, "milk");
    child.on_command(NOTES_COUNT).reply("7");
    child.on_sigterm().quit();
    log_catcher log;
    started_process parent(NOTES_PARENT, {child.program()});
    EXPECT_EQ(parent.wait_for_end(), 0);
    EXPECT_THAT(log.lines(), ElementsAre(line("", "", "the child has crashed"),
                                         line("", "", "milk noted, 7 in all"),
                                         line("", "", "the child has ended as it was asked to")));
    EXPECT_THAT(child.journal(),
                ElementsAre("started", "started", "joined", "window 0 0 640 480 42",
                            "command 1 milk", "command 2", "sigterm", "ended 0"));
}
