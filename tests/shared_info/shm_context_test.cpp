// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>

#include "support/virtual_table.h"
#include "vask_shared_info.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

class flagging_context : public vask_shm_context {
public:
    explicit flagging_context(bool& destroyed)
        : vask_shm_context("thing", 1), m_destroyed(destroyed) {}
    ~flagging_context() override { m_destroyed = true; }

private:
    bool& m_destroyed;
};

}  // namespace

TEST(shm_context, Begins_unmapped) {
    const vask_shm_context context("thing", 4096);
    EXPECT_EQ(context.get_name(), "thing");
    EXPECT_EQ(context.get_size(), 4096U);
    EXPECT_EQ(context.get_addr(), nullptr);
    EXPECT_EQ(context.get_sem(), nullptr);
    EXPECT_FALSE(context.get_created());
}

TEST(shm_context, Copies_its_name) {
    char name[] = "thing";
    const vask_shm_context context(name, 1);
    name[0] = 'X';
    EXPECT_EQ(context.get_name(), "thing");
}

TEST(shm_context, Derives_the_names_of_object_and_semaphore_from_its_own) {
    const vask_shm_context context("thing", 1);
    EXPECT_EQ(context.get_shm_name(), "vask_shm_context_shm_thing");
    EXPECT_EQ(context.get_sem_name(), "vask_shm_context_sem_thing");
}

TEST(shm_context, May_have_an_empty_name) {
    const vask_shm_context context("", 1);
    EXPECT_EQ(context.get_shm_name(), "vask_shm_context_shm_");
    EXPECT_EQ(context.get_sem_name(), "vask_shm_context_sem_");
}

TEST(shm_context, Keeps_what_is_set) {
    vask_shm_context context("thing", 1);
    int memory = 0;
    sem_t sem;
    context.set_addr(&memory);
    context.set_sem(&sem);
    context.set_created(true);
    context.set_size(77);
    EXPECT_EQ(context.get_addr(), &memory);
    EXPECT_EQ(context.get_sem(), &sem);
    EXPECT_TRUE(context.get_created());
    EXPECT_EQ(context.get_size(), 77U);
}

TEST(shm_context, Splits_its_size_into_two_halves) {
    if (sizeof(unsigned long) == 4) {
        GTEST_SKIP() << "Sizes have 32 bits here.";
    }
    vask_shm_context context("thing", static_cast<unsigned long>(0x123456789abcdef0ull));
    EXPECT_EQ(context.get_size_msb(), 0x12345678U);
    EXPECT_EQ(context.get_size_lsb(), 0x9abcdef0U);
    context.set_size(0xffffffffU);
    EXPECT_EQ(context.get_size_msb(), 0U);
    EXPECT_EQ(context.get_size_lsb(), 0xffffffffU);
    context.set_size(0xffffffffffffffffU);
    EXPECT_EQ(context.get_size_msb(), 0xffffffffU);
    EXPECT_EQ(context.get_size_lsb(), 0xffffffffU);
}

TEST(shm_context, Releases_neither_mapping_nor_semaphore_when_it_ends) {
    sem_t sem;
    ASSERT_EQ(sem_init(&sem, 0, 1), 0);
    alignas(4096) static char memory[4096] = "still here";
    {
        vask_shm_context context("thing", sizeof(memory));
        context.set_addr(memory);
        context.set_sem(&sem);
    }
    EXPECT_STREQ(memory, "still here");
    EXPECT_EQ(sem_trywait(&sem), 0);
    sem_destroy(&sem);
}

TEST(shm_context, Is_destroyed_by_its_own_type) {
    bool destroyed = false;
    const vask_shm_context* context = new flagging_context(destroyed);
    delete context;
    EXPECT_TRUE(destroyed);
}

// Applications that were built against an earlier library call virtual operations by their slots.
TEST(shm_context, Has_a_virtual_destructor_and_nothing_else_virtual) {
    const vask_shm_context context("thing", 1);
    EXPECT_THAT(virtual_functions(context), ElementsAre("vask_shm_context::~vask_shm_context()",
                                                        "vask_shm_context::~vask_shm_context()"));
    EXPECT_FALSE(std::is_polymorphic<vask_shared_info>::value);
}
