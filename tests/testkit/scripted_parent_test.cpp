// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/scripted_parent.h"

#include <fcntl.h>
#include <glib.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>

#include "vask_test/googletest.h"
#include "vask_test/main_loop.h"
#include "vask_test/process_list.h"
#include "vask_test/scripted_child.h"
#include "vask_test/timeout_factor.h"

using namespace vask_test;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

constexpr int short_msec = 300;

class parent_of_script : public testing::Test {
protected:
    bool start() { return parent.start({child.program()}); }

    scripted_child child;
    scripted_parent parent;
};

class parent_of_shell : public testing::Test {
protected:
    /** Starts a script that is ready when it has printed something. */
    void start(const std::string& script) {
        log_catcher log;
        parent.start_only({"/bin/sh", "-c", script});
        ASSERT_TRUE(wait_until([&] { return !log.text().empty(); }));
    }

    scripted_parent parent;
};

/** Of the child, entry by entry. */
std::vector<std::string> environment_of(pid_t pid) {
    std::vector<std::string> result;
    std::ifstream file("/proc/" + std::to_string(pid) + "/environ");
    for (std::string entry; std::getline(file, entry, '\0');) {
        result.push_back(entry);
    }
    return result;
}

class variable {
public:
    variable(const char* name, const char* value) : m_name(name) { setenv(name, value, 1); }
    ~variable() { unsetenv(m_name); }

private:
    const char* const m_name;
};

}  // namespace

TEST_F(parent_of_script, Meets_the_child) {
    EXPECT_TRUE(start());
    EXPECT_EQ(parent.problem(), "");
    EXPECT_EQ(parent.pid(), child.pid());
    EXPECT_THAT(child.journal(), ElementsAre("started", "joined"));
}

TEST_F(parent_of_script, Says_how_a_child_has_ended_that_it_was_to_meet) {
    child.at_start().exit(3);
    EXPECT_FALSE(start());
    EXPECT_EQ(parent.problem(), "it has ended with 3 before it was on the bus");
}

TEST_F(parent_of_script, Says_that_a_child_does_not_come_onto_the_bus) {
    child.at_start().stay_off_bus();
    EXPECT_FALSE(parent.start({child.program()}, {}, short_msec));
    EXPECT_EQ(parent.problem(), "it is not on the bus after 300 ms");
    child.now().join_bus();
    EXPECT_TRUE(parent.wait_until_met());
    EXPECT_EQ(parent.problem(), "");
}

TEST_F(parent_of_script, Says_that_a_child_on_the_bus_does_not_serve_it) {
    child.at_start().join_bus().hang();
    EXPECT_FALSE(parent.start({child.program()}, {}, 1000));
    EXPECT_THAT(parent.problem(), StartsWith("it is on the bus but serves no call: no answer"));
}

TEST(scripted_parent, Says_that_no_child_was_started) {
    scripted_parent parent;
    EXPECT_EQ(parent.pid(), -1);
    EXPECT_FALSE(parent.wait_until_met());
    EXPECT_EQ(parent.problem(), "no child was started");
    EXPECT_EQ(parent.wait_for_end(), scripted_parent::still_runs);
}

TEST(scripted_parent, Throws_when_there_is_no_such_program) {
    scripted_parent parent;
    EXPECT_THROW(parent.start({"/nonexistent"}), std::runtime_error);
}

TEST_F(parent_of_script, Gives_replies_and_errors) {
    child.on_command(1).reply("milk");
    child.on_command(2).fail();
    ASSERT_TRUE(start());
    EXPECT_THAT(parent.call(1), answered("milk"));
    EXPECT_THAT(parent.call(2), not_answered(Not(IsEmpty())));
    EXPECT_THAT(parent.set_window(1, 2, 3, 4, 5), answered(""));
}

TEST_F(parent_of_script, Brings_arguments_and_windows) {
    child.on_any_command();
    ASSERT_TRUE(start());
    parent.call(-1, "with text");
    parent.set_window(-1, 2, 3, 4, 0xffffffffu);
    parent.send(2, "without reply");
    EXPECT_TRUE(child.wait_for_calls(3));
    EXPECT_THAT(child.calls(), ElementsAre("command -1 with text", "window -1 2 3 4 4294967295",
                                           "command 2 without reply"));
}

TEST_F(parent_of_script, Takes_no_late_answer_for_that_of_another_call) {
    // The limit of the call is stretched.
    child.on_command(1).wait(static_cast<int>(2 * short_msec * timeout_factor())).reply("late");
    child.on_command(2).reply("right");
    ASSERT_TRUE(start());
    EXPECT_THAT(parent.call(1, "", short_msec), not_answered("no answer within 300 ms"));
    EXPECT_THAT(parent.call(2), answered("right"));
}

