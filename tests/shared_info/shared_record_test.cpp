// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <climits>
#include <cstring>

#include "support/file_scratch.h"
#include "support/forked_process.h"
#include "support/shared_objects.h"
#include "vask_object.h"
#include "vask_test/main_loop.h"
#include "vask_test/process_list.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr size_t record_size = 2064;
constexpr size_t rotation_offset = 0;
constexpr size_t cpu_offset = 4;
constexpr size_t gpu_offset = 8;
constexpr size_t flag_offset = 12;
constexpr size_t reserved_offset = 13;

class shared_record : public shared_info_test {
protected:
    /** The bytes of a record in which only these fields are not zero. */
    static std::vector<unsigned char> bytes_of(std::int32_t rotation, unsigned char flag) {
        std::vector<unsigned char> bytes(record_size);
        std::memcpy(&bytes[rotation_offset], &rotation, sizeof(rotation));
        bytes[flag_offset] = flag;
        return bytes;
    }

    /** A record that others have filled in, down to its last byte. */
    void create_used_record() {
        std::vector<unsigned char> bytes(record_size, 0xa5);
        bytes[flag_offset] = 1;
        record.create(bytes);
        record.set_int_at(rotation_offset, 3);
        record.set_int_at(cpu_offset, 4);
        record.set_int_at(gpu_offset, 6);
        record.create_sem(1);
    }
};

vask_monitor_rotation_type rotation(int number) {
    return static_cast<vask_monitor_rotation_type>(number);
}

}  // namespace

