// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "running_system.h"
#include "support/forked_process.h"
#include "support/idle_process.h"
#include "support/registry_object.h"
#include "support/sanitizers.h"
#include "support/shared_objects.h"
#include "vask_object.h"
#include "vask_test/main_loop.h"
#include "vask_test/timeout_factor.h"

using namespace vask_test;
using testing::HasSubstr;

namespace {

constexpr char record_sem[] = "vask_shm_context_sem_vask_shared_info";

void replace_all(std::string& text, const std::string& from, const std::string& to) {
    for (std::size_t at; (at = text.find(from)) != std::string::npos;) {
        text.replace(at, from.size(), to);
    }
}

class vaskctl_status : public running_system {
protected:
    ~vaskctl_status() override { vask_object::m_shared_info->unmap_shared_info(false); }

    tool_result status() const { return run_tool({"status"}); }

    // The user of this test, as the tool names him.
    static std::string user() {
        const std::string text = run_tool({"status", "--json"}).output;
        return parsed_json(text).at("objects/0/files/0/owner");
    }

    // Objects are made with the modes of this umask.
    const mode_t m_umask = umask(022);
    const shared_object record{"vask_shared_info"};
};

// Another process that has the record mapped and does what it is told.
class record_user {
public:
    explicit record_user(const std::function<void()>& work)
        : m_process([this, work] {
              vask_object::get_monitor_rotation();
              *m_is_ready = true;
              work();
              return 0;
          }) {
        wait_until_without_loop([this] { return m_is_ready->load(); });
    }
    pid_t pid() const { return m_process.pid(); }
    void kill_now() { m_process.kill_now(); }

private:
    const shared_value<std::atomic<bool>> m_is_ready;
    forked_process m_process;
};

}  // namespace

TEST_F(vaskctl_status, Says_that_nothing_is_there) {
    EXPECT_EQ(status(), (tool_result{0,
                                     "There are no shared objects: nobody has registered or used "
                                     "the record.\n",
                                     ""}));
    EXPECT_EQ(run_tool({"status", "--no-legend"}), (tool_result{0, "", ""}));
    EXPECT_EQ(run_tool({"status", "--json"}),
              (tool_result{0, "{\"verdict\":\"healthy\",\"objects\":[]}\n", ""}));
}

TEST_F(vaskctl_status, Shows_everything_that_is_healthy) {
    const auto child = start_child("7");
    vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1);
    const std::string lines =
        "library-lock  healthy\n"
        "    /dev/shm/sem.vask_shm_lock  USER 0644  SIZE bytes  value 1\n"
        "registry:wanted_child  healthy\n"
        "    /dev/shm/vask_proc_pid_wanted_child  USER 0644  24 bytes\n"
        "    sequence 2  count 1\n"
        "    key 7  pid $1  wanted_child  running\n"
        "shared-record  healthy\n"
        "    /dev/shm/vask_shm_context_shm_vask_shared_info  USER 0644  2064 bytes  mapped by "
        "vaskctl_status_test $2\n"
        "    /dev/shm/sem.vask_shm_context_sem_vask_shared_info  USER 0644  SIZE bytes  value 1  "
        "mapped by vaskctl_status_test $2\n"
        "    monitor-rotation: 1\n"
        "    cpu-type: 0 (Not checked)\n"
        "    gpu-type: 0 (Not checked)\n"
        "    pseudo-portrait: 0 (no)\n";
    std::string expected = with_pids(lines, {child->pid(), getpid()});
    replace_all(expected, "USER", user());
    replace_all(expected, "SIZE", std::to_string(sizeof(sem_t)));
    EXPECT_EQ(status(), (tool_result{0, expected, ""}));
}

TEST_F(vaskctl_status, Takes_a_lock_at_0_that_nobody_has_mapped_for_abandoned) {
    leave_sem_to_a_dead_holder("vask_shm_lock");
    const tool_result result = status();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, testing::StartsWith("library-lock  abandoned\n"
                                                   "  it is taken, and nobody has it mapped\n"));
}

TEST_F(vaskctl_status, Takes_a_lock_for_held_whose_holder_lives) {
    living_lock_holder holder;
    const tool_result result = status();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("library-lock  held\n  it is taken, and may be held by "
                                         "vaskctl_status_test " +
                                         std::to_string(holder.pid()) + "\n"));
    EXPECT_THAT(result.output, HasSubstr("value 0  mapped by vaskctl_status_test " +
                                         std::to_string(holder.pid()) + "\n"));
    holder.kill_now();
    EXPECT_THAT(status().output, testing::StartsWith("library-lock  abandoned\n"));
}

