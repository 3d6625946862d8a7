// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <memory>
#include <tuple>

#include "bridge/lifecycle_support.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

/** Whatever a parent does with its own signals, it must end its child and hear of its end. */
namespace {

enum class treatment { ordinary, blocked, ignored };

const char* name_of(treatment how) {
    switch (how) {
        case treatment::blocked:
            return "blocked";
        case treatment::ignored:
            return "ignored";
        default:
            return "ordinary";
    }
}

void treat(int signal_number, treatment how) {
    if (how == treatment::ignored) {
        signal(signal_number, SIG_IGN);
    } else if (how == treatment::blocked) {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, signal_number);
        sigprocmask(SIG_BLOCK, &set, nullptr);
    }
}

bool is_blocked(int signal_number) {
    sigset_t set;
    sigprocmask(SIG_SETMASK, nullptr, &set);
    return sigismember(&set, signal_number) == 1;
}

typedef std::tuple<treatment, treatment> treatments;

std::string name_of_treatments(const testing::TestParamInfo<treatments>& info) {
    return std::string("SIGTERM_") + name_of(std::get<0>(info.param)) + "_SIGCHLD_" +
           name_of(std::get<1>(info.param));
}

class parent_with_signals : public lifecycle_fixture,
                            public testing::WithParamInterface<treatments> {
protected:
    void SetUp() override {
        treat(SIGTERM, std::get<0>(GetParam()));
        treat(SIGCHLD, std::get<1>(GetParam()));
    }
};

INSTANTIATE_TEST_SUITE_P(
    all, parent_with_signals,
    testing::Combine(testing::Values(treatment::ordinary, treatment::blocked, treatment::ignored),
                     testing::Values(treatment::ordinary, treatment::blocked, treatment::ignored)),
    name_of_treatments);

}  // namespace

TEST_P(parent_with_signals, Ends_its_child_and_hears_of_the_exit) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const int pid = bridge.get_child_pid();
    bridge.terminate_worker();
    // Not without end in the destructor, should this fail.
    if (!bridge.wait_for_ends(1)) {
        kill(pid, SIGKILL);
        FAIL() << "no end was reported";
    }
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_exit));
    EXPECT_TRUE(is_gone(pid));
}

TEST_P(parent_with_signals, Ends_its_child_and_waits_for_it) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const int pid = bridge.get_child_pid();
    bridge.terminate_worker();
    if (!bridge.vask_wait_child_exit(30000)) {
        kill(pid, SIGKILL);
        FAIL() << "the child lives";
    }
    EXPECT_TRUE(is_gone(pid));
    let_child_watches_run();
    EXPECT_THAT(bridge.ends, IsEmpty());
}

TEST_P(parent_with_signals, Hears_of_a_crash) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const int pid = bridge.get_child_pid();
    kill(pid, SIGKILL);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_crash));
    EXPECT_TRUE(is_gone(pid));
}

TEST_P(parent_with_signals, Hears_of_the_end_of_children_that_end_at_once) {
    recording_bridge bridge(true);
    strlist argv = {"/bin/true"};
    strlist envs;
    for (int i = 0; i < 50; ++i) {
        bridge.ends.clear();
        bridge.spawn(argv, envs);
        ASSERT_TRUE(bridge.wait_for_ends(1)) << "child number " << i;
        ASSERT_THAT(bridge.ends, ElementsAre(main_worker_crash));
        ASSERT_EQ(bridge.main_worker(), nullptr);
    }
}

TEST_P(parent_with_signals, Finds_its_own_mask_unchanged) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    kill(bridge.get_child_pid(), SIGKILL);
    EXPECT_EQ(is_blocked(SIGTERM), std::get<0>(GetParam()) == treatment::blocked);
    EXPECT_EQ(is_blocked(SIGCHLD), std::get<1>(GetParam()) == treatment::blocked);
    ASSERT_TRUE(bridge.wait_for_ends(1));
}

TEST_P(parent_with_signals, Finds_what_it_has_ordered_for_SIGTERM_unchanged) {
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    kill(bridge.get_child_pid(), SIGKILL);
    struct sigaction action;
    sigaction(SIGTERM, nullptr, &action);
    EXPECT_EQ(action.sa_handler == SIG_IGN, std::get<0>(GetParam()) == treatment::ignored);
    ASSERT_TRUE(bridge.wait_for_ends(1));
}

TEST_P(parent_with_signals, Changes_them_only_after_the_start_and_hears_of_the_end_all_the_same) {
    signal(SIGTERM, SIG_DFL);
    signal(SIGCHLD, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    recording_bridge bridge(true);
    spawn_probe(bridge, {"sleep"});
    const int pid = bridge.get_child_pid();
    treat(SIGTERM, std::get<0>(GetParam()));
    treat(SIGCHLD, std::get<1>(GetParam()));
    bridge.terminate_worker();
    ASSERT_TRUE(bridge.wait_for_ends(1));
    EXPECT_THAT(bridge.ends, ElementsAre(main_worker_exit));
    EXPECT_TRUE(is_gone(pid));
}
