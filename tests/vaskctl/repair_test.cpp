// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "running_system.h"
#include "support/forked_process.h"
#include "support/idle_process.h"
#include "support/library_lock_state.h"
#include "support/named_object.h"
#include "support/registry_object.h"
#include "support/shared_objects.h"
#include "support/system_call_mark.h"
#include "support/system_calls.h"
#include "vask_object.h"
#include "vask_test/main_loop.h"
#include "vask_test/process_list.h"
#include "vask_test/timeout_factor.h"

using namespace vask_test;
using testing::HasSubstr;

namespace {

constexpr char record_sem[] = "vask_shm_context_sem_vask_shared_info";
constexpr char left[] =
    "  left: cannot be known: whether a process outside of this /proc holds it, or one waits for "
    "itself\n";

class vaskctl_repair : public running_system {
protected:
    ~vaskctl_repair() override { vask_object::m_shared_info->unmap_shared_info(false); }

    const shared_object record{"vask_shared_info"};
};

// Kills the one child of this process.
void kill_traced_child() {
    for (const process_entry& process : list_processes()) {
        if (process.parent == getpid()) {
            kill(process.pid, SIGKILL);
        }
    }
}

double seconds_for(const std::function<void()>& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// Kills a process before each of its system calls in turn, and repairs what it leaves behind. Gives
// the number of places where that was needed.
int repair_after_each_call(const std::function<void()>& action,
                           const std::function<void()>& begin_anew,
                           const std::function<void()>& check) {
    int repaired = 0;
    for (int call = 0;; ++call) {
        begin_anew();
        const interrupted_run run = interrupt_before_call(
            call,
            [&action] {
                system_call_mark::begin();
                action();
            },
            kill_traced_child);
        if (!run.reached) {
            return repaired;
        }
        const bool is_broken = run_tool({"status"}).status != 0;
        repaired += is_broken ? 1 : 0;
        EXPECT_EQ(run_tool({"repair", "--yes"}).status, 0) << "killed before call " << call;
        const tool_result after = run_tool({"status"});
        EXPECT_EQ(after.status, 0) << after.output << "killed before call " << call;
        check();
    }
}

}  // namespace

TEST_F(vaskctl_repair, Has_nothing_to_do_in_a_healthy_system) {
    const auto child = start_child("7");
    vask_object::get_monitor_rotation();
    EXPECT_EQ(run_tool({"repair", "--yes"}), (tool_result{0, "There is nothing to repair.\n", ""}));
    EXPECT_EQ(run_tool({"repair", "--json", "--yes"}), (tool_result{0, "", ""}));
}

TEST_F(vaskctl_repair, Gives_back_the_lock_of_a_dead_holder) {
    leave_sem_to_a_dead_holder("vask_shm_lock");
    EXPECT_EQ(run_tool({"repair", "--yes"}),
              (tool_result{0,
                           "library-lock\n"
                           "  seen: it is taken, and nobody has it mapped\n"
                           "  to do: give the semaphore back\n"
                           "  done: gave the semaphore back\n" +
                               std::string(left),
                           ""}));
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_F(vaskctl_repair, Only_shows_what_it_would_do_in_a_dry_run) {
    leave_sem_to_a_dead_holder("vask_shm_lock");
    EXPECT_EQ(run_tool({"repair", "--dry-run"}),
              (tool_result{1,
                           "library-lock\n"
                           "  seen: it is taken, and nobody has it mapped\n"
                           "  to do: give the semaphore back\n" +
                               std::string(left),
                           ""}));
    EXPECT_EQ(library_lock::value(), 0);
}

TEST_F(vaskctl_repair, Asks_before_it_acts) {
    leave_sem_to_a_dead_holder("vask_shm_lock");
    tool_setting answer;
    for (const char* no : {"n\n", "", "never\n"}) {
        answer.input = no;
        const tool_result result = run_tool({"repair"}, answer);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.output, HasSubstr("Repair library-lock? [y/N] "));
        EXPECT_EQ(library_lock::value(), 0);
    }
    answer.input = "y\n";
    EXPECT_EQ(run_tool({"repair"}, answer).status, 0);
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_F(vaskctl_repair, Leaves_the_lock_to_a_holder_that_lives) {
    living_lock_holder holder;
    kill(holder.pid(), SIGSTOP);
    const tool_result result = run_tool({"repair", "--yes"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("seen: it is taken, and may be held by "));
    EXPECT_THAT(result.output, Not(HasSubstr("done")));
    EXPECT_EQ(library_lock::value(), 0);
}

TEST_F(vaskctl_repair, Lets_those_go_on_who_wait_for_a_record) {
    run_tool({"record", "set", "monitor-rotation", "1"});
    leave_sem_to_a_dead_holder(record_sem);
    forked_process waiter([] {
        const bool is_set = vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_2);
        return is_set ? 0 : 1;
    });
    EXPECT_TRUE(wait_until([] {
        return run_tool({"repair", "--yes", "shared-record"}).status == 0;
    }));
    EXPECT_EQ(waiter.wait_for_end(), 0);
    EXPECT_EQ(record.int_at(0), 2);
    EXPECT_EQ(record.sem_value(), 1);
}

TEST_F(vaskctl_repair, Never_lets_two_into_a_record_that_is_in_use) {
    run_tool({"record", "set", "monitor-rotation", "1"});
    const auto use = [] {
        while (true) {
            vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1);
        }
        return 0;
    };
    const forked_process first(use);
    const forked_process second(use);
    for (int i = 0; i < 20; ++i) {
        run_tool({"repair", "--yes"});
        ASSERT_LE(record.sem_value(), 1);
    }
}

// Of a process whose first thread has ended /proc/PID/maps is empty, and its state is that of a
// zombie.
TEST_F(vaskctl_repair, Leaves_a_record_and_a_key_to_threads_that_have_outlived_the_first) {
    run_tool({"record", "set", "monitor-rotation", "1"});
    const shared_value<std::atomic<bool>> holds;
    const forked_process holder([&holds]() -> int {
        std::thread([&holds] {
            vask_object::m_shared_info->map_shared_info(true);
            *holds = vask_object::m_shared_info->lock_shared_info();
            wait_for_a_signal();
        }).detach();
        return static_cast<int>(syscall(SYS_exit, 0));  // only of this thread
    });
    registry_object("program").append(holder.pid(), 7);
    ASSERT_TRUE(wait_until_without_loop([&holds] { return holds->load(); }));
    ASSERT_TRUE(wait_until_zombie(holder.pid()));
    const tool_result result = run_tool({"repair", "--yes"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("  seen: it is taken, and may be held by "));
    EXPECT_EQ(record.sem_value(), 0);
    EXPECT_THAT(run_tool({"status"}).output,
                HasSubstr("    key 7  pid " + std::to_string(holder.pid())));
    EXPECT_THAT(result.output, testing::Not(HasSubstr("registry:program")));
}

TEST_F(vaskctl_repair, Gives_nothing_back_where_other_users_are_invisible) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root has the rights to become somebody else";
    }
    run_tool({"record", "set", "monitor-rotation", "1"});
    std::filesystem::permissions("/dev/shm/sem." + std::string(record_sem),
                                 std::filesystem::perms(0666));
    leave_sem_to_a_dead_holder(record_sem);
    tool_setting nobody;
    nobody.user = 65534;
    nobody.hides_processes = true;
    const tool_result result = run_tool({"repair", "--yes", "shared-record"}, nobody);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output,
                HasSubstr("  seen: it is taken, and the processes of other users cannot be looked "
                          "into: ask again as root\n"));
    EXPECT_EQ(record.sem_value(), 0);
}