TEST_F(vaskctl_status, Takes_a_record_for_abandoned_when_all_its_users_wait) {
    record_user waiter([] {
        // The holder has come and gone meanwhile.
        while (true) {
            vask_object::get_monitor_rotation();
        }
    });
    leave_sem_to_a_dead_holder(record_sem);
    const tool_result result = status();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output,
                testing::StartsWith("shared-record  abandoned\n  it is taken, and all who have it "
                                    "mapped wait for it: vaskctl_status_test " +
                                    std::to_string(waiter.pid()) + "\n"));
}

TEST_F(vaskctl_status, Does_not_take_a_record_for_abandoned_that_a_sleeper_may_hold) {
    record_user sleeper([] { wait_for_a_signal(); });
    leave_sem_to_a_dead_holder(record_sem);
    const tool_result result = status();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, testing::StartsWith("shared-record  held\n"));
    sleeper.kill_now();
    EXPECT_THAT(status().output, testing::StartsWith("shared-record  abandoned\n"));
}

TEST_F(vaskctl_status, Does_not_take_a_busy_record_for_abandoned) {
    const auto use = [] {
        while (true) {
            vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1);
        }
    };
    const record_user first(use);
    const record_user second(use);
    for (int i = 0; i < 20; ++i) {
        ASSERT_THAT(status().output, Not(HasSubstr("abandoned")));
    }
}

TEST_F(vaskctl_status, Finds_a_zombie_and_a_stranger_among_the_registered) {
    const auto child = start_child("7");
    child->send(SIGKILL);
    ASSERT_TRUE(wait_until_zombie(child->pid()));
    const idle_process stranger("wanted_child");
    registry_object("wanted_child").append(stranger.pid(), 8);
    const tool_result result = status();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(
        result.output,
        HasSubstr(with_pids("registry:wanted_child  abandoned\n"
                            "  key 7 belongs to controller_chil $1, a zombie that "
                            "vaskctl_status_test $3 has not reaped: lookups still find it\n"
                            "  key 8 belongs to wanted_child $2, which is not the process that "
                            "registered: lookups find a stranger\n",
                            {child->pid(), stranger.pid(), getpid()})));
    EXPECT_THAT(result.output, HasSubstr("  controller_chil  zombie\n"));
    EXPECT_THAT(result.output, HasSubstr("  wanted_child  recycled\n"));
}

TEST_F(vaskctl_status, Finds_an_entry_whose_number_is_a_thread_by_now) {
    pid_t thread = 0;
    std::atomic<bool> is_over{false};
    std::thread sleeper([&] {
        __atomic_store_n(&thread, gettid(), __ATOMIC_SEQ_CST);
        while (!is_over) {
            usleep(1000);
        }
    });
    while (__atomic_load_n(&thread, __ATOMIC_SEQ_CST) == 0) {
        usleep(1000);
    }
    registry_object("program").append(thread, 8);
    EXPECT_THAT(status().output, HasSubstr("  -  recycled\n"));
    is_over = true;
    sleeper.join();
}

TEST_F(vaskctl_status, Takes_gone_processes_in_a_registry_for_ordinary) {
    registry_object("program").append(4000000, 5);
    const tool_result result = status();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("    key 5  pid 4000000  -  gone\n"));
}

TEST_F(vaskctl_status, Finds_a_registry_whose_writer_has_died) {
    registry_object bytes("program");
    bytes.append(getpid(), 1);
    bytes.set_sequence(3);
    EXPECT_THAT(status().output,
                testing::StartsWith("registry:program  abandoned\n  its writer has died in the "
                                    "middle: every lookup takes 5 seconds, until the next "
                                    "registration under this name\n"));
}

