// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The tool, with a child that does what the test says.

#include <vask_test/googletest.h>
#include <vask_test/log_catcher.h>
#include <vask_test/scripted_child.h>
#include <vask_test/scripted_parent.h>
#include <vask_test/started_process.h>

#include "meter_protocol.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class meterctl : public testing::Test {
protected:
    /** The output of the tool. */
    std::string run(const std::vector<std::string>& arguments) {
        log_catcher log;
        exit_status = started_process(METERCTL, arguments).wait_for_end();
        return log.text();
    }

    scripted_child child{meter_child_program};
    scripted_parent parent;
    int exit_status = -1;
};

}  // namespace

TEST_F(meterctl, Prints_the_last_value) {
    child.on_command(METER_LAST).reply("load 7");
    ASSERT_TRUE(parent.start({child.program()})) << parent.problem();
    EXPECT_EQ(run({"last"}), "load 7\n");
}

TEST_F(meterctl, Has_something_measured) {
    child.on_command(METER_MEASURE);
    ASSERT_TRUE(parent.start({child.program()})) << parent.problem();
    run({"measure", "load"});
    EXPECT_THAT(child.calls(), ElementsAre("command 1 load"));
}

TEST_F(meterctl, Measures_nothing_when_it_is_not_told_what) {
    ASSERT_TRUE(parent.start({child.program()})) << parent.problem();
    run({"measure"});
    EXPECT_THAT(child.calls(), IsEmpty());
}

TEST_F(meterctl, Survives_a_child_that_crashes) {
    child.on_command(METER_LAST).crash();
    ASSERT_TRUE(parent.start({child.program()})) << parent.problem();
    run({"last"});
    EXPECT_GE(exit_status, 0);
}
