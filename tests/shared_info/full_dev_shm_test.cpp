// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A /dev/shm without room: a write to memory that cannot be had would end the process.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "support/forked_process.h"
#include "support/refused_call.h"
#include "support/shared_objects.h"
#include "support/tiny_dev_shm.h"
#include "vask_object.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int not_permitted = 77;

class full_dev_shm : public shared_info_test {
protected:
    /** Runs a function beside a /dev/shm of a few pages. Its result, or not_permitted. */
    static int run_with_pages(int pages, const std::function<int()>& work) {
        forked_process process(
            [pages, &work] { return enter_tiny_dev_shm(pages) ? work() : not_permitted; });
        return process.wait_for_end();
    }

    static void fill_up() {
        std::ofstream filler("/dev/shm/filler", std::ios::binary);
        const std::string page(4096, 'x');
        while (filler << page << std::flush) {
        }
    }

    static void make_room() { std::filesystem::remove("/dev/shm/filler"); }
};

}  // namespace

TEST_F(full_dev_shm, Fails_the_record_and_leaves_the_semaphore_free) {
    const int result = run_with_pages(4, [this] {
        record.create_sem(1);
        fill_up();
        if (vask_object::get_monitor_rotation() != VASK_MONITOR_ROTATION_ERROR) {
            return 1;
        }
        return !record.exists() && record.sem_value() == 1 ? 0 : 2;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 0);
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to call ftruncate: 28 @ map_shared_info")));
}

TEST_F(full_dev_shm, Fails_the_record_where_a_sandbox_refuses_the_reservation) {
    for (const int refusal : {ENOSYS, EPERM, EOPNOTSUPP}) {
        log.clear();
        const int result = run_with_pages(4, [this, refusal] {
            record.create_sem(1);
            fill_up();
            if (!refuse_system_call(SYS_fallocate, refusal)) {
                return not_permitted;
            }
            if (vask_object::get_monitor_rotation() != VASK_MONITOR_ROTATION_ERROR) {
                return 1;
            }
            if (record.exists() || record.sem_value() != 1) {
                return 2;
            }
            make_room();
            return vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1) ? 0 : 3;
        });
        if (result == not_permitted) {
            GTEST_SKIP() << "no private mounts, or no filters of system calls";
        }
        EXPECT_EQ(result, 0);
        EXPECT_THAT(log.lines(),
                    ElementsAre(error("Failed to call ftruncate: 28 @ map_shared_info")));
    }
}

TEST_F(full_dev_shm, Fails_every_access_until_there_is_room) {
    const int result = run_with_pages(4, [this] {
        record.create_sem(1);
        fill_up();
        if (vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1) ||
            vask_object::get_pseudo_portrait_flag() || vask_object::get_vask_cpu_type(false) != 2) {
            return 1;
        }
        make_room();
        return vask_object::get_monitor_rotation() == VASK_MONITOR_ROTATION_NOT_SET ? 0 : 2;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 0);
    EXPECT_THAT(log.lines(), testing::SizeIs(3));
}

TEST_F(full_dev_shm, Fails_the_semaphore) {
    const int result = run_with_pages(4, [this] {
        fill_up();
        if (vask_object::get_monitor_rotation() != VASK_MONITOR_ROTATION_ERROR) {
            return 1;
        }
        return !record.exists() && !record.sem_exists() ? 0 : 2;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 0);
    EXPECT_THAT(log.lines(), ElementsAre(sem_error("Failed to call sem_open(): 28")));
}

TEST_F(full_dev_shm, Fails_a_record_in_which_no_memory_was_found_yet) {
    const int result = run_with_pages(4, [this] {
        record.create_sem(1);
        record.create({});
        std::filesystem::resize_file(record.path(), 2064);
        fill_up();
        if (vask_object::get_monitor_rotation() != VASK_MONITOR_ROTATION_ERROR) {
            return 1;
        }
        return record.exists() && record.sem_value() == 1 ? 0 : 2;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 0);
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to mmap: No space left on device @ "
                                               "map_shared_info")));
}

TEST_F(full_dev_shm, Leaves_a_record_that_exists_usable) {
    const int result = run_with_pages(4, [] {
        {
            own_shared_info creator;
            creator.set_monitor_rotation(VASK_MONITOR_ROTATION_1);
        }
        fill_up();
        if (vask_object::get_monitor_rotation() != VASK_MONITOR_ROTATION_1) {
            return 1;
        }
        vask_object::set_pseudo_portrait_flag(true);
        return vask_object::get_pseudo_portrait_flag() ? 0 : 2;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(full_dev_shm, Fails_a_context_that_does_not_fit) {
    const int result = run_with_pages(4, [] {
        const shared_object thing("thing");
        if (vask_shared_info::map_shm("thing", 100 * 4096, true)) {
            return 1;
        }
        return !thing.exists() && thing.sem_value() == 1 ? 0 : 2;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 0);
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to call ftruncate: 28 @ map_shared_info")));
}