TEST_F(parent_of_script, Collects_signals_in_their_order) {
    child.on_command(1).emit(7, "one").emit(8);
    ASSERT_TRUE(start());
    EXPECT_THAT(parent.signals(), IsEmpty());
    parent.send(1);
    EXPECT_TRUE(parent.wait_for_signal({8, ""}));
    EXPECT_THAT(parent.signals(), ElementsAre(raised_signal{7, "one"}, raised_signal{8, ""}));
}

TEST_F(parent_of_script, Forgets_signals_when_it_is_told_to) {
    child.on_command(1).emit(7, "one");
    ASSERT_TRUE(start());
    parent.send(1);
    ASSERT_TRUE(parent.wait_for_signals(1));
    parent.forget_signals();
    EXPECT_THAT(parent.signals(), IsEmpty());
    parent.send(1);
    EXPECT_TRUE(parent.wait_for_signals(1));
    EXPECT_THAT(parent.signals(), SizeIs(1));
}

TEST_F(parent_of_script, Waits_for_signals_only_until_the_deadline) {
    ASSERT_TRUE(start());
    EXPECT_FALSE(parent.wait_for_signals(1, 10));
    EXPECT_FALSE(parent.wait_for_signal({1, ""}, 10));
}

TEST_F(parent_of_script, Loses_what_the_child_raises_before_it_serves_calls) {
    child.at_start().join_bus().emit(1, "lost").wait(100).emit(1, "lost as well");
    child.on_command(2).emit(1, "heard");
    ASSERT_TRUE(start());
    parent.call(2);
    EXPECT_TRUE(parent.wait_for_signals(1));
    EXPECT_THAT(parent.signals(), ElementsAre(raised_signal{1, "heard"}));
}

TEST_F(parent_of_script, Hears_of_no_other_child) {
    child.on_command(1).emit(1, "mine");
    scripted_parent other;
    ASSERT_TRUE(start());
    ASSERT_TRUE(other.start({child.program()}));
    other.call(1);
    EXPECT_TRUE(other.wait_for_signals(1));
    parent.call(1);
    EXPECT_TRUE(parent.wait_for_signals(1));
    EXPECT_THAT(parent.signals(), SizeIs(1));
}

TEST_F(parent_of_script, Has_all_last_words_when_the_child_has_ended) {
    child.on_command(1).flood(1, 500).quit(0);
    ASSERT_TRUE(start());
    parent.send(1);
    EXPECT_EQ(parent.wait_for_end(), 0);
    EXPECT_THAT(parent.signals(), SizeIs(500));
}

TEST_F(parent_of_script, Tells_exit_statuses_from_signals_and_from_life) {
    ASSERT_TRUE(start());
    EXPECT_EQ(parent.wait_for_end(10), scripted_parent::still_runs);
    EXPECT_EQ(parent.end_child(), -SIGTERM);
    EXPECT_EQ(parent.wait_for_end(), -SIGTERM);
    child.on_command(1).exit(7);
    ASSERT_TRUE(start());
    parent.send(1);
    EXPECT_EQ(parent.wait_for_end(), 7);
}

TEST_F(parent_of_script, Ends_a_child_that_is_stopped) {
    child.on_command(1).stop();
    ASSERT_TRUE(start());
    parent.send(1);
    ASSERT_TRUE(child.wait_for("command 1"));
    EXPECT_EQ(parent.end_child(), -SIGTERM);
}

TEST_F(parent_of_script, Kills_the_child_at_its_end) {
    child.at_start().ignore_sigterm();
    pid_t pid;
    {
        scripted_parent short_lived;
        ASSERT_TRUE(short_lived.start({child.program()}));
        pid = short_lived.pid();
    }
    EXPECT_NE(kill(pid, 0), 0);
}

TEST_F(parent_of_script, Kills_the_child_before_it_starts_another_one) {
    ASSERT_TRUE(start());
    const pid_t first = parent.pid();
    ASSERT_TRUE(start());
    EXPECT_NE(kill(first, 0), 0);
}

TEST_F(parent_of_shell, Gives_the_environment_that_a_bridge_gives) {
    const variable level("VASK_NEST_LV", "4"), own("METER", "of the test");
    parent.start_only({"/bin/sleep", "1000"}, {"METER=of the call", "VASK_NEST_LV=9"});
    ASSERT_TRUE(wait_until([&] {
        const std::vector<std::string> words = environment_of(parent.pid());
        return std::find(words.begin(), words.end(), "VASK_NEST_LV=9") != words.end();
    }));
    std::vector<std::string> found;
    for (const std::string& entry : environment_of(parent.pid())) {
        if (entry.compare(0, 6, "METER=") == 0 || entry.compare(0, 13, "VASK_NEST_LV=") == 0) {
            found.push_back(entry);
        }
    }
    EXPECT_THAT(found, ElementsAre("METER=of the test", "METER=of the call", "VASK_NEST_LV=9",
                                   "VASK_NEST_LV=5"));
}

