// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Every call of a mapping fails once. The semaphore is given back exactly once, and the line tells
// the error of the call that failed, whatever the calls after it do to errno.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "shared_info/shared_info_faults.h"
#include "support/mapped_file.h"
#include "support/shared_objects.h"
#include "vask_object.h"

using namespace vask_test;
using shared_info_faults::now;
using shared_info_faults::seen;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char name[] = "thing";
constexpr unsigned long size = 5000;

class map_shm_failure : public shared_info_test {
protected:
    void fail(const char* call, int error) {
        now.failing_call = call;
        now.failing_error = error;
    }

    // The C library makes one under another name first, and keeps that for the mapping.
    static bool a_semaphore_is_open() { return is_file_mapped("/dev/shm/sem."); }

    void expect_failure(bool create, const std::string& text) {
        seen = shared_info_faults::counts();
        log.clear();
        std::string logged_at_post;
        now.before_post = [&] { logged_at_post = log.text(); };
        EXPECT_EQ(vask_shared_info::map_shm(name, size, create), nullptr);
        now.before_post = nullptr;
        EXPECT_THAT(log.lines(), ElementsAre(error(text)));
        // Whoever reads the log may be slow.
        EXPECT_EQ(logged_at_post, "");
        EXPECT_EQ(seen.sem_wait, 1);
        EXPECT_EQ(seen.sem_post, 1);
        EXPECT_TRUE(a_semaphore_is_open());
        EXPECT_EQ(thing.sem_value(), 1);
        EXPECT_FALSE(thing.is_mapped());
    }

    void create_thing() {
        thing.create(std::vector<unsigned char>(size));
        thing.create_sem(1);
    }

    shared_info_faults::healed healed;
    const shared_object thing{name};
};

}  // namespace

TEST_F(map_shm_failure, Of_the_context) {
    fail("allocation", 12);
    EXPECT_EQ(vask_shared_info::map_shm(name, size, true), nullptr);
    EXPECT_FALSE(thing.sem_exists());
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to create vask_shm_context instance")));
}

TEST_F(map_shm_failure, Cannot_come_from_a_lack_of_memory_while_the_semaphore_is_held) {
    fail("allocation under the semaphore", 12);

    vask_shm_context* context = vask_shared_info::map_shm(name, size, true);

    ASSERT_NE(context, nullptr);
    EXPECT_TRUE(vask_object::post_named_sem(context->get_sem()));
    EXPECT_EQ(thing.sem_value(), 1);
    EXPECT_TRUE(vask_shared_info::unmap_shm(context));
}

TEST_F(map_shm_failure, Of_the_wait_for_the_semaphore) {
    fail("sem_wait", 22);
    EXPECT_EQ(vask_shared_info::map_shm(name, size, true), nullptr);
    EXPECT_TRUE(a_semaphore_is_open());
    EXPECT_FALSE(thing.exists());
    EXPECT_EQ(thing.sem_value(), 1);
    EXPECT_EQ(seen.sem_post, 0);
    EXPECT_THAT(log.lines(), ElementsAre(sem_error("Failed to sem_wait(): 22")));
}

TEST_F(map_shm_failure, Of_opening_an_existing_object) {
    create_thing();
    fail("shm_open", 13);
    for (const bool create : {true, false}) {
        expect_failure(create, "Failed to call shm_open: 13 @ map_shared_info");
    }
    EXPECT_TRUE(thing.exists());
}

TEST_F(map_shm_failure, Of_creating_an_object) {
    fail("creating shm_open", 24);
    expect_failure(true, "Failed to call shm_open: 24 @ map_shared_info");
    EXPECT_FALSE(thing.exists());
}

TEST_F(map_shm_failure, Of_sizing_a_new_object) {
    fail("ftruncate", 27);
    expect_failure(true, "Failed to call ftruncate: 27 @ map_shared_info");
    EXPECT_FALSE(thing.exists());
}

TEST_F(map_shm_failure, Of_finding_memory_for_a_new_object) {
    fail("fallocate", 28);
    expect_failure(true, "Failed to call ftruncate: 28 @ map_shared_info");
    EXPECT_FALSE(thing.exists());
}

TEST_F(map_shm_failure, Of_mapping_a_new_object) {
    fail("mmap", 12);
    expect_failure(true, "Failed to mmap: Cannot allocate memory @ map_shared_info");
    // It would pass for one that its creator has filled in.
    EXPECT_FALSE(thing.exists());
}

TEST_F(map_shm_failure, Of_mapping_an_existing_object) {
    create_thing();
    fail("mmap", 12);
    for (const bool create : {true, false}) {
        expect_failure(create, "Failed to mmap: Cannot allocate memory @ map_shared_info");
    }
    EXPECT_TRUE(thing.exists());
}

TEST_F(map_shm_failure, Of_measuring_an_existing_object) {
    create_thing();
    fail("fstat", 5);
    for (const bool create : {true, false}) {
        expect_failure(create, "Failed to mmap: Input/output error @ map_shared_info");
    }
    EXPECT_TRUE(thing.exists());
}

TEST_F(map_shm_failure, Of_finding_memory_for_an_existing_object) {
    create_thing();
    thing.create({});
    std::filesystem::resize_file(thing.path(), size);
    fail("fallocate", 28);
    for (const bool create : {true, false}) {
        expect_failure(create, "Failed to mmap: No space left on device @ map_shared_info");
    }
    EXPECT_TRUE(thing.exists());
}