TEST_F(shared_record, Is_created_by_the_first_getter_of_the_rotation) {
    EXPECT_EQ(vask_object::get_monitor_rotation(), 5);
    EXPECT_EQ(record.bytes(), bytes_of(5, 0));
    EXPECT_EQ(record.sem_value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(shared_record, Is_created_by_the_first_getter_of_the_flag) {
    EXPECT_FALSE(vask_object::get_pseudo_portrait_flag());
    EXPECT_EQ(record.bytes(), bytes_of(5, 0));
    EXPECT_EQ(record.sem_value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(shared_record, Is_created_by_the_first_setter) {
    EXPECT_TRUE(vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_2));
    EXPECT_EQ(record.bytes(), bytes_of(2, 0));
    record.remove();
    own_shared_info other;
    other.set_pseudo_portrait_flag(true);
    EXPECT_EQ(record.bytes(), bytes_of(5, 1));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(shared_record, Keeps_what_is_set) {
    for (const int number : {0, 1, 2, 3, 4, 5}) {
        EXPECT_TRUE(vask_object::set_monitor_rotation(rotation(number)));
        EXPECT_EQ(vask_object::get_monitor_rotation(), number);
        EXPECT_EQ(record.int_at(rotation_offset), number);
        EXPECT_EQ(record.sem_value(), 1);
    }
    for (const bool flag : {true, false}) {
        vask_object::set_pseudo_portrait_flag(flag);
        EXPECT_EQ(vask_object::get_pseudo_portrait_flag(), flag);
        EXPECT_EQ(record.bytes()[flag_offset], flag ? 1 : 0);
        EXPECT_EQ(record.sem_value(), 1);
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(shared_record, Is_common_to_all_processes) {
    forked_process other([] {
        vask_object::set_pseudo_portrait_flag(true);
        return vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_1) ? 0 : 1;
    });
    ASSERT_EQ(other.wait_for_end(), 0);
    EXPECT_EQ(vask_object::get_monitor_rotation(), 1);
    EXPECT_TRUE(vask_object::get_pseudo_portrait_flag());
}

TEST_F(shared_record, Shows_what_another_process_sets_while_it_is_mapped) {
    EXPECT_EQ(vask_object::get_monitor_rotation(), 5);
    forked_process other([] {
        own_shared_info own;
        return own.set_monitor_rotation(VASK_MONITOR_ROTATION_1) ? 0 : 1;
    });
    ASSERT_EQ(other.wait_for_end(), 0);
    EXPECT_EQ(vask_object::get_monitor_rotation(), 1);
}

TEST_F(shared_record, Keeps_rotations_out_of_range_as_they_are) {
    for (const int number : {6, 7, 1000, -1, INT_MAX, INT_MIN}) {
        EXPECT_TRUE(vask_object::set_monitor_rotation(rotation(number)));
        EXPECT_EQ(vask_object::get_monitor_rotation(), number);
        EXPECT_EQ(record.int_at(rotation_offset), number);
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(shared_record, Shows_rotations_out_of_range_that_others_have_written) {
    create_used_record();
    for (const int number : {6, -1, INT_MIN}) {
        record.set_int_at(rotation_offset, number);
        EXPECT_EQ(vask_object::get_monitor_rotation(), number);
    }
}

TEST_F(shared_record, Takes_any_flag_that_is_not_0_for_set) {
    create_used_record();
    for (const unsigned char byte : {1, 2, 0x80, 0xff}) {
        record.write(flag_offset, &byte, 1);
        EXPECT_TRUE(vask_object::get_pseudo_portrait_flag()) << static_cast<int>(byte);
    }
    const unsigned char none = 0;
    record.write(flag_offset, &none, 1);
    EXPECT_FALSE(vask_object::get_pseudo_portrait_flag());
}

TEST_F(shared_record, Is_not_initialised_again_by_whoever_comes_later) {
    create_used_record();
    const std::vector<unsigned char> before = record.bytes();
    EXPECT_EQ(vask_object::get_monitor_rotation(), 3);
    EXPECT_TRUE(vask_object::get_pseudo_portrait_flag());
    EXPECT_EQ(vask_object::get_vask_cpu_type(false), 4);
    EXPECT_EQ(vask_object::get_vask_gpu_type(false), 6);
    EXPECT_EQ(record.bytes(), before);
}

TEST_F(shared_record, Changes_no_byte_besides_the_field_that_is_set) {
    create_used_record();
    std::vector<unsigned char> expected = record.bytes();
    EXPECT_TRUE(vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_0));
    std::memset(&expected[rotation_offset], 0, 4);
    EXPECT_EQ(record.bytes(), expected);
    vask_object::set_pseudo_portrait_flag(false);
    expected[flag_offset] = 0;
    EXPECT_EQ(record.bytes(), expected);
}

TEST_F(shared_record, Begins_with_the_fields_at_their_offsets) {
    own_shared_info info;
    vk_shared_info* fields = info.map_shared_info(true);
    ASSERT_NE(fields, nullptr);
    fields->monitor_rotation = 0x01020304;
    fields->cpu_type = 0x11121314;
    fields->gpu_type = 0x21222324;
    fields->pseudo_portrait = 0x31;
    std::memset(fields->reserved, 0x41, sizeof(fields->reserved));
    EXPECT_EQ(record.bytes().size(), record_size);
    EXPECT_EQ(record.int_at(rotation_offset), 0x01020304);
    EXPECT_EQ(record.int_at(cpu_offset), 0x11121314);
    EXPECT_EQ(record.int_at(gpu_offset), 0x21222324);
    EXPECT_EQ(record.bytes()[flag_offset], 0x31);
    EXPECT_EQ(record.bytes()[reserved_offset], 0x41);
    EXPECT_EQ(record.bytes()[record_size - 1], 0x41);
}

TEST_F(shared_record, Is_initialised_in_three_fields_alone) {
    own_shared_info info;
    std::vector<unsigned char> bytes(record_size, 0xa5);
    info.init_shared_info(reinterpret_cast<vk_shared_info*>(bytes.data()));
    std::vector<unsigned char> expected(record_size, 0xa5);
    std::memset(expected.data(), 0, flag_offset);
    expected[rotation_offset] = 5;
    EXPECT_EQ(bytes, expected);
}

TEST_F(shared_record, Gets_a_new_semaphore_where_the_old_one_was_removed) {
    EXPECT_TRUE(vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_2));
    record.remove_sem();
    own_shared_info other;
    EXPECT_EQ(other.get_monitor_rotation(), 2);
    EXPECT_EQ(record.sem_value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(shared_record, Is_mapped_once) {
    own_shared_info info;
    vk_shared_info* first = info.map_shared_info(true);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(info.map_shared_info(true), first);
    EXPECT_EQ(info.map_shared_info(false), first);
}

TEST_F(shared_record, Is_mapped_without_a_lock_when_it_was_mapped_before) {
    own_shared_info info;
    vk_shared_info* first = info.map_shared_info(true);
    ASSERT_TRUE(info.lock_shared_info());
    EXPECT_EQ(info.map_shared_info(true), first);
    EXPECT_EQ(record.sem_value(), 0);
    EXPECT_TRUE(info.unlock_shared_info());
}

TEST_F(shared_record, Is_not_created_by_mapping_that_may_not) {
    own_shared_info info;
    EXPECT_EQ(info.map_shared_info(false), nullptr);
    EXPECT_EQ(info.m_shared_info_ctx, nullptr);
    EXPECT_FALSE(record.exists());
    EXPECT_FALSE(record.sem_exists());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(shared_record, Is_found_by_mapping_that_may_not_create_it) {
    create_used_record();
    own_shared_info info;
    const vk_shared_info* fields = info.map_shared_info(false);
    ASSERT_NE(fields, nullptr);
    EXPECT_EQ(fields->monitor_rotation, 3);
    EXPECT_EQ(record.sem_value(), 1);
    EXPECT_FALSE(info.m_shared_info_ctx->get_created());
    EXPECT_EQ(info.m_shared_info_ctx->get_name(), "vask_shared_info");
    EXPECT_EQ(info.m_shared_info_ctx->get_size(), record_size);
}

TEST_F(shared_record, Is_locked_against_others_until_it_is_unlocked) {
    own_shared_info info;
    info.map_shared_info(true);
    ASSERT_TRUE(info.lock_shared_info());
    forked_process reader([] { return static_cast<int>(vask_object::get_monitor_rotation()); });
    ASSERT_TRUE(wait_until_without_loop(
        [&] { return kernel_position(reader.pid()).find("futex") != std::string::npos; }));
    info.map_shared_info(true)->monitor_rotation = 1;
    EXPECT_TRUE(info.unlock_shared_info());
    EXPECT_EQ(reader.wait_for_end(), 1);
    EXPECT_EQ(record.sem_value(), 1);
}

// Nobody can tell a dead holder from a slow one.
TEST_F(shared_record, Stays_locked_by_a_process_that_is_killed) {
    const shared_value<std::atomic<bool>> is_locked;
    forked_process holder([&is_locked] {
        own_shared_info own;
        own.map_shared_info(true);
        *is_locked = own.lock_shared_info();
        wait_for_a_signal();
        return 0;
    });
    ASSERT_TRUE(wait_until_without_loop([&] { return is_locked->load(); }));
    holder.kill_now();
    EXPECT_EQ(record.sem_value(), 0);

    forked_process reader([] { return static_cast<int>(vask_object::get_monitor_rotation()); });
    ASSERT_TRUE(wait_until_without_loop(
        [&] { return kernel_position(reader.pid()).find("futex") != std::string::npos; }));
    sem_t* sem = vask_object::get_sem_for_shm(shared_info_name);
    EXPECT_TRUE(vask_object::vask_sem_post(sem));
    EXPECT_TRUE(vask_object::close_named_sem(sem));
    EXPECT_EQ(reader.wait_for_end(), 5);
}

TEST_F(shared_record, Cannot_be_locked_before_it_is_mapped) {
    own_shared_info info;
    EXPECT_FALSE(info.lock_shared_info());
    EXPECT_FALSE(info.unlock_shared_info());
    EXPECT_THAT(log.lines(), ElementsAre(error("m_shared_info_ctx == NULL"),
                                         error("m_shared_info_ctx == NULL")));
}

TEST_F(shared_record, Survives_those_who_have_mapped_it) {
    EXPECT_TRUE(vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_3));
    EXPECT_TRUE(vask_object::m_shared_info->unmap_shared_info(false));
    EXPECT_FALSE(record.is_mapped());
    EXPECT_EQ(record.bytes(), bytes_of(3, 0));
    EXPECT_EQ(vask_object::get_monitor_rotation(), 3);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(shared_record, Is_created_afresh_after_it_was_destroyed) {
    EXPECT_TRUE(vask_object::set_monitor_rotation(VASK_MONITOR_ROTATION_3));
    EXPECT_TRUE(vask_object::m_shared_info->unmap_shared_info(true));
    EXPECT_FALSE(record.exists());
    EXPECT_FALSE(record.sem_exists());
    EXPECT_EQ(vask_object::get_monitor_rotation(), 5);
    EXPECT_EQ(record.bytes(), bytes_of(5, 0));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(shared_record, Is_unmapped_silently_when_it_is_not_mapped) {
    create_used_record();
    own_shared_info info;
    EXPECT_TRUE(info.unmap_shared_info(false));
    EXPECT_TRUE(info.unmap_shared_info(true));
    EXPECT_TRUE(record.exists());
    EXPECT_TRUE(record.sem_exists());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(shared_record, Is_unmapped_although_others_have_destroyed_it) {
    own_shared_info info;
    info.map_shared_info(true);
    record.remove();
    record.remove_sem();
    EXPECT_TRUE(info.unmap_shared_info(true));
    EXPECT_EQ(info.m_shared_info_ctx, nullptr);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(error("Failed to call shm_unlink(vask_shm_context_shm_vask_shared_info): "
                          "No such file or directory"),
                    sem_error("Failed to call shm_unlink(vask_shm_context_sem_vask_shared_info): "
                              "No such file or directory")));
}

TEST_F(shared_record, Is_forgotten_even_when_it_cannot_be_unmapped) {
    own_shared_info info;
    auto* address = reinterpret_cast<unsigned char*>(info.map_shared_info(true));
    vask_shm_context* context = info.m_shared_info_ctx;
    context->set_addr(address + 1);
    EXPECT_TRUE(info.unmap_shared_info(true));
    EXPECT_THAT(log.lines(), ElementsAre(error("Failed to unmap map_shared_info: Invalid argument"),
                                         error("Failed to call unmap_shm()")));
    EXPECT_EQ(info.m_shared_info_ctx, nullptr);
    EXPECT_FALSE(record.exists());
    EXPECT_FALSE(record.sem_exists());

    context->set_addr(address);
    EXPECT_TRUE(vask_shared_info::unmap_shm(context));
}

TEST_F(shared_record, Of_another_user_is_refused_under_the_usual_umask) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only the superuser can act as another user";
    }
    const mode_t before = umask(022);
    EXPECT_EQ(vask_object::get_monitor_rotation(), 5);
    umask(before);
    const without_privileges nobody;
    own_shared_info other;
    EXPECT_EQ(other.get_monitor_rotation(), VASK_MONITOR_ROTATION_ERROR);
    EXPECT_THAT(log.lines(), ElementsAre(sem_error("Failed to call sem_open(): 13")));
}

TEST_F(shared_record, Of_another_user_is_shared_when_its_creator_had_no_umask) {
    const mode_t before = umask(0);
    EXPECT_EQ(vask_object::get_monitor_rotation(), 5);
    umask(before);
    const without_privileges nobody;
    own_shared_info other;
    EXPECT_TRUE(other.set_monitor_rotation(VASK_MONITOR_ROTATION_1));
    EXPECT_EQ(vask_object::get_monitor_rotation(), 1);
}

TEST_F(shared_record, Belongs_to_one_view_per_process) {
    ASSERT_NE(vask_object::m_shared_info, nullptr);
    EXPECT_TRUE(vask_object::m_shared_info->set_monitor_rotation(VASK_MONITOR_ROTATION_2));
    EXPECT_EQ(vask_object::get_monitor_rotation(), 2);
    vask_object::set_pseudo_portrait_flag(true);
    EXPECT_TRUE(vask_object::m_shared_info->get_pseudo_portrait_flag());
    EXPECT_TRUE(vask_object::m_shared_info->unmap_shared_info(true));
    EXPECT_EQ(vask_object::get_monitor_rotation(), 5);
}

TEST_F(shared_record, Has_a_name_that_all_processes_know) {
    EXPECT_STREQ(shared_info_name, "vask_shared_info");
}
