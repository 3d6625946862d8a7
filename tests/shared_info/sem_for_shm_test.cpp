// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/shared_objects.h"
#include "vask_object.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class sem_for_shm : public shared_info_test {
protected:
    const shared_object thing{"thing"};
};

}  // namespace

TEST_F(sem_for_shm, Is_created_free) {
    sem_t* sem = vask_object::get_sem_for_shm("thing");
    ASSERT_NE(sem, nullptr);
    EXPECT_EQ(thing.sem_value(), 1);
    EXPECT_FALSE(thing.exists());
    EXPECT_TRUE(vask_object::close_named_sem(sem));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(sem_for_shm, Is_the_one_that_guards_the_object) {
    vask_shm_context* context = vask_shared_info::map_shm("thing", 100, true);
    sem_t* sem = vask_object::get_sem_for_shm("thing");
    EXPECT_EQ(thing.sem_value(), 0);
    EXPECT_TRUE(vask_object::vask_sem_post(sem));
    EXPECT_TRUE(vask_object::vask_sem_wait(context->get_sem()));
    EXPECT_TRUE(vask_object::vask_sem_post(context->get_sem()));
    EXPECT_TRUE(vask_object::close_named_sem(sem));
    EXPECT_TRUE(vask_shared_info::unmap_shm(context));
}

TEST_F(sem_for_shm, Keeps_its_count_when_it_exists) {
    thing.create_sem(0);
    sem_t* sem = vask_object::get_sem_for_shm("thing");
    EXPECT_EQ(thing.sem_value(), 0);
    EXPECT_TRUE(vask_object::close_named_sem(sem));
}

TEST_F(sem_for_shm, Is_missing_for_an_impossible_name) {
    EXPECT_EQ(vask_object::get_sem_for_shm("a/b"), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(sem_error("Failed to call sem_open(): 22")));
}