TEST_F(vaskctl_repair, Promises_nothing_of_what_is_no_regular_file) {
    std::filesystem::create_directory("/dev/shm/vask_proc_pid_program");
    ASSERT_EQ(mkfifo("/dev/shm/vask_shm_context_shm_vask_shared_info", 0644), 0);
    const std::string output = run_tool({"repair", "--dry-run"}).output;
    EXPECT_THAT(output, HasSubstr("  left: it is none of the library's: remove it by hand\n"));
    EXPECT_THAT(output, testing::Not(HasSubstr("registration")));
    EXPECT_THAT(output, testing::Not(HasSubstr("to do")));
}

TEST_F(vaskctl_repair, By_two_at_once_gives_a_semaphore_back_once) {
    for (int i = 0; i < 5; ++i) {
        leave_sem_to_a_dead_holder("vask_shm_lock");
        const forked_process other([] { return run_tool({"repair", "--yes"}).status; });
        run_tool({"repair", "--yes"});
        const_cast<forked_process&>(other).wait_for_end();
        ASSERT_EQ(library_lock::value(), 1);
    }
}

TEST_F(vaskctl_repair, Drops_the_keys_of_a_zombie_and_of_a_stranger) {
    const auto child = start_child("7");
    const auto other = start_child("9");
    child->send(SIGKILL);
    ASSERT_TRUE(wait_until_zombie(child->pid()));
    const idle_process stranger("wanted_child");
    registry_object("wanted_child").append(stranger.pid(), 8);
    const tool_result result = run_tool({"repair", "--yes", "registry:wanted_child"});
    EXPECT_EQ(result.status, 0);
    const std::string text =
        "  to do: drop key 7 of process $1\n"
        "  to do: drop key 8 of process $2\n"
        "  done: dropped key 7 of process $1\n"
        "  done: dropped key 8 of process $2\n"
        "  left: process $1 stays a zombie until its parent reaps it or ends\n";
    EXPECT_THAT(result.output, testing::EndsWith(with_pids(text, {child->pid(), stranger.pid()})));
    const vask_object looker;
    EXPECT_THAT(looker.find_stored_pid_from_shm("wanted_child"),
                testing::ElementsAre(testing::Pair(9, other->pid())));
}

