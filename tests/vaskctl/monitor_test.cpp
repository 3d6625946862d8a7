// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <regex>

#include "programs/controller_child_commands.h"
#include "running_system.h"
#include "support/sanitizers.h"
#include "vask_test/served_child.h"

using namespace vask_test;

namespace {

class vaskctl_monitor : public running_system {
protected:
    // Times and connections differ from run to run.
    static std::string evened(std::string text) {
        text = std::regex_replace(text, std::regex("(^|\n)[0-9]+\\.[0-9]{6} "), "$1T ");
        return std::regex_replace(text, std::regex("[0-9.]+ ms"), "N ms");
    }
};

double monotonic_seconds() {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

long anonymous_kilobytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string word;
    long kilobytes = -1;
    while (status >> word && word != "RssAnon:") {
    }
    status >> kilobytes;
    return kilobytes;
}

}  // namespace

TEST_F(vaskctl_monitor, Shows_all_that_passes_between_a_child_and_others) {
    const auto child = start_child();
    tool_in_progress monitor({"monitor"});
    ASSERT_TRUE(monitor.wait_for_errors("Monitoring; Ctrl-C ends it.\n"));
    served_child served(client, child_name(child->pid()));
    served.command(CONTROLLER_CHILD_ECHO, "hello");
    // From then on the monitor knows the child's name, which the process loses with its end.
    ASSERT_TRUE(monitor.wait_for_output("hello"));
    served.command(CONTROLLER_CHILD_FAIL, "");
    served.command_without_reply(CONTROLLER_CHILD_ECHO, "a\nb");
    served.set_window(1, 2, 3, 4, 0x50);
    child->kill_now();
    ASSERT_TRUE(monitor.wait_for_output("leaves the bus\n"));
    const std::string lines =
        "T wanted_child $1: command 1 \"hello\" from vaskctl_monitor_test $2\n"
        "T wanted_child $1: reply to command 1 \"hello\" to vaskctl_monitor_test $2 after N ms\n"
        "T wanted_child $1: command 3 \"\" from vaskctl_monitor_test $2\n"
        "T wanted_child $1: failure of command 3 "
        "\"org.freedesktop.DBus.GLib.ErrorError\" to "
        "vaskctl_monitor_test $2 after N ms\n"
        "T wanted_child $1: command 1 \"a\\x0ab\" from vaskctl_monitor_test $2\n"
        "T wanted_child $1: window 0x50 at 1,2 size 3x4 from vaskctl_monitor_test $2\n"
        "T wanted_child $1: leaves the bus\n";
    EXPECT_EQ(evened(monitor.output()), with_pids(lines, {child->pid(), getpid()}));
    EXPECT_EQ(monitor.end(SIGINT), 0);
}

TEST_F(vaskctl_monitor, Shows_one_child_alone_and_in_json) {
    const auto child = start_child("7");
    const auto other = start_child("8");
    tool_in_progress monitor({"monitor", "--json", "wanted_child:8"});
    // Nothing tells when it has begun, so the command is repeated.
    served_child first(client, child_name(child->pid()));
    served_child second(client, child_name(other->pid()));
    const double begin = monotonic_seconds();
    while (monitor.output().find("\"event\":\"reply\"") == std::string::npos) {
        first.command(CONTROLLER_CHILD_ECHO, "to the first");
        second.command(CONTROLLER_CHILD_ECHO, "to the second");
        monitor.take_output();
        ASSERT_LT(monotonic_seconds(), begin + 60);
    }
    const std::string line = monitor.output().substr(0, monitor.output().find('\n'));
    const parsed_json json(line);
    EXPECT_EQ(json.at("pid"), std::to_string(other->pid()));
    EXPECT_EQ(json.at("event"), "command");
    EXPECT_EQ(json.at("number"), "1");
    EXPECT_EQ(json.at("text"), "to the second");
    EXPECT_GE(std::stod(json.at("time")), begin);
    EXPECT_LE(std::stod(json.at("time")), monotonic_seconds());
    EXPECT_EQ(monitor.output().find("to the first"), std::string::npos);
    EXPECT_EQ(monitor.end(SIGTERM), 0);
}

// One that is left on for days sees hundreds of thousands of connections.
TEST_F(vaskctl_monitor, Forgets_callers_that_have_gone) {
#ifdef VASK_TEST_HAS_ADDRESS_SANITIZER
    GTEST_SKIP() << "what was freed is kept for a while";
#endif
    const auto child = start_child();
    tool_in_progress monitor({"monitor"});
    ASSERT_TRUE(monitor.wait_for_errors("Monitoring"));
    const auto be_called = [&](int callers, const std::string& last_words) {
        for (int i = 0; i < callers; ++i) {
            bus_client caller;
            served_child(caller, child_name(child->pid())).command(CONTROLLER_CHILD_ECHO, "");
            monitor.take_output();
        }
        served_child(client, child_name(child->pid())).command(CONTROLLER_CHILD_ECHO, last_words);
        return monitor.wait_for_output(last_words);
    };
    ASSERT_TRUE(be_called(300, "that was the warming up"));
    const long before = anonymous_kilobytes(monitor.pid());
    ASSERT_TRUE(be_called(1500, "that was all"));
    EXPECT_LT(anonymous_kilobytes(monitor.pid()), before + 100);
}

TEST_F(vaskctl_monitor, Shows_who_comes) {
    tool_in_progress monitor({"monitor"});
    ASSERT_TRUE(monitor.wait_for_errors("Monitoring"));
    const auto child = start_child();
    EXPECT_TRUE(monitor.wait_for_output("wanted_child " + std::to_string(child->pid()) +
                                        ": comes to the bus\n"));
}
