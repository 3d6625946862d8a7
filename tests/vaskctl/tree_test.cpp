// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include "programs/controller_child_commands.h"
#include "running_system.h"
#include "support/idle_process.h"
#include "support/registry_object.h"
#include "support/sanitizers.h"
#include "support/test_program.h"
#include "vask_test/main_loop.h"
#include "vask_test/served_child.h"
#include "vask_test/timeout_factor.h"

using namespace vask_test;
using testing::HasSubstr;

namespace {

constexpr char header[] = "PROCESS\tPID\tNEST\tKEY\tBUS NAME\tMET\tSTATE\tROUND TRIP\tREMARKS\n";

class vaskctl_tree : public running_system {
protected:
    tool_result expected(const std::string& lines, const std::vector<pid_t>& pids) const {
        return {0, header + with_pids(lines, pids), ""};
    }

    tool_result tree() const { return run_tool_evened(patient({"tree"})); }

    // A process that has just been started does not show everything yet.
    void expect_tree(const tool_result& wanted) const {
        tool_result last;
        wait_until([&] {
            last = tree();
            return last == wanted;
        });
        EXPECT_EQ(last, wanted);
    }

    // The bridge has met its child when the bus knows that it listens.
    void wait_until_met(pid_t child) const {
        const std::string name = child_name(child);
        EXPECT_TRUE(wait_until([&] {
            return run_tool_evened(patient({"--json"})).output.find("\"met\":true") !=
                   std::string::npos;
        })) << name;
    }
};

}  // namespace

TEST_F(vaskctl_tree, Is_a_header_where_nobody_is) {
    expect_tree(expected("", {}));
}

TEST_F(vaskctl_tree, Has_a_child_below_the_parent_that_has_met_it) {
    const auto parent = start_parent({test_program("controller_child"), "7"});
    const pid_t child = wait_for_process_below(parent->pid(), "controller_child");
    wait_until_on_bus(child);
    wait_until_registered(child, "7");
    wait_until_met(child);
    expect_tree(
        expected("vaskctl_parent\t$1\t-\t-\t-\t-\trunning\t-\t-\n"
                 "└─controller_child\t$2\t1\twanted_child:7\t"
                 "com.example.vask.Child_$2\tyes\trunning\tN ms\t-\n",
                 {parent->pid(), child}));
}

TEST_F(vaskctl_tree, Has_both_twins) {
    const auto parent = start_parent({"--twins", test_program("controller_child")});
    // Before both have their name, either of them may be the first that has it.
    const pid_t second = wait_for_process_below(parent->pid(), "controller_child", 1);
    const pid_t first = wait_for_process_below(parent->pid(), "controller_child");
    wait_until_on_bus(first);
    wait_until_on_bus(second);
    const tool_result both = expected(
        "vaskctl_parent\t$1\t-\t-\t-\t-\trunning\t-\t-\n"
        "├─controller_child\t$2\t1\tnot registered\tcom.example.vask.Child_$2\tyes\trunning\t"
        "N ms\t-\n"
        "└─controller_child\t$3\t1\tnot registered\tcom.example.vask.Child_$3\tyes\trunning\t"
        "N ms\t-\n",
        {parent->pid(), first, second});
    expect_tree(both);
}

TEST_F(vaskctl_tree, Says_that_the_parent_of_a_child_has_ended) {
    const auto parent = start_parent({test_program("controller_child")});
    const pid_t child = wait_for_process_below(parent->pid(), "controller_child");
    wait_until_on_bus(child);
    parent->kill_now();
    expect_tree(
        expected("controller_child\t$1\t1\tnot registered\t"
                 "com.example.vask.Child_$1\t-\trunning\tN ms\t"
                 "its parent has ended\n",
                 {child}));
}

TEST_F(vaskctl_tree, Says_that_a_parent_waits_for_the_wrapper_of_its_child) {
    const std::string program = test_program("controller_child");
    const auto parent = start_parent({"/bin/sh", "-c", program + "; true"});
    const pid_t wrapper = wait_for_process_below(parent->pid(), "sh");
    const pid_t child = wait_for_process_below(wrapper, "controller_child");
    wait_until_on_bus(child);
    expect_tree(
        expected("vaskctl_parent\t$1\t-\t-\t-\t-\trunning\t-\t-\n"
                 "└─sh\t$2\t1\t-\t-\tno\trunning\t-\t"
                 "never met: it is no program of the library, or a wrapper\n"
                 "  └─controller_child\t$3\t1\tnot registered\tcom.example.vask.Child_$3\t"
                 "no\trunning\tN ms\t"
                 "never met: vaskctl_parent $1 waits for its wrapper, sh $2\n",
                 {parent->pid(), wrapper, child}));
}

