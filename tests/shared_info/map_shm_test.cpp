// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "support/forked_process.h"
#include "support/mapped_file.h"
#include "support/shared_objects.h"
#include "vask_object.h"
#include "vask_test/main_loop.h"
#include "vask_test/process_list.h"

using namespace vask_test;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char name[] = "thing";
constexpr unsigned long size = 5000;

class map_shm : public shared_info_test {
protected:
    const shared_object thing{name};
};

/** Maps, and gives the semaphore back at once. */
class mapped {
public:
    explicit mapped(bool create, unsigned long bytes = size)
        : m_context(vask_shared_info::map_shm(name, bytes, create)) {
        if (m_context) {
            vask_object::post_named_sem(m_context->get_sem());
        }
    }
    ~mapped() {
        if (m_context) {
            vask_shared_info::unmap_shm(m_context);
        }
    }
    mapped(const mapped&) = delete;
    mapped& operator=(const mapped&) = delete;

    const vask_shm_context* get() const { return m_context; }
    const vask_shm_context* operator->() const { return m_context; }
    unsigned char* memory() const { return static_cast<unsigned char*>(m_context->get_addr()); }

private:
    vask_shm_context* const m_context;
};

/** Shows what a context has at its end. */
class shown_context : public vask_shm_context {
public:
    explicit shown_context(bool& is_empty) : vask_shm_context(name, size), m_is_empty(is_empty) {}
    ~shown_context() override { m_is_empty = get_addr() == nullptr && get_sem() == nullptr; }

private:
    bool& m_is_empty;
};

}  // namespace

