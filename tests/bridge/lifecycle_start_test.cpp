// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include "bridge/lifecycle_support.h"
#include "support/interpose.h"

using namespace vask_test;

/** That no start of a child copies the memory of its parent. */
namespace {

int posix_spawns = 0;
int forks = 0;

typedef int spawn_function(pid_t*, const char*, const posix_spawn_file_actions_t*,
                           const posix_spawnattr_t*, char* const*, char* const*);

class bridge_spawn : public lifecycle_fixture {
protected:
    bridge_spawn() { forget(); }

    static void forget() {
        posix_spawns = 0;
        forks = 0;
    }

    /** What a child that the bridge starts finds open. */
    std::string descriptors_of_child(recording_bridge& bridge) {
        vask_object::print_msg_level = VASK_P_ERR;
        log.clear();
        const std::size_t count = bridge.ends.size() + 1;
        spawn_probe(bridge, {"descriptors"});
        EXPECT_TRUE(bridge.wait_for_ends(count));
        return log.text();
    }
};

}  // namespace

extern "C" int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                           const posix_spawnattr_t* attributes, char* const* argv,
                           char* const* envp) {
    ++posix_spawns;
    return next_function<spawn_function>("posix_spawn")(pid, path, actions, attributes, argv, envp);
}

extern "C" int posix_spawnp(pid_t* pid, const char* file, const posix_spawn_file_actions_t* actions,
                            const posix_spawnattr_t* attributes, char* const* argv,
                            char* const* envp) {
    ++posix_spawns;
    return next_function<spawn_function>("posix_spawnp")(pid, file, actions, attributes, argv,
                                                         envp);
}

extern "C" pid_t fork() noexcept {
    ++forks;
    return next_function<pid_t()>("fork")();
}

TEST_F(bridge_spawn, Does_not_fork_while_the_session_bus_is_open) {
    recording_bridge bridge;
    ASSERT_NE(bridge.m_bus_connection, nullptr);
    forget();
    spawn_probe(bridge, {"sleep"});
    EXPECT_EQ(posix_spawns, 1);
    EXPECT_EQ(forks, 0);
}

TEST_F(bridge_spawn, Does_not_fork_after_a_child_was_met_and_has_crashed) {
    recording_bridge bridge;
    ASSERT_TRUE(bridge.spawn_and_meet());
    kill(bridge.get_child_pid(), SIGKILL);
    ASSERT_TRUE(bridge.wait_for_ends(1));
    bridge.init_proxy();
    forget();
    spawn_probe(bridge, {"sleep"});
    EXPECT_EQ(posix_spawns, 1);
    EXPECT_EQ(forks, 0);
}

TEST_F(bridge_spawn, Does_not_fork_for_either_twin) {
    recording_bridge bridge;
    bridge.enable_twins_mode();
    forget();
    spawn_probe(bridge, {"sleep"});
    EXPECT_EQ(posix_spawns, 2);
    EXPECT_EQ(forks, 0);
}

TEST_F(bridge_spawn, Gives_the_child_the_standard_descriptors_only) {
    recording_bridge bridge;
    EXPECT_EQ(descriptors_of_child(bridge), "0 1 2 ");
    EXPECT_EQ(forks, 0);
}

TEST_F(bridge_spawn, Does_not_fork_beside_a_descriptor_that_would_be_inherited_and_closes_it) {
    const int descriptor = open("/dev/null", O_RDONLY);
    ASSERT_GT(descriptor, 2);
    recording_bridge bridge;
    forget();
    EXPECT_EQ(descriptors_of_child(bridge), "0 1 2 ");
    EXPECT_EQ(forks, 0);
    EXPECT_EQ(posix_spawns, 1);
    close(descriptor);
}

TEST_F(bridge_spawn, Lets_a_child_be_ended_whose_parent_ignores_and_blocks_SIGTERM) {
    signal(SIGTERM, SIG_IGN);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    recording_bridge bridge;
    forget();
    spawn_probe(bridge, {"sleep"});
    EXPECT_EQ(forks, 0);
    ASSERT_TRUE(wait_until_ready(1));
    const int pid = bridge.get_child_pid();
    bridge.terminate_worker();
    if (!bridge.vask_wait_child_exit(30000)) {
        kill(pid, SIGKILL);
        ADD_FAILURE() << "the child does not hear SIGTERM";
    }
}