TEST_F(parent_of_shell, Has_freed_memory_overwritten) {
    start("echo ready; exec sleep 1000");
    // A process that is about to run another program has none.
    EXPECT_TRUE(wait_until([&] {
        return testing::Value(environment_of(parent.pid()), Contains("MALLOC_PERTURB_=165"));
    }));
}

TEST_F(parent_of_shell, Hands_down_no_descriptor) {
    const int fd = open("/dev/zero", O_RDONLY);
    start("echo ready; exec sleep 1000");
    EXPECT_THAT(parent.resources().descriptors, Not(Contains("/dev/zero")));
    close(fd);
}

TEST_F(parent_of_shell, Sees_what_the_child_holds) {
    start("trap 'exec 7</dev/zero' USR1; echo ready; while :; do sleep 0.01; done");
    const resource_count before = parent.resources();
    EXPECT_THAT(before.descriptors, Not(Contains("/dev/zero")));
    parent.send_signal(SIGUSR1);
    EXPECT_TRUE(wait_until([&] {
        const std::string difference = before.difference(parent.resources());
        return difference.find("additional descriptor: /dev/zero\n") != std::string::npos;
    }));
}

TEST_F(parent_of_shell, Sees_a_zombie_of_the_child) {
    // A program that knows nothing of a child it has never started does not reap it.
    start("(until grep -q sleep /proc/$$/comm; do :; done) & echo ready; exec sleep 1000");
    const auto has_zombie = [&] {
        const std::vector<process_entry> processes = list_descendants(parent.pid());
        return processes.size() == 1 && processes[0].state == 'Z';
    };
    EXPECT_TRUE(wait_until(has_zombie));
    EXPECT_THAT(parent.resources().children, SizeIs(1));
}

TEST(bus_client, Takes_no_answer_for_that_of_a_call_that_waits_meanwhile) {
    static bus_client* caller = nullptr;
    static bool is_owned = false;
    bus_client client, silent;
    caller = &client;
    const auto call_meanwhile = [](gpointer) -> gboolean {
        is_owned = caller->is_owned(DBUS_SERVICE_DBUS);
        return G_SOURCE_REMOVE;
    };
    const message_ptr ping(dbus_message_new_method_call(silent.unique_name().c_str(), "/",
                                                        DBUS_INTERFACE_PEER, "Ping"));
    bus_reply reply;
    g_idle_add_full(G_PRIORITY_HIGH, call_meanwhile, nullptr, nullptr);

    EXPECT_FALSE(client.try_call(ping, short_msec, &reply));

    EXPECT_TRUE(is_owned);
    EXPECT_EQ(client.unexpected_replies(), 0);
}

TEST(bus_client, Waits_for_no_answer_when_the_bus_is_lost) {
    bus_client client;
    int bus = -1;
    ASSERT_TRUE(dbus_connection_get_unix_fd(client.connection(), &bus));
    shutdown(bus, SHUT_RDWR);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THROW(client.is_owned("com.example"), std::runtime_error);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

TEST(started_process, Has_ended_when_somebody_else_has_waited_for_it) {
    started_process process("true", {});
    EXPECT_EQ(waitpid(process.pid(), nullptr, 0), process.pid());
    EXPECT_TRUE(process.has_ended());
    EXPECT_EQ(process.wait_for_end(), -1000);
}

TEST(holds_no_more_than, Shows_what_has_changed) {
    const resource_count before = resource_count::take();
    const int fd = open("/dev/zero", O_RDONLY);
    const auto matcher = holds_no_more_than(before);
    testing::StringMatchResultListener listener;
    EXPECT_FALSE(testing::ExplainMatchResult(matcher, resource_count::take(), &listener));
    EXPECT_THAT(listener.str(), HasSubstr("additional descriptor: /dev/zero"));
    close(fd);
    EXPECT_THAT(resource_count::take(), matcher);
}

TEST(resource_count, Is_shown_in_a_few_words) {
    resource_count count;
    count.descriptors = {"/dev/null", "/dev/zero"};
    count.children = {"1 sleep"};
    EXPECT_EQ(testing::PrintToString(count), "2 descriptors and 1 children");
}
