// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The record, or another object, is removed while others wait for its semaphore.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "shared_info/shared_info_faults.h"
#include "support/forked_process.h"
#include "support/shared_objects.h"
#include "vask_object.h"
#include "vask_test/main_loop.h"
#include "vask_test/process_list.h"
#include "vask_test/timeout_factor.h"

using namespace vask_test;
using shared_info_faults::now;
using shared_info_faults::seen;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using clock_type = std::chrono::steady_clock;

constexpr char name[] = "thing";
constexpr unsigned long size = 5000;

class record_removal : public shared_info_test {
protected:
    static bool waits(const forked_process& process) {
        return wait_until_without_loop([&process] {
            return kernel_position(process.pid()).find("futex") != std::string::npos;
        });
    }

    /** The semaphore that has the name now, for as long as the test runs. */
    static sem_t* open_sem(const char* object) { return vask_object::get_sem_for_shm(object); }

    static int map_and_unmap() {
        vask_shm_context* context = vask_shared_info::map_shm(name, size, true);
        if (!context) {
            return 1;
        }
        const int value = static_cast<unsigned char*>(context->get_addr())[0];
        const bool created = context->get_created();
        vask_object::post_named_sem(context->get_sem());
        vask_shared_info::unmap_shm(context);
        return created ? 2 : value;
    }

    shared_info_faults::healed healed;
    const shared_object thing{name};
};

}  // namespace

TEST_F(record_removal, Sends_who_waited_to_those_who_have_come_later) {
    vask_shm_context* removed = vask_shared_info::map_shm(name, size, true);
    forked_process late([] { return map_and_unmap(); });
    ASSERT_TRUE(waits(late));
    thing.remove();
    thing.remove_sem();
    vask_shm_context* present = vask_shared_info::map_shm(name, size, true);
    ASSERT_TRUE(present->get_created());

    vask_object::post_named_sem(removed->get_sem());
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(late.is_running());
    static_cast<unsigned char*>(present->get_addr())[0] = 77;
    vask_object::post_named_sem(present->get_sem());

    EXPECT_EQ(late.wait_for_end(), 77);
    EXPECT_EQ(thing.sem_value(), 1);
    int value_of_removed = 0;
    sem_getvalue(removed->get_sem(), &value_of_removed);
    EXPECT_EQ(value_of_removed, 1);
    EXPECT_THAT(log.lines(), IsEmpty());
    vask_shared_info::unmap_shm(removed);
    vask_shared_info::unmap_shm(present);
}

TEST_F(record_removal, Fails_silently_who_waited_and_may_not_create) {
    vask_shm_context* removed = vask_shared_info::map_shm(name, size, true);
    forked_process late([] { return vask_shared_info::map_shm(name, size, false) ? 1 : 0; });
    ASSERT_TRUE(waits(late));
    thing.remove();
    thing.remove_sem();
    vask_object::post_named_sem(removed->get_sem());
    EXPECT_EQ(late.wait_for_end(), 0);
    EXPECT_FALSE(thing.sem_exists());
    EXPECT_THAT(log.lines(), IsEmpty());
    vask_shared_info::unmap_shm(removed);
}

