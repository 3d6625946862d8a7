// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A host with eight busy threads. Above all for the build with ThreadSanitizer, which ends a test
// at the first race.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>

#include "bridge/recording_bridge.h"
#include "support/library_lock_state.h"
#include "support/named_object.h"
#include "support/sanitizers.h"
#include "threads/busy_threads.h"
#include "vask_exec.h"
#include "vask_shared_info.h"
#include "vask_test/googletest.h"
#include "vask_test/log_catcher.h"
#include "vask_test/main_loop.h"

using namespace vask_test;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::IsSubsetOf;

namespace {

class busy_host : public testing::Test {
protected:
    // The first object comes before the threads.
    busy_host() : threads(std::make_unique<busy_threads>()) {}

    void TearDown() override {
        EXPECT_EQ(threads->failures(), 0);
        threads.reset();
#ifdef VASK_TEST_HAS_THREAD_SANITIZER
        // It starts a program that finds names for its suppressions. Other builds count.
        leak_listener::accept_leftovers();
#endif
    }

    shared_objects_removed cleanup;
    log_catcher log;
    named_object first{"first"};
    std::unique_ptr<busy_threads> threads;
};

/** What a process has open. */
std::set<int> descriptors_of(pid_t pid) {
    std::set<int> numbers;
    const std::string directory = "/proc/" + std::to_string(pid) + "/fd";
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        numbers.insert(std::stoi(entry.path().filename()));
    }
    return numbers;
}

class deferred : public vask_exec {
public:
    void start() {
        add_timer_exec_func(1, static_cast<vask_exec_func>(&deferred::count), nullptr);
        add_idle_exec_func(static_cast<vask_exec_func>(&deferred::count), nullptr);
    }
    int calls = 0;

private:
    void count(void*) { ++calls; }
};

}  // namespace

TEST_F(busy_host, Serves_one_child_after_the_other) {
    recording_bridge bridge;
    for (std::size_t round = 1; round <= 4; ++round) {
        bridge.init_proxy();
        ASSERT_TRUE(bridge.spawn_and_meet());
        EXPECT_EQ(bridge.ask(CHILD_ECHO, "hello"), "hello");
        bridge.ask(CHILD_RAISE_SIGNAL, "7 data");
        EXPECT_TRUE(bridge.wait_for_signals(round));
        bridge.terminate_worker();
        EXPECT_TRUE(bridge.wait_for_ends(round));
    }
    EXPECT_THAT(bridge.ends, Each(main_worker_exit));
}

TEST_F(busy_host, Gives_its_children_no_descriptor_of_another_thread) {
    for (int i = 0; i < 10; ++i) {
        int pid = 0;
        const strlist argv = {"/bin/sleep", "1000"};
        const strlist envs;
        ASSERT_TRUE(vask_object::spawn_async(&argv, &envs, &pid, nullptr));
        // What it has inherited it keeps. While it is loaded it opens libraries and closes them
        // again.
        EXPECT_TRUE(wait_until_without_loop([&] {
            return testing::Value(descriptors_of(pid), IsSubsetOf({0, 1, 2}));
        })) << testing::PrintToString(descriptors_of(pid));
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

TEST_F(busy_host, Passes_its_whole_environment_on) {
    recording_bridge bridge;
    ASSERT_TRUE(bridge.spawn_and_meet());
    const std::string environment = bridge.ask(CHILD_REPORT_ENVIRONMENT);
    for (int i = 0; i < busy_threads::count; ++i) {
        EXPECT_THAT(environment, HasSubstr("VASK_TEST_BUSY_" + std::to_string(i) + "=a"));
    }
    EXPECT_THAT(environment, HasSubstr("VASK_NEST_LV=1\n"));
}

TEST_F(busy_host, Has_its_deferred_calls_made) {
    deferred calls;
    for (int round = 1; round <= 20; ++round) {
        calls.start();
        EXPECT_TRUE(wait_until([&] { return calls.calls == 2 * round; }));
    }
}

TEST_F(busy_host, Uses_the_record_on_its_main_thread) {
    for (int round = 0; round < 200; ++round) {
        const auto rotation = static_cast<vask_monitor_rotation_type>(round % 4);
        EXPECT_TRUE(vask_object::set_monitor_rotation(rotation));
        EXPECT_EQ(vask_object::get_monitor_rotation(), rotation);
    }
    EXPECT_TRUE(vask_object::m_shared_info->unmap_shared_info(true));
}

TEST_F(busy_host, Registers_and_looks_up_on_its_main_thread) {
    named_object own("host");
    for (unsigned long key = 1; key <= 50; ++key) {
        EXPECT_TRUE(own.store_pid_to_shm(key));
        EXPECT_THAT(own.find_stored_pid_from_shm("host"), Contains(std::make_pair(key, getpid())));
    }
}

TEST_F(busy_host, Writes_whole_lines) {
    threads->wait_for_rounds(3);
    for (const log_line& line : log.lines()) {
        if (line.name == "busy") {
            EXPECT_THAT(line.text, testing::MatchesRegex("thread [0-7] is busy"));
        }
    }
}

// The child ends with another status when one of its threads has failed or raced.
TEST(busy_child, Answers_signals_and_ends) {
    const shared_objects_removed cleanup;
    const log_catcher log;
    recording_bridge bridge;
    strlist argv = {VASK_TEST_PROGRAM_DIR "/threads_child"};
    strlist envs;
    bridge.spawn(argv, envs);
    ASSERT_TRUE(bridge.wait_until_met());
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(bridge.ask(1, std::to_string(i)), std::to_string(i));
    }
    EXPECT_TRUE(bridge.wait_for_signals(50));
    bridge.ask(2);
    siginfo_t end = {};
    waitid(P_PID, static_cast<id_t>(bridge.get_child_pid()), &end, WEXITED | WNOWAIT);
    EXPECT_EQ(end.si_code, CLD_EXITED);
    EXPECT_EQ(end.si_status, 0);
    EXPECT_TRUE(bridge.wait_for_ends(1));
}

TEST(many_threads, Read_a_record_that_is_mapped) {
    vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1);
    in_threads(8, [](int) {
        for (int i = 0; i < 500; ++i) {
            EXPECT_EQ(vask_object::get_monitor_rotation(), VASK_MONITOR_ROTATION_1);
        }
    });
    vask_object::m_shared_info->unmap_shared_info(true);
}

TEST(many_threads, Format_each_their_own_text) {
    in_threads(8, [](int number) {
        const std::string digits(100, static_cast<char>('0' + number));
        for (int i = 0; i < 2000; ++i) {
            ASSERT_EQ(vask_object::vask_sprintf("%s", digits.c_str()), digits);
            ASSERT_EQ(vask_object::vask_snprintf("%s", digits.c_str()), digits);
        }
    });
}

TEST(many_threads, Decode_their_first_URI_at_once) {
    in_threads(8, [](int) { EXPECT_EQ(vask_object::file_uri_to_local_path("file:///%41"), "/A"); });
}
