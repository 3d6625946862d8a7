// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A /dev/shm without room: a store to memory that the kernel cannot provide would end the process.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "foundation/registry_member.h"
#include "support/tiny_dev_shm.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int not_permitted = 77;

/** Runs a function beside a /dev/shm of a few pages. Its result, or not_permitted. */
int run_with_tiny_dev_shm(int pages, const std::function<int()>& work) {
    forked_process process(
        [pages, &work] { return enter_tiny_dev_shm(pages) ? work() : not_permitted; });
    return process.wait_for_end();
}

class registry_full_disk : public registry_test {
protected:
    static void fill_up(const std::string& path = "/dev/shm/filler") {
        std::ofstream filler(path, std::ios::binary);
        const std::string page(4096, 'x');
        while (filler << page << std::flush) {
        }
    }

    // The lock's semaphore takes the first page.
    static bool make_lock() {
        named_object locker("locker");
        if (!locker.shm_lock()) {
            return false;
        }
        locker.shm_unlock();
        return true;
    }

    static log_line full() {
        return error("program", "Failed to call ftruncate @ store_pid_to_shm");
    }
};

}  // namespace

TEST_F(registry_full_disk, Fails_the_first_registration) {
    const int result = run_with_tiny_dev_shm(4, [this] {
        if (!make_lock()) {
            return 1;
        }
        fill_up();
        if (object.store_pid_to_shm(1)) {
            return 2;
        }
        return library_lock::value() == 1 && find().empty() ? 0 : 3;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 0);
    EXPECT_THAT(log.lines(), ElementsAre(full()));
}

TEST_F(registry_full_disk, Fails_a_registration_that_needs_another_page) {
    const int result = run_with_tiny_dev_shm(4, [this] {
        registry_object bytes("program");
        bytes.fill(255, 1);
        if (!make_lock()) {
            return 1;
        }
        fill_up();
        if (object.store_pid_to_shm(1000)) {
            return 2;
        }
        return library_lock::value() == 1 && bytes.count() == 255 && bytes.sequence() == 0 &&
                       find().size() == 255
                   ? 0
                   : 3;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 0);
    EXPECT_THAT(log.lines(), ElementsAre(full()));
}

TEST_F(registry_full_disk, Fails_a_registration_in_an_object_with_holes) {
    const int result = run_with_tiny_dev_shm(4, [this] {
        registry_object bytes("program");
        bytes.resize(24);
        if (!make_lock()) {
            return 1;
        }
        fill_up();
        return object.store_pid_to_shm(1) || library_lock::value() != 1 ? 2 : 0;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 0);
    EXPECT_THAT(log.lines(), ElementsAre(full()));
}

TEST_F(registry_full_disk, Takes_a_registration_that_needs_no_room) {
    const int result = run_with_tiny_dev_shm(4, [this] {
        if (!object.store_pid_to_shm(1)) {
            return 1;
        }
        fill_up();
        return object.store_pid_to_shm(2) && find().count(2) == 1 ? 0 : 2;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_full_disk, Fails_the_lock_that_cannot_be_made) {
    const int result = run_with_tiny_dev_shm(4, [this] {
        fill_up();
        return object.store_pid_to_shm(1) ? 1 : 0;
    });
    if (result == not_permitted) {
        GTEST_SKIP() << "no private mounts";
    }
    EXPECT_EQ(result, 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(error("program", "Failed lock shm (shm_name:vask_proc_pid_program)")));
}