TEST_F(record_removal, Waits_for_who_holds_the_semaphore) {
    own_shared_info info;
    info.map_shared_info(true);
    ASSERT_TRUE(info.lock_shared_info());
    sem_t* sem = open_sem("vask_shared_info");
    forked_process remover([&info] {
        now.is_patient = true;
        info.unmap_shared_info(true);
        return 0;
    });
    ASSERT_TRUE(waits(remover));
    EXPECT_TRUE(record.exists());
    EXPECT_TRUE(record.sem_exists());
    info.unlock_shared_info();
    EXPECT_EQ(remover.wait_for_end(), 0);
    EXPECT_FALSE(record.exists());
    EXPECT_FALSE(record.sem_exists());
    int value = 0;
    sem_getvalue(sem, &value);
    EXPECT_EQ(value, 1);
    vask_object::close_named_sem(sem);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(record_removal, Does_not_wait_for_ever_for_a_dead_holder) {
    own_shared_info info;
    info.map_shared_info(true);
    ASSERT_TRUE(info.lock_shared_info());
    const clock_type::time_point start = clock_type::now();
    EXPECT_TRUE(info.unmap_shared_info(true));
    const std::chrono::duration<double> elapsed = clock_type::now() - start;
    EXPECT_GE(elapsed.count(), 0.9);
    EXPECT_LE(elapsed.count(), 1 + 3 * timeout_factor());
    EXPECT_FALSE(record.exists());
    EXPECT_FALSE(record.sem_exists());
    EXPECT_EQ(info.get_monitor_rotation(), VASK_MONITOR_ROTATION_NOT_SET);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(record_removal, Frees_those_who_wait_for_a_dead_holder) {
    own_shared_info info;
    info.map_shared_info(true);
    ASSERT_TRUE(info.lock_shared_info());
    forked_process late([] { return own_shared_info().get_monitor_rotation(); });
    ASSERT_TRUE(waits(late));
    EXPECT_TRUE(info.unmap_shared_info(true));
    EXPECT_EQ(late.wait_for_end(), VASK_MONITOR_ROTATION_NOT_SET);
    EXPECT_EQ(record.sem_value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(record_removal, That_gives_a_dead_holder_up_takes_the_semaphore_that_has_come_meanwhile) {
    own_shared_info dead;
    dead.map_shared_info(true);
    ASSERT_TRUE(dead.lock_shared_info());
    forked_process remover([] {
        seen.sem_wait = 0;
        own_shared_info own;
        own.m_shared_info_ctx = new vask_shm_context("vask_shared_info", 2064);
        own.unmap_shared_info(true);
        return seen.sem_wait;
    });
    ASSERT_TRUE(waits(remover));
    ASSERT_EQ(kill(remover.pid(), SIGSTOP), 0);
    ASSERT_TRUE(record.sem_exists());
    record.remove();
    record.remove_sem();
    own_shared_info present;
    ASSERT_NE(present.map_shared_info(true), nullptr);
    kill(remover.pid(), SIGCONT);
    EXPECT_EQ(remover.wait_for_end(), 1);
    EXPECT_FALSE(record.exists());
    EXPECT_FALSE(record.sem_exists());
}

TEST_F(record_removal, That_has_waited_for_another_removal_turns_to_the_new_record) {
    own_shared_info info;
    info.map_shared_info(true);
    ASSERT_TRUE(info.lock_shared_info());
    forked_process remover([] {
        now.is_patient = true;
        own_shared_info own;
        own.m_shared_info_ctx = new vask_shm_context("vask_shared_info", 2064);
        own.unmap_shared_info(true);
        return 0;
    });
    ASSERT_TRUE(waits(remover));
    record.remove();
    record.remove_sem();
    own_shared_info later;
    later.map_shared_info(true);
    ASSERT_TRUE(later.lock_shared_info());

    info.unlock_shared_info();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(record.exists());
    EXPECT_TRUE(record.sem_exists());
    later.unlock_shared_info();
    EXPECT_EQ(remover.wait_for_end(), 0);
    EXPECT_FALSE(record.exists());
    EXPECT_FALSE(record.sem_exists());
}

TEST_F(record_removal, Tells_what_it_cannot_remove_after_the_semaphore_is_given_back) {
    own_shared_info info;
    info.map_shared_info(true);
    record.remove();
    std::string logged_at_post = "never";
    now.before_post = [&] { logged_at_post = log.text(); };
    EXPECT_TRUE(info.unmap_shared_info(true));
    now.before_post = nullptr;
    EXPECT_EQ(logged_at_post, "");
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to call shm_unlink(vask_shm_context_shm_"
                                               "vask_shared_info): No such file or directory")));
}

TEST_F(record_removal, Fails_no_first_access_of_others) {
    const shared_value<std::atomic<bool>> must_end;
    const shared_value<std::atomic<int>> accesses;
    std::vector<std::unique_ptr<forked_process>> processes;
    for (int i = 0; i < 6; ++i) {
        processes.push_back(std::make_unique<forked_process>([&must_end, &accesses, i] {
            own_shared_info own;
            while (!*must_end) {
                if (own.get_monitor_rotation() == VASK_MONITOR_ROTATION_ERROR ||
                    !own.set_monitor_rotation(VASK_MONITOR_ROTATION_1)) {
                    return 1;
                }
                ++*accesses;
                own.unmap_shared_info(i % 2 == 0);
            }
            return 0;
        }));
    }
    std::this_thread::sleep_for(std::chrono::seconds(3));
    *must_end = true;
    for (const auto& process : processes) {
        EXPECT_EQ(process->wait_for_end(), 0);
    }
    RecordProperty("accesses", *accesses);
    // Two may remove the same record, and then the second one says so.
    for (const log_line& line : log.lines()) {
        EXPECT_THAT(line.text, testing::HasSubstr("Failed to call shm_unlink("));
    }
}