TEST_F(vaskctl_status, Distrusts_what_strangers_have_made) {
    registry_object counted("a_count");
    counted.append(getpid(), 1);
    counted.set_count(2000000000);
    registry_object("b_short").resize(5);
    registry_object negative("c_negative");
    negative.append(getpid(), 1);
    negative.set_count(-3);
    ASSERT_EQ(mkfifo("/dev/shm/vask_proc_pid_d_pipe", 0644), 0);
    std::filesystem::create_symlink("/etc/passwd", "/dev/shm/vask_proc_pid_e_link");
    registry_object("f_empty").resize(0);
    std::filesystem::create_directory("/dev/shm/sem.vask_shm_lock");
    record.create(std::vector<unsigned char>(2064, 0xff));
    record.create_sem(2);
    const tool_result result = status();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("library-lock  damaged\n  its semaphore is not a regular "
                                         "file\n"));
    EXPECT_THAT(result.output, HasSubstr("registry:a_count  damaged\n  it claims 2000000000 "
                                         "entries and has room for "));
    EXPECT_THAT(result.output,
                HasSubstr("registry:b_short  damaged\n  it is shorter than its header\n"));
    EXPECT_THAT(result.output, HasSubstr("registry:c_negative  damaged\n  it claims -3 entries "));
    EXPECT_THAT(result.output, HasSubstr("registry:d_pipe  damaged\n  it is not a regular file\n"));
    EXPECT_THAT(result.output, HasSubstr("registry:e_link  damaged\n  it is not a regular file\n"));
    EXPECT_THAT(result.output, HasSubstr("registry:f_empty  healthy\n"));
    EXPECT_THAT(result.output, HasSubstr("shared-record  damaged\n  its semaphore was given back "
                                         "once too often, and lets 2 in at the same time\n"
                                         "  monitor-rotation is -1, which means nothing\n"));
}

TEST_F(vaskctl_status, Counts_a_semaphore_as_the_processes_do_that_take_it) {
    record.create_sem(1);
    std::fstream("/dev/shm/sem." + std::string(record_sem), std::ios::in | std::ios::out)
        << "\xff\xff\xff\xff";
    // Where words have 32 bits, one of them says whether somebody waits.
    const std::string value = sizeof(long) > sizeof(int) ? "4294967295" : "2147483647";
    EXPECT_THAT(status().output, HasSubstr("and lets " + value + " in at the same time\n"));
}

TEST_F(vaskctl_status, Finds_a_record_that_its_users_do_not_share) {
    vask_object::get_monitor_rotation();
    record.remove();
    record.remove_sem();
    run_tool({"record", "set", "monitor-rotation", "1"});
    EXPECT_THAT(status().output,
                testing::StartsWith("shared-record  damaged\n  vaskctl_status_test " +
                                    std::to_string(getpid()) +
                                    " uses one that was removed, and shares nothing with those "
                                    "who came later: restart it\n"));
}

TEST_F(vaskctl_status, Says_whose_processes_it_cannot_look_into) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root has the rights to become somebody else";
    }
    leave_sem_to_a_dead_holder("vask_shm_lock");
    tool_setting nobody;
    nobody.user = 65534;
    const tool_result result = run_tool({"status"}, nobody);
    EXPECT_EQ(result.status, 7);
    EXPECT_THAT(result.output,
                testing::StartsWith("library-lock  unknown\n  it is taken, and the processes of "
                                    "root cannot be looked into: ask again as root\n"));
}

TEST_F(vaskctl_status, Of_200_processes_needs_less_than_half_a_second) {
#ifdef VASK_TEST_HAS_ADDRESS_SANITIZER
    GTEST_SKIP() << "A sanitizer needs more.";
#endif
    std::vector<std::unique_ptr<record_user>> users;
    for (int i = 0; i < 200; ++i) {
        users.push_back(std::make_unique<record_user>([] { wait_for_a_signal(); }));
        registry_object("program" + std::to_string(i % 10)).append(users.back()->pid(), i + 1U);
    }
    EXPECT_EQ(run_tool({"status", "--json"}).status, 0);
    // Not by the clock: the machine may be busy with something else.
    const double before = processor_seconds_of_tools();
    run_tool({"status"});
    EXPECT_LT(processor_seconds_of_tools() - before, 0.5 * timeout_factor());
}

TEST_F(vaskctl_status, Is_one_line_of_json) {
    const auto child = start_child("7");
    vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1);
    const tool_result result = run_tool({"status", "--json"});
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1);
    const parsed_json json(result.output);
    EXPECT_EQ(json.at("verdict"), "healthy");
    ASSERT_EQ(json.size_of("objects"), 3U);
    EXPECT_EQ(json.at("objects/0/object"), "library-lock");
    EXPECT_EQ(json.at("objects/0/files/0/value"), "1");
    EXPECT_EQ(json.at("objects/1/entries/0/pid"), std::to_string(child->pid()));
    EXPECT_EQ(json.at("objects/1/entries/0/key"), "7");
    EXPECT_EQ(json.at("objects/2/files/0/mapped_by/0"), std::to_string(getpid()));
    EXPECT_EQ(json.at("objects/2/fields/monitor-rotation"), "1");
}