TEST_F(vaskctl_tree, Says_that_a_child_has_never_come) {
    const auto parent = start_parent({test_program("vaskctl_parent"), "/bin/true"});
    const pid_t child = wait_for_process_below(parent->pid(), "vaskctl_parent");
    const tool_result lines = expected(
        "vaskctl_parent\t$1\t-\t-\t-\t-\trunning\t-\t-\n"
        "└─vaskctl_parent\t$2\t1\t-\t-\tno\trunning\t-\t"
        "never met: it is not on this session bus\n",
        {parent->pid(), child});
    expect_tree(lines);
}

TEST_F(vaskctl_tree, Says_that_a_program_can_never_come) {
    const auto parent = start_parent({test_program("lifecycle_probe"), "sleep"});
    const pid_t child = wait_for_process_below(parent->pid(), "lifecycle_probe");
    expect_tree(
        expected("vaskctl_parent\t$1\t-\t-\t-\t-\trunning\t-\t-\n"
                 "└─lifecycle_probe\t$2\t1\t-\t-\tno\trunning\t-\t"
                 "never met: it is no program of the library, or a wrapper\n",
                 {parent->pid(), child}));
}

TEST_F(vaskctl_tree, Says_that_a_child_has_another_bus) {
    const auto parent =
        start_parent({"/usr/bin/env", "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent",
                      test_program("vaskctl_parent"), "/bin/true"});
    const pid_t child = wait_for_process_below(parent->pid(), "vaskctl_parent");
    const std::string line = "└─vaskctl_parent\t" + std::to_string(child) +
                             "\t1\t-\t-\tno\trunning\t-\t"
                             "never met: it has another session bus than its parent\n";
    EXPECT_TRUE(wait_until([&] { return tree().output.find(line) != std::string::npos; }))
        << tree().output;
}

TEST_F(vaskctl_tree, Says_that_a_deaf_parent_has_not_met_its_child) {
    const auto parent = start_parent({"--deaf", test_program("controller_child")});
    const pid_t child = wait_for_process_below(parent->pid(), "controller_child");
    wait_until_on_bus(child);
    EXPECT_THAT(tree().output,
                HasSubstr("no\trunning\tN ms\tnever met: vaskctl_parent " +
                          std::to_string(parent->pid()) + " does not listen to it\n"));
}

TEST_F(vaskctl_tree, Does_not_wait_for_a_stopped_child) {
    const auto child = start_child();
    child->send(SIGSTOP);
    ASSERT_TRUE(child->wait_until_stopped());
    expect_tree(
        expected("wanted_child\t$1\t-\tnot registered\tcom.example.vask.Child_$1\t-\t"
                 "stopped\t-\t-\n",
                 {child->pid()}));
}

TEST_F(vaskctl_tree, Waits_for_a_child_that_does_not_answer_until_the_timeout) {
    const auto child = start_child();
    // A connection that has the name of a child and answers nothing.
    const std::string name = child_name(getpid());
    ASSERT_EQ(client.request_name(name), DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER);
    const std::string output = run_tool({"tree", "--timeout=1000"}).output;
    EXPECT_THAT(output, HasSubstr(name + "\t-\trunning\tno answer\t"));
    client.release_name(name);
}

TEST_F(vaskctl_tree, Shows_an_entry_whose_process_is_gone) {
    registry_object("program").append(4000000, 5);
    expect_tree(expected("-\t4000000\t-\tprogram:5\t-\t-\tgone\t-\t-\n", {}));
}

TEST_F(vaskctl_tree, Shows_a_zombie_below_the_parent_that_has_not_reaped_it) {
    const auto child = start_child("9");
    child->send(SIGKILL);
    ASSERT_TRUE(wait_until_zombie(child->pid()));
    const std::string output = tree().output;
    EXPECT_THAT(output, HasSubstr("└─controller_chil\t" + std::to_string(child->pid()) +
                                  "\t-\twanted_child:9\t-\t-\tzombie\t-\t"
                                  "its parent has not reaped it: does its main loop run?\n"));
}

