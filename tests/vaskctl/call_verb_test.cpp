// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <signal.h>

#include "programs/controller_child_commands.h"
#include "running_system.h"
#include "support/registry_object.h"

using namespace vask_test;

namespace {

class vaskctl_call : public running_system {};

std::string command(int id) {
    return std::to_string(id);
}

}  // namespace

TEST_F(vaskctl_call, Prints_the_reply_of_a_process) {
    const auto child = start_child();
    EXPECT_EQ(run_tool({"call", std::to_string(child->pid()), command(CONTROLLER_CHILD_ECHO),
                        "good morning"}),
              (tool_result{0, "good morning\n", ""}));
}

TEST_F(vaskctl_call, Takes_the_smallest_key_of_a_program) {
    const auto second = start_child("8");
    const auto first = start_child("7");
    EXPECT_EQ(run_tool({"call", "wanted_child", command(CONTROLLER_CHILD_PID)}),
              (tool_result{0, std::to_string(first->pid()) + "\n", ""}));
}

TEST_F(vaskctl_call, Finds_a_program_that_has_not_registered_itself) {
    const auto child = start_child();
    EXPECT_EQ(run_tool({"call", "wanted_child", command(CONTROLLER_CHILD_PID)}),
              (tool_result{0, std::to_string(child->pid()) + "\n", ""}));
}

TEST_F(vaskctl_call, Finds_a_process_by_its_key) {
    const auto first = start_child("7");
    const auto second = start_child("8");
    EXPECT_EQ(run_tool({"call", "wanted_child:0x8", command(CONTROLLER_CHILD_PID)}),
              (tool_result{0, std::to_string(second->pid()) + "\n", ""}));
}

TEST_F(vaskctl_call, Does_not_take_a_zombie_for_a_child) {
    const auto child = start_child("7");
    child->send(SIGKILL);
    ASSERT_TRUE(wait_until_zombie(child->pid()));
    EXPECT_EQ(run_tool({"call", "wanted_child:7", command(CONTROLLER_CHILD_PID)}),
              (tool_result{3, "",
                           "vaskctl: there is no child 'wanted_child:7'; see \"vaskctl "
                           "tree\"\n"}));
}

TEST_F(vaskctl_call, Says_that_there_is_no_such_process) {
    EXPECT_EQ(run_tool({"call", "4000000", "1"}),
              (tool_result{3, "",
                           "vaskctl: process 4000000 is not on this session bus; see "
                           "\"vaskctl tree\"\n"}));
}

TEST_F(vaskctl_call, Says_that_the_child_has_refused) {
    const auto child = start_child();
    const std::string pid = std::to_string(child->pid());
    EXPECT_EQ(run_tool({"call", pid, command(CONTROLLER_CHILD_FAIL)}),
              (tool_result{4, "",
                           "vaskctl: wanted_child " + pid +
                               " has refused command 3: its handler failed, or it has "
                               "none\n"}));
}

TEST_F(vaskctl_call, Says_that_the_child_has_ended) {
    const auto child = start_child();
    const tool_result result =
        run_tool({"call", std::to_string(child->pid()), command(CONTROLLER_CHILD_DIE)});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, testing::EndsWith("has ended before it replied\n"));
}

TEST_F(vaskctl_call, Gives_a_stopped_child_up_after_the_timeout) {
    const auto child = start_child();
    child->send(SIGSTOP);
    ASSERT_TRUE(child->wait_until_stopped());
    const std::string pid = std::to_string(child->pid());
    EXPECT_EQ(run_tool({"call", "--timeout", "200", pid, command(CONTROLLER_CHILD_PID)}),
              (tool_result{5, "",
                           "vaskctl: wanted_child " + pid +
                               " has not replied within 200 ms; \"vaskctl tree\" shows "
                               "whether it is stopped\n"}));
}

TEST_F(vaskctl_call, Refuses_an_argument_that_cannot_travel) {
    const auto child = start_child();
    EXPECT_EQ(run_tool({"call", std::to_string(child->pid()), "1", "\xff"}).status, 2);
}

TEST_F(vaskctl_call, Passes_an_argument_that_looks_like_an_option) {
    const auto child = start_child();
    EXPECT_EQ(run_tool({"call", std::to_string(child->pid()), "1", "--", "--json"}),
              (tool_result{0, "--json\n", ""}));
}

TEST_F(vaskctl_call, Gives_the_reply_as_json) {
    const auto child = start_child();
    const std::string pid = std::to_string(child->pid());
    const parsed_json json(run_tool({"call", "--json", pid, "1", "a \"quoted\" text"}).output);
    EXPECT_EQ(json.at("pid"), pid);
    EXPECT_EQ(json.at("command"), "1");
    EXPECT_EQ(json.at("reply"), "a \"quoted\" text");
}

TEST_F(vaskctl_call, Says_that_there_is_no_bus) {
    tool_setting setting;
    setting.environment = {"DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent"};
    EXPECT_EQ(run_tool({"call", "1", "1"}, setting).status, 6);
}

TEST_F(vaskctl_call, Without_a_reply_is_send) {
    const auto child = start_child();
    const std::string pid = std::to_string(child->pid());
    EXPECT_EQ(run_tool({"send", pid, command(CONTROLLER_CHILD_DIE)}), (tool_result{0, "", ""}));
    EXPECT_EQ(child->wait_for_end(), -SIGKILL);
    EXPECT_EQ(run_tool({"send", pid, command(CONTROLLER_CHILD_DIE)}).status, 3);
}