TEST_F(vaskctl_repair, Ends_the_change_of_a_dead_writer) {
    registry_object bytes("program");
    bytes.append(getpid(), 1);
    bytes.set_sequence(3);
    EXPECT_EQ(run_tool({"repair", "--yes"}).status, 0);
    EXPECT_EQ(bytes.sequence(), 4U);
    const vask_object looker;
    EXPECT_LT(seconds_for([&] { looker.find_stored_pid_from_shm("program"); }), 4);
}

TEST_F(vaskctl_repair, Removes_a_record_that_its_maker_has_not_given_a_size) {
    record.create({});
    leave_sem_to_a_dead_holder(record_sem);
    EXPECT_EQ(run_tool({"repair", "--yes"}).status, 0);
    EXPECT_FALSE(record.exists());
    EXPECT_EQ(vask_object::get_monitor_rotation(), VASK_MONITOR_ROTATION_NOT_SET);
}

TEST_F(vaskctl_repair, Knows_only_the_objects_that_there_are) {
    EXPECT_EQ(run_tool({"repair", "--yes", "library-lock"}),
              (tool_result{2, "",
                           "vaskctl: there is no object 'library-lock'; \"vaskctl status\" shows "
                           "what there is\n"}));
    EXPECT_EQ(run_tool({"repair", "--json"}).status, 2);
}

TEST_F(vaskctl_repair, Tells_what_it_did_in_json) {
    leave_sem_to_a_dead_holder("vask_shm_lock");
    const parsed_json json(run_tool({"repair", "--yes", "--json"}).output);
    EXPECT_EQ(json.at("object"), "library-lock");
    EXPECT_EQ(json.at("evidence/0"), "it is taken, and nobody has it mapped");
    EXPECT_EQ(json.at("steps/0"), "give the semaphore back");
    EXPECT_EQ(json.at("done/0"), "gave the semaphore back");
    EXPECT_EQ(json.at("failure"), "");
}

TEST_F(vaskctl_repair, Mends_what_a_registration_leaves_that_is_killed_anywhere) {
    const auto begin_anew = [] {
        for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
            std::filesystem::remove(entry.path());
        }
        registry_object("program").append(4000000, 5);
    };
    const auto action = [] {
        named_object object("program");
        object.store_pid_to_shm(50);
    };
    const int repaired = repair_after_each_call(action, begin_anew, [] {
        const double seconds = seconds_for([] {
            named_object object("program");
            EXPECT_TRUE(object.store_pid_to_shm(51));
        });
        EXPECT_LT(seconds, 4);
    });
    EXPECT_GT(repaired, 5);
}

TEST_F(vaskctl_repair, Mends_what_a_record_leaves_whose_maker_is_killed_anywhere) {
    const auto begin_anew = [] {
        vask_object::m_shared_info->unmap_shared_info(false);
        for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
            std::filesystem::remove(entry.path());
        }
    };
    const auto action = [] { vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1); };
    const int repaired = repair_after_each_call(action, begin_anew, [this] {
        EXPECT_TRUE(vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_2));
        EXPECT_EQ(record.int_at(0), 2);
    });
    EXPECT_GT(repaired, 3);
}
