// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The child, with a parent that does what the test says.

#include <unistd.h>
#include <vask_test/googletest.h>
#include <vask_test/main_loop.h>
#include <vask_test/scripted_parent.h>

#include <fstream>

#include "meter_protocol.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

class meter_child : public testing::Test {
protected:
    // Killed, it would leave its shared memory.
    ~meter_child() override { EXPECT_EQ(parent.end_child(5000), 0); }

    // A probe that prints twice the word it is given, or nothing, or does not end.
    bool start() { return parent.start({METER_CHILD, METER_TEST_PROBE}); }

    scripted_parent parent;
};

std::string published_value() {
    std::ifstream file("/dev/shm/meter_last");
    std::string text;
    std::getline(file, text, '\0');
    return text;
}

}  // namespace

TEST_F(meter_child, Signals_what_was_measured) {
    ASSERT_TRUE(start()) << parent.problem();
    EXPECT_THAT(parent.call(METER_MEASURE, "load"), answered(""));
    ASSERT_TRUE(parent.wait_for_signals(1));
    EXPECT_THAT(parent.signals(), ElementsAre(raised_signal{METER_MEASURED, "load loadload"}));
}

TEST_F(meter_child, Signals_every_measurement_also_of_the_same_value) {
    ASSERT_TRUE(start()) << parent.problem();
    parent.send(METER_MEASURE, "load");
    parent.send(METER_MEASURE, "load");
    parent.send(METER_MEASURE, "memory");
    ASSERT_TRUE(parent.wait_for_signal({METER_MEASURED, "memory memorymemory"}));
    EXPECT_THAT(parent.signals(),
                ElementsAre(raised_signal{METER_MEASURED, "load loadload"},
                            raised_signal{METER_MEASURED, "load loadload"},
                            raised_signal{METER_MEASURED, "memory memorymemory"}));
}

TEST_F(meter_child, Signals_what_cannot_be_measured) {
    ASSERT_TRUE(start()) << parent.problem();
    parent.send(METER_MEASURE, "nothing");
    ASSERT_TRUE(parent.wait_for_signals(1));
    EXPECT_THAT(parent.signals(), ElementsAre(raised_signal{METER_FAILED, "nothing"}));
}

TEST_F(meter_child, Signals_a_failure_when_there_is_no_probe) {
    ASSERT_TRUE(parent.start({METER_CHILD, "/nonexistent"})) << parent.problem();
    parent.send(METER_MEASURE, "load");
    ASSERT_TRUE(parent.wait_for_signals(1));
    EXPECT_THAT(parent.signals(), ElementsAre(raised_signal{METER_FAILED, "load"}));
}

TEST_F(meter_child, Replies_the_last_value) {
    const std::string long_name(100, 'x');
    ASSERT_TRUE(start()) << parent.problem();
    EXPECT_THAT(parent.call(METER_LAST), answered(""));
    parent.send(METER_MEASURE, long_name);
    ASSERT_TRUE(parent.wait_for_signals(1));
    EXPECT_THAT(parent.call(METER_LAST), answered(long_name + " " + long_name + long_name));
}

TEST_F(meter_child, Answers_while_a_probe_does_not_end) {
    ASSERT_TRUE(start()) << parent.problem();
    parent.send(METER_MEASURE, "for_ever");
    EXPECT_THAT(parent.call(METER_LAST, "", 5000), answered(""));
}

TEST_F(meter_child, Holds_nothing_more_after_a_measurement) {
    ASSERT_TRUE(start()) << parent.problem();
    parent.send(METER_MEASURE, "load");
    ASSERT_TRUE(parent.wait_for_signals(1));
    // Once the probe is reaped; the second measurement holds what the first one has held.
    ASSERT_TRUE(wait_until([&] { return parent.resources().children.empty(); }, 5000))
        << "The probe is a zombie.";
    const resource_count before = parent.resources();
    parent.send(METER_MEASURE, "load");
    ASSERT_TRUE(parent.wait_for_signals(2));
    ASSERT_TRUE(wait_until([&] { return parent.resources().children.empty(); }, 5000));
    EXPECT_THAT(parent.resources(), holds_no_more_than(before));
}

TEST_F(meter_child, Publishes_the_last_value_until_it_ends) {
    ASSERT_TRUE(start()) << parent.problem();
    parent.send(METER_MEASURE, "memory");
    parent.send(METER_MEASURE, "load");
    ASSERT_TRUE(parent.wait_for_signals(2));
    EXPECT_EQ(published_value(), "load loadload");
    EXPECT_EQ(parent.end_child(), 0);
    EXPECT_NE(access("/dev/shm/meter_last", F_OK), 0) << "The shared memory is still there.";
}