TEST_F(map_shm_failure, Lets_the_next_attempt_succeed) {
    for (const char* call : {"creating shm_open", "ftruncate", "fallocate", "mmap"}) {
        fail(call, 12);
        EXPECT_EQ(vask_shared_info::map_shm(name, size, true), nullptr) << call;
        now.failing_call.clear();
        vask_shm_context* context = vask_shared_info::map_shm(name, size, true);
        ASSERT_NE(context, nullptr) << call;
        EXPECT_TRUE(context->get_created());
        vask_object::post_named_sem(context->get_sem());
        vask_shared_info::unmap_shm(context);
        thing.remove();
    }
}

TEST_F(map_shm_failure, Is_none_where_the_file_system_cannot_reserve_memory) {
    fail("fallocate", 95);
    vask_shm_context* context = vask_shared_info::map_shm(name, size, true);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(thing.bytes().size(), size);
    EXPECT_THAT(log.lines(), IsEmpty());
    vask_object::post_named_sem(context->get_sem());
    vask_shared_info::unmap_shm(context);
}

TEST_F(map_shm_failure, Of_finding_memory_is_none_for_an_object_that_has_it) {
    create_thing();
    fail("fallocate", 28);
    vask_shm_context* context = vask_shared_info::map_shm(name, size, true);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(seen.fallocate, 0);
    vask_object::post_named_sem(context->get_sem());
    vask_shared_info::unmap_shm(context);
}

TEST_F(map_shm_failure, Is_none_when_a_signal_interrupts_the_reservation) {
    now.interrupted_fallocations = 3;
    vask_shm_context* context = vask_shared_info::map_shm(name, size, true);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(now.interrupted_fallocations, 0);
    EXPECT_EQ(seen.fallocate, 4);
    EXPECT_THAT(log.lines(), IsEmpty());
    vask_object::post_named_sem(context->get_sem());
    vask_shared_info::unmap_shm(context);
}

TEST_F(map_shm_failure, Is_none_when_signals_undo_every_long_reservation) {
    constexpr unsigned long large = 16UL * 1024 * 1024;
    now.longest_fallocation = 200000;
    vask_shm_context* context = vask_shared_info::map_shm(name, large, true);
    ASSERT_NE(context, nullptr);
    struct stat object;
    ASSERT_EQ(stat(thing.path().c_str(), &object), 0);
    EXPECT_GE(static_cast<unsigned long>(object.st_blocks) * 512, large);
    vask_object::post_named_sem(context->get_sem());
    vask_shared_info::unmap_shm(context);
}

TEST_F(map_shm_failure, Does_not_leave_an_object_to_programs_that_are_started_meanwhile) {
    vask_shm_context* context = vask_shared_info::map_shm(name, size, true);
    vask_object::post_named_sem(context->get_sem());
    EXPECT_EQ(seen.inheritable_opens, 0);
    vask_shared_info::unmap_shm(context);
}

TEST_F(map_shm_failure, Of_unmapping_leaves_the_context_alive) {
    vask_shm_context* context = vask_shared_info::map_shm(name, size, true);
    vask_object::post_named_sem(context->get_sem());
    auto* address = static_cast<unsigned char*>(context->get_addr());
    seen = shared_info_faults::counts();
    context->set_addr(address + 1);
    EXPECT_FALSE(vask_shared_info::unmap_shm(context));
    EXPECT_THAT(log.lines(),
                ElementsAre(error("Failed to unmap map_shared_info: Invalid argument")));
    EXPECT_EQ(context->get_addr(), address + 1);
    EXPECT_NE(context->get_sem(), nullptr);
    EXPECT_EQ(seen.sem_close, 0);
    EXPECT_TRUE(thing.is_mapped());

    context->set_addr(address);
    EXPECT_TRUE(vask_shared_info::unmap_shm(context));
    EXPECT_FALSE(thing.is_mapped());
    EXPECT_EQ(seen.sem_close, 1);
}

TEST_F(map_shm_failure, Of_unmapping_without_a_context_is_a_bug_of_the_caller) {
    EXPECT_FALSE(vask_shared_info::unmap_shm(nullptr));
    EXPECT_THAT(log.lines(), ElementsAre(bug("ctx is NULL")));
}

TEST_F(map_shm_failure, Is_none_when_there_is_nothing_to_unmap) {
    EXPECT_TRUE(vask_shared_info::unmap_shm(new vask_shm_context(name, size)));
    EXPECT_EQ(seen.sem_close, 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(map_shm_failure, Of_destroying_an_object_that_does_not_exist) {
    vask_shared_info info;
    EXPECT_FALSE(info.destroy_shm(name));
    EXPECT_THAT(log.lines(),
                ElementsAre(error("Failed to call shm_unlink(vask_shm_context_shm_thing): "
                                  "No such file or directory")));
}

TEST_F(map_shm_failure, Is_none_for_those_who_have_a_destroyed_object_mapped) {
    vask_shm_context* context = vask_shared_info::map_shm(name, size, true);
    vask_object::post_named_sem(context->get_sem());
    vask_shared_info info;
    EXPECT_TRUE(info.destroy_shm(name));
    EXPECT_FALSE(thing.exists());
    EXPECT_TRUE(thing.sem_exists());
    static_cast<unsigned char*>(context->get_addr())[size - 1] = 1;
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_TRUE(vask_shared_info::unmap_shm(context));
}
