// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A host with eight busy threads. Above all for the build with ThreadSanitizer, which ends a test
// at the first race.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <thread>

#include "bridge/recording_bridge.h"
#include "support/library_lock_state.h"
#include "support/log_socket.h"
#include "support/named_object.h"
#include "support/sanitizers.h"
#include "threads/busy_threads.h"
#include "vask_exec.h"
#include "vask_np_base.h"
#include "vask_shared_info.h"
#include "vask_test/fake_browser.h"
#include "vask_test/googletest.h"
#include "vask_test/log_catcher.h"
#include "vask_test/main_loop.h"

using namespace vask_test;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSubsetOf;
using testing::Not;
using testing::SizeIs;

namespace {

// It starts a program that finds names for its suppressions. Other builds count.
void accept_helper_of_sanitizer() {
#ifdef VASK_TEST_HAS_THREAD_SANITIZER
    leak_listener::accept_leftovers();
#endif
}

class busy_host : public testing::Test {
protected:
    // The first object comes before the threads.
    busy_host() : threads(std::make_unique<busy_threads>()) {}

    void TearDown() override {
        stop_threads();
        accept_helper_of_sanitizer();
    }

    void stop_threads() {
        if (threads) {
            EXPECT_THAT(threads->failures(), IsEmpty());
            threads.reset();
        }
    }

    shared_objects_removed cleanup;
    log_catcher log;
    named_object first{"first"};
    std::unique_ptr<busy_threads> threads;
};

class many_threads : public testing::Test {
protected:
    void TearDown() override { accept_helper_of_sanitizer(); }

    shared_objects_removed cleanup;
    named_object first{"first"};
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

int count_of(const std::string& text, const std::string& part) {
    int count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
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
    stop_threads();
    std::map<std::string, int> messages;
    for (const log_line& line : log.lines()) {
        if (line.name == "busy" && line.level == "INFO") {
            ++messages[line.text];
        } else {
            EXPECT_THAT(line.text, Not(HasSubstr("thread")));
        }
    }
    for (int i = 0; i < busy_threads::count; ++i) {
        const std::string thread = "thread " + std::to_string(i);
        EXPECT_GE(messages[thread + " is busy"], 3);
        EXPECT_GE(messages[thread + " says so"], 3);
    }
    EXPECT_THAT(messages, SizeIs(2 * busy_threads::count));
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

TEST_F(many_threads, Read_a_record_that_is_mapped) {
    vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1);
    in_threads(8, [](int) {
        for (int i = 0; i < 500; ++i) {
            EXPECT_EQ(vask_object::get_monitor_rotation(), VASK_MONITOR_ROTATION_1);
        }
    });
    vask_object::m_shared_info->unmap_shared_info(true);
}

TEST_F(many_threads, Set_a_record_that_is_mapped) {
    vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_0);
    in_threads(8, [](int number) {
        const auto rotation = static_cast<vask_monitor_rotation_type>(number % 4);
        for (int i = 0; i < 200; ++i) {
            EXPECT_TRUE(vask_object::set_monitor_rotation(rotation));
            EXPECT_LE(vask_object::get_monitor_rotation(), VASK_MONITOR_ROTATION_3);
        }
    });
    vask_object::m_shared_info->unmap_shared_info(true);
}

TEST_F(many_threads, Take_turns_with_a_semaphore) {
    in_threads(8, [](int) {
        for (int i = 0; i < 20; ++i) {
            EXPECT_TRUE(take_turn_with_semaphore("test_threads"));
        }
    });
    EXPECT_TRUE(vask_object::destroy_sem("test_threads"));
}

TEST_F(many_threads, Take_turns_with_an_object_in_shared_memory) {
    in_threads(8, [](int) {
        for (int i = 0; i < 10; ++i) {
            EXPECT_TRUE(take_turn_with_shared_object("threads"));
        }
    });
    EXPECT_TRUE(vask_shared_info().destroy_shm("threads"));
    EXPECT_TRUE(vask_object::destroy_sem(vask_shm_context("threads", 0).get_sem_name().c_str()));
}

TEST_F(many_threads, Send_each_their_own_messages_to_syslog) {
    const private_dev dev;
    if (!dev.is_mounted()) {
        GTEST_SKIP() << "needs the right to mount";
    }
    const log_socket daemon;
    setenv("VASK_SYSLOG", "1", 1);
    std::atomic<int> finished{0};
    std::string all;
    std::thread reader([&] { all = daemon.read_until([&] { return finished == 8; }); });
    in_threads(8, [&](int number) {
        const std::string name = "name" + std::to_string(number);
        for (int i = 0; i < 100; ++i) {
            vask_object::vask_p(name.c_str(), VASK_P_ERR, "%s", name.c_str());
        }
        ++finished;
    });
    reader.join();
    unsetenv("VASK_SYSLOG");
    for (int i = 0; i < 8; ++i) {
        const std::string name = "name" + std::to_string(i);
        EXPECT_EQ(count_of(all, name + "[" + std::to_string(getpid()) + "]: " + name + "\n"), 100);
    }
}

TEST_F(many_threads, Call_the_thread_of_the_plug_in) {
    vask_np_base base("plug-in");
    fake_browser browser;
    vask_np_base::NPNFuncs = browser.functions();
    std::atomic<int> calls{0};
    in_threads(8, [&](int) {
        for (int i = 0; i < 100; ++i) {
            base.NPN_PluginThreadAsyncCall(
                nullptr, [](void* data) { ++*static_cast<std::atomic<int>*>(data); }, &calls);
        }
    });
    EXPECT_EQ(calls, 0);
    browser.run_async_calls();
    EXPECT_EQ(calls, 800);
    vask_np_base::NPNFuncs = NPNetscapeFuncs();
}

TEST_F(many_threads, Format_each_their_own_text) {
    in_threads(8, [](int number) {
        const std::string digits(100, static_cast<char>('0' + number));
        for (int i = 0; i < 2000; ++i) {
            ASSERT_EQ(vask_object::vask_sprintf("%s", digits.c_str()), digits);
            ASSERT_EQ(vask_object::vask_snprintf("%s", digits.c_str()), digits);
        }
    });
}

TEST_F(many_threads, Decode_their_first_URI_at_once) {
    in_threads(8, [](int) { EXPECT_EQ(vask_object::file_uri_to_local_path("file:///%41"), "/A"); });
}