TEST_F(vaskctl_tree, Says_that_a_registered_number_is_a_strangers_by_now) {
    const idle_process stranger("program");
    registry_object("program").append(stranger.pid(), 5);
    expect_tree(
        expected("program\t$1\t-\t5\t-\t-\trunning\t-\t"
                 "it is not the process that registered as program:5\n",
                 {stranger.pid()}));
}

TEST_F(vaskctl_tree, Shows_the_children_of_others_without_a_bus) {
    const auto child = start_child("7");
    tool_setting setting;
    setting.environment = {"DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"};
    tool_result wanted = expected("wanted_child\t$1\t-\t7\t-\t-\trunning\t-\t-\n", {child->pid()});
    wanted.errors =
        "vaskctl: there is no session bus: run it in the session, or set DBUS_SESSION_BUS_ADDRESS "
        "(/proc/PID/environ of a child has it)\n";
    EXPECT_EQ(run_tool({}, setting), wanted);
}

TEST_F(vaskctl_tree, Shows_the_characters_of_a_hostile_name_by_their_numbers) {
    const idle_process stranger("a\033[2Jb\xff");
    registry_object("program").append(stranger.pid(), 5);
    EXPECT_THAT(tree().output, HasSubstr("a\\x1b[2Jb\\xff\t"));
}

TEST_F(vaskctl_tree, Is_one_line_of_json) {
    const auto parent = start_parent({test_program("controller_child"), "0x10"});
    const pid_t child = wait_for_process_below(parent->pid(), "controller_child");
    wait_until_on_bus(child);
    wait_until_registered(child, "16");
    wait_until_met(child);
    const tool_result result = run_tool(patient({"--json", "tree"}));
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1);
    const parsed_json json(result.output);
    EXPECT_EQ(json.at("bus"), "true");
    EXPECT_EQ(json.size_of("processes"), 1U);
    EXPECT_EQ(json.at("processes/0/pid"), std::to_string(parent->pid()));
    const std::string entry = "processes/0/children/0/";
    EXPECT_EQ(json.at(entry + "pid"), std::to_string(child));
    EXPECT_EQ(json.at(entry + "nest_level"), "1");
    EXPECT_EQ(json.at(entry + "registered/0/name"), "wanted_child");
    EXPECT_EQ(json.at(entry + "registered/0/key"), "16");
    EXPECT_EQ(json.at(entry + "met"), "true");
    EXPECT_EQ(json.at(entry + "state"), "running");
    EXPECT_EQ(json.size_of(entry + "children"), 0U);
}

TEST_F(vaskctl_tree, Names_the_owner_of_processes_that_it_cannot_look_into) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root has the rights to become somebody else";
    }
    const auto child = start_child("7");
    tool_setting nobody;
    nobody.user = 65534;
    const tool_result result = run_tool({}, nobody);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("wanted_child\t" + std::to_string(child->pid()) +
                                         "\t-\t7\t-\t-\trunning\t-\t"));
}

TEST_F(vaskctl_tree, Lists_what_can_be_a_target) {
    const auto child = start_child("7");
    const std::string pid = std::to_string(child->pid());
    EXPECT_EQ(run_tool(patient({"tree", "--targets"})),
              (tool_result{0, pid + "\nwanted_child\nwanted_child:7\n", ""}));
}

TEST_F(vaskctl_tree, Of_200_children_needs_less_than_half_a_second) {
#ifdef VASK_TEST_HAS_ADDRESS_SANITIZER
    GTEST_SKIP() << "A sanitizer needs more.";
#endif
    std::vector<std::unique_ptr<silent_process>> children;
    for (int i = 0; i < 200; ++i) {
        children.push_back(std::make_unique<silent_process>(test_program("controller_child"),
                                                            std::vector<std::string>()));
    }
    for (const auto& child : children) {
        wait_until_on_bus(child->pid());
    }
    children.front()->send(SIGSTOP);
    const std::string output = run_tool(patient({"--no-legend"})).output;
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 200);
    // Not by the clock: the machine may be busy with something else.
    const double before = processor_seconds_of_tools();
    run_tool({"tree"});
    EXPECT_LT(processor_seconds_of_tools() - before, 0.5 * timeout_factor());
}
