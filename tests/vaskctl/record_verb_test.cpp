// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>

#include "running_system.h"
#include "support/shared_objects.h"
#include "vask_object.h"

using namespace vask_test;

namespace {

class vaskctl_record : public running_system {
protected:
    const shared_object record{"vask_shared_info"};
};

}  // namespace

TEST_F(vaskctl_record, Is_not_made_by_looking_at_it) {
    EXPECT_EQ(run_tool({"record", "get"}),
              (tool_result{1, "",
                           "vaskctl: there is no shared record yet: the first process that "
                           "uses it makes it\n"}));
    EXPECT_FALSE(record.exists());
}

TEST_F(vaskctl_record, Shows_what_was_set) {
    EXPECT_EQ(run_tool({"record", "set", "monitor-rotation", "3"}), (tool_result{0, "", ""}));
    EXPECT_EQ(run_tool({"record", "set", "cpu-type", "ATOM Z"}), (tool_result{0, "", ""}));
    EXPECT_EQ(run_tool({"record", "set", "gpu-type", "6"}), (tool_result{0, "", ""}));
    EXPECT_EQ(run_tool({"record", "set", "pseudo-portrait", "yes"}), (tool_result{0, "", ""}));
    EXPECT_EQ(run_tool({"record", "get"}), (tool_result{0,
                                                        "monitor-rotation: 3\n"
                                                        "cpu-type: 3 (ATOM Z)\n"
                                                        "gpu-type: 6 (NVIDIA)\n"
                                                        "pseudo-portrait: 1 (yes)\n",
                                                        ""}));
    EXPECT_EQ(run_tool({"record", "get", "cpu-type"}), (tool_result{0, "3 (ATOM Z)\n", ""}));
    EXPECT_EQ(record.sem_value(), 1);
    own_shared_info library;
    EXPECT_EQ(library.get_monitor_rotation(), VASK_MONITOR_ROTATION_3);
    EXPECT_TRUE(library.get_pseudo_portrait_flag());
    EXPECT_EQ(library.get_vask_cpu_type(false), VASK_CPU_ATOM_Z);
}

TEST_F(vaskctl_record, Is_a_json_object) {
    run_tool({"record", "set", "monitor-rotation", "not set"});
    EXPECT_EQ(run_tool({"record", "get", "--json"}),
              (tool_result{0,
                           "{\"monitor-rotation\":5,\"cpu-type\":0,\"gpu-type\":0,"
                           "\"pseudo-portrait\":0}\n",
                           ""}));
}

TEST_F(vaskctl_record, Takes_no_value_that_means_nothing) {
    for (const char* value : {"4", "6", "-1", "upside", ""}) {
        EXPECT_EQ(run_tool({"record", "set", "monitor-rotation", value}).status, 2) << value;
    }
    EXPECT_EQ(run_tool({"record", "set", "colour", "1"}).status, 2);
    EXPECT_EQ(run_tool({"record", "drop"}).status, 2);
    EXPECT_FALSE(record.exists());
}

TEST_F(vaskctl_record, Is_read_although_its_semaphore_is_taken) {
    run_tool({"record", "set", "monitor-rotation", "2"});
    leave_sem_to_a_dead_holder("vask_shm_context_sem_vask_shared_info");
    EXPECT_EQ(run_tool({"record", "get", "monitor-rotation"}), (tool_result{0, "2\n", ""}));
}

TEST_F(vaskctl_record, Is_not_waited_for_without_end) {
    run_tool({"record", "set", "monitor-rotation", "2"});
    leave_sem_to_a_dead_holder("vask_shm_context_sem_vask_shared_info");
    EXPECT_EQ(run_tool({"record", "set", "monitor-rotation", "1"}),
              (tool_result{5, "",
                           "vaskctl: the record's semaphore is taken and not given back; see "
                           "\"vaskctl status\"\n"}));
    EXPECT_EQ(record.int_at(0), 2);
}

TEST_F(vaskctl_record, Is_refused_when_it_is_too_short) {
    record.create(std::vector<unsigned char>(100));
    EXPECT_EQ(run_tool({"record", "get"}),
              (tool_result{1, "",
                           "vaskctl: the shared record is damaged: it is 100 bytes long, not "
                           "2064: nobody can use it; see \"vaskctl repair\"\n"}));
}