TEST_F(map_shm, Fails_silently_where_nobody_has_created_the_object) {
    EXPECT_EQ(vask_shared_info::map_shm(name, size, false), nullptr);
    EXPECT_FALSE(thing.exists());
    EXPECT_FALSE(thing.sem_exists());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(map_shm, Fails_silently_where_only_the_memory_object_exists) {
    thing.create(std::vector<unsigned char>(size));
    EXPECT_EQ(vask_shared_info::map_shm(name, size, false), nullptr);
    EXPECT_FALSE(thing.sem_exists());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(map_shm, Refuses_to_create_nothing) {
    EXPECT_EQ(vask_shared_info::map_shm(name, 0, true), nullptr);
    EXPECT_FALSE(thing.exists());
    EXPECT_FALSE(thing.sem_exists());
    EXPECT_THAT(log.lines(),
                ElementsAre(error("Size must be larger than zero when create flag is true.")));
}

TEST_F(map_shm, Refuses_to_map_nothing) {
    const mapped creator(true);
    EXPECT_EQ(vask_shared_info::map_shm(name, 0, false), nullptr);
    EXPECT_EQ(thing.sem_value(), 1);
    EXPECT_THAT(log.lines(),
                ElementsAre(error("Failed to mmap: Invalid argument @ map_shared_info")));
}

TEST_F(map_shm, Creates_a_zero_filled_object_of_the_given_size) {
    const mapped creator(true);
    ASSERT_NE(creator.get(), nullptr);
    EXPECT_TRUE(creator->get_created());
    EXPECT_EQ(creator->get_name(), name);
    EXPECT_EQ(creator->get_size(), size);
    EXPECT_THAT(thing.bytes(), SizeIs(size));
    EXPECT_THAT(thing.bytes(), Each(0));
    EXPECT_THAT(std::vector<unsigned char>(creator.memory(), creator.memory() + size), Each(0));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(map_shm, Gives_a_second_process_the_same_memory) {
    const mapped creator(true);
    std::strcpy(reinterpret_cast<char*>(creator.memory() + 4990), "from one");
    forked_process second([] {
        for (const bool create : {true, false}) {
            const mapped user(create);
            if (!user.get() || user->get_created()) {
                return 1;
            }
            if (std::strcmp(reinterpret_cast<char*>(user.memory() + 4990), "from one") != 0) {
                return 2;
            }
            std::strcpy(reinterpret_cast<char*>(user.memory()), "from two");
        }
        return 0;
    });
    EXPECT_EQ(second.wait_for_end(), 0);
    EXPECT_STREQ(reinterpret_cast<char*>(creator.memory()), "from two");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(map_shm, Hands_the_semaphore_over_held) {
    vask_shm_context* context = vask_shared_info::map_shm(name, size, true);
    EXPECT_EQ(thing.sem_value(), 0);
    EXPECT_TRUE(vask_object::post_named_sem(context->get_sem()));
    EXPECT_EQ(thing.sem_value(), 1);
    vask_shared_info::unmap_shm(context);

    context = vask_shared_info::map_shm(name, size, false);
    EXPECT_EQ(thing.sem_value(), 0);
    EXPECT_TRUE(vask_object::post_named_sem(context->get_sem()));
    vask_shared_info::unmap_shm(context);
}

TEST_F(map_shm, Lets_nobody_in_before_the_creator_has_filled_the_object_in) {
    vask_shm_context* context = vask_shared_info::map_shm(name, size, true);
    forked_process second([] {
        const mapped user(true);
        return user->get_created() ? -1 : user.memory()[7];
    });
    ASSERT_TRUE(wait_until_without_loop(
        [&] { return kernel_position(second.pid()).find("futex") != std::string::npos; }));
    static_cast<unsigned char*>(context->get_addr())[7] = 77;
    vask_object::post_named_sem(context->get_sem());
    EXPECT_EQ(second.wait_for_end(), 77);
    vask_shared_info::unmap_shm(context);
}

TEST_F(map_shm, Creates_a_fresh_object_where_only_the_semaphore_is_left) {
    {
        const mapped creator(true);
        creator.memory()[0] = 1;
    }
    thing.remove();
    const mapped again(true);
    ASSERT_NE(again.get(), nullptr);
    EXPECT_TRUE(again->get_created());
    EXPECT_THAT(thing.bytes(), Each(0));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(map_shm, Fails_where_only_the_semaphore_is_left_and_nothing_is_to_be_created) {
    thing.create_sem(1);
    EXPECT_EQ(vask_shared_info::map_shm(name, size, false), nullptr);
    EXPECT_FALSE(thing.exists());
    EXPECT_EQ(thing.sem_value(), 1);
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to call shm_open: 2 @ map_shared_info")));
}

TEST_F(map_shm, Makes_a_semaphore_where_only_the_memory_object_is_left) {
    thing.create(std::vector<unsigned char>(size, 9));
    const mapped user(true);
    ASSERT_NE(user.get(), nullptr);
    EXPECT_FALSE(user->get_created());
    EXPECT_EQ(user.memory()[size - 1], 9);
    EXPECT_EQ(thing.sem_value(), 1);
}

TEST_F(map_shm, Is_open_to_all_users_under_the_umask) {
    for (const mode_t mask : {0, 022, 077}) {
        const mode_t before = umask(mask);
        { const mapped creator(true); }
        umask(before);
        EXPECT_EQ(thing.mode(), 0666U & ~mask);
        EXPECT_EQ(thing.sem_mode(), 0666U & ~mask);
        thing.remove();
        thing.remove_sem();
    }
}

TEST_F(map_shm, Refuses_an_object_that_is_too_short) {
    for (const bool create : {true, false}) {
        for (const size_t existing : {size_t{0}, size_t{1}, size_t{4096}, size_t{size - 1}}) {
            thing.create(std::vector<unsigned char>(existing, 9));
            if (!thing.sem_exists()) {
                thing.create_sem(1);
            }
            log.clear();
            EXPECT_EQ(vask_shared_info::map_shm(name, size, create), nullptr) << existing;
            EXPECT_THAT(log.lines(),
                        ElementsAre(error("Failed to mmap: Invalid argument @ map_shared_info")));
            EXPECT_THAT(thing.bytes(), SizeIs(existing));
            EXPECT_THAT(thing.bytes(), Each(9));
            EXPECT_EQ(thing.sem_value(), 1);
        }
    }
}

TEST_F(map_shm, Leaves_an_object_that_is_longer_as_it_is) {
    thing.create(std::vector<unsigned char>(size + 10000, 9));
    const mapped user(true);
    ASSERT_NE(user.get(), nullptr);
    EXPECT_EQ(user->get_size(), size);
    EXPECT_EQ(thing.bytes(), std::vector<unsigned char>(size + 10000, 9));
}

TEST_F(map_shm, Maps_an_object_of_exactly_its_size) {
    thing.create(std::vector<unsigned char>(size, 9));
    const mapped user(true);
    ASSERT_NE(user.get(), nullptr);
    EXPECT_EQ(user.memory()[size - 1], 9);
}

TEST_F(map_shm, Fails_for_a_size_that_no_object_can_have) {
    if (sizeof(size_t) == 4) {
        GTEST_SKIP() << "no such size";
    }
    EXPECT_EQ(vask_shared_info::map_shm(name, ~0UL, true), nullptr);
    EXPECT_FALSE(thing.exists());
    EXPECT_EQ(thing.sem_value(), 1);
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to call ftruncate: 22 @ map_shared_info")));
}

TEST_F(map_shm, Fails_for_a_name_that_no_object_can_have) {
    EXPECT_EQ(vask_shared_info::map_shm("a/b", size, true), nullptr);
    EXPECT_EQ(vask_shared_info::map_shm("a/b", size, false), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(sem_error("Failed to call sem_open(): 22")));
}

TEST_F(map_shm, Fails_where_the_name_is_a_directory) {
    ASSERT_EQ(mkdir(thing.path().c_str(), 0700), 0);
    EXPECT_EQ(vask_shared_info::map_shm(name, size, true), nullptr);
    EXPECT_EQ(thing.sem_value(), 1);
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to call shm_open: 22 @ map_shared_info")));
}

TEST_F(map_shm, Fails_where_the_name_is_a_link) {
    ASSERT_EQ(symlink("/etc/passwd", thing.path().c_str()), 0);
    EXPECT_EQ(vask_shared_info::map_shm(name, size, true), nullptr);
    EXPECT_EQ(thing.sem_value(), 1);
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to call shm_open: 40 @ map_shared_info")));
}

TEST_F(map_shm, May_be_done_in_its_own_context) {
    auto* context = new vask_shm_context(name, size);
    ASSERT_TRUE(vask_shared_info::map_shm_platform(context, true));
    EXPECT_TRUE(context->get_created());
    EXPECT_NE(context->get_addr(), nullptr);
    EXPECT_EQ(thing.sem_value(), 0);
    EXPECT_TRUE(vask_object::post_named_sem(context->get_sem()));
    EXPECT_TRUE(vask_shared_info::unmap_shm(context));
}

TEST_F(map_shm, Leaves_the_context_of_a_failure_unmapped) {
    vask_shm_context context(name, size);
    thing.create_sem(1);
    EXPECT_FALSE(vask_shared_info::map_shm_platform(&context, false));
    EXPECT_EQ(context.get_addr(), nullptr);
    EXPECT_EQ(context.get_sem(), nullptr);
    EXPECT_FALSE(context.get_created());
}

TEST_F(map_shm, Without_a_context_is_a_bug_of_the_caller) {
    EXPECT_FALSE(vask_shared_info::map_shm_platform(nullptr, true));
    EXPECT_FALSE(vask_shared_info::map_shm_platform(nullptr, false));
    EXPECT_THAT(log.lines(), ElementsAre(bug("context is NULL"), bug("context is NULL")));
}

TEST_F(map_shm, Is_undone_by_unmapping) {
    vask_shm_context* context = vask_shared_info::map_shm(name, size, true);
    vask_object::post_named_sem(context->get_sem());
    EXPECT_TRUE(thing.is_mapped());
    EXPECT_TRUE(vask_shared_info::unmap_shm(context));
    EXPECT_FALSE(thing.is_mapped());
    EXPECT_TRUE(thing.exists());
    EXPECT_TRUE(thing.sem_exists());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(map_shm, Has_nothing_in_its_context_any_more_when_that_is_deleted) {
    bool is_empty = false;
    auto* context = new shown_context(is_empty);
    ASSERT_TRUE(vask_shared_info::map_shm_platform(context, true));
    vask_object::post_named_sem(context->get_sem());
    EXPECT_TRUE(vask_shared_info::unmap_shm(context));
    EXPECT_TRUE(is_empty);
}

TEST_F(map_shm, Closes_a_semaphore_that_is_removed_while_it_waits) {
    thing.create_sem(0);
    std::thread remover([this] {
        EXPECT_TRUE(wait_until_without_loop([this] { return is_file_mapped(thing.sem_path()); }));
        thing.remove_sem();
    });
    const mapped own(true);
    remover.join();
    ASSERT_NE(own.get(), nullptr);
    EXPECT_EQ(thing.sem_value(), 1);
    EXPECT_FALSE(is_file_mapped(thing.sem_path() + " (deleted)"));
}
