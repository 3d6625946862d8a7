// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What lies in the shared object, byte by byte: other processes with other builds of the library
// read it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>

#include <climits>
#include <cstddef>

#include "foundation/registry_member.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

class registry_layout : public registry_test {};

template <typename Value>
void put(std::vector<unsigned char>& bytes, Value value) {
    unsigned char raw[sizeof(Value)];
    memcpy(raw, &value, sizeof(value));
    bytes.insert(bytes.end(), raw, raw + sizeof(value));
}

std::vector<unsigned char> record(std::uint32_t sequence, std::int32_t count) {
    std::vector<unsigned char> bytes;
    put(bytes, sequence);
    put(bytes, count);
    return bytes;
}

void put_entry(std::vector<unsigned char>& bytes, int pid, std::uint64_t key) {
    put(bytes, std::int32_t{pid});
    put(bytes, std::int32_t{0});
    put(bytes, key);
}

/** Room for entries, as resize_pid_array() gets it. */
struct array_of_8 {
    union {
        pid_array array;
        unsigned char bytes[8 + 8 * sizeof(pid_array_entry)];
    };
    array_of_8() { memset(bytes, 0, sizeof(bytes)); }

    void append(int pid, std::uint64_t key) {
        pid_array_entry& entry = entries()[array.count++];
        entry.pid = pid;
        entry.key = key;
    }
    pid_array_entry* entries() {
        return reinterpret_cast<pid_array_entry*>(bytes + offsetof(pid_array, entries));
    }
};

int ended_process() {
    forked_process process([] { return 0; });
    process.wait_for_end();
    return process.pid();
}

}  // namespace

TEST_F(registry_layout, Of_a_first_registration_has_24_bytes) {
    const unsigned long key = static_cast<unsigned long>(0x1122334455667788ULL);
    ASSERT_TRUE(object.store_pid_to_shm(key));
    std::vector<unsigned char> expected = record(2, 1);
    put_entry(expected, my_pid, key);
    EXPECT_EQ(registry_object("program").bytes(), expected);
}

TEST_F(registry_layout, Grows_with_the_count_that_a_registration_finds) {
    const registry_member first("program", 1);
    const registry_object bytes("program");
    EXPECT_EQ(bytes.size(), 24U);
    const registry_member second("program", 2);
    EXPECT_EQ(bytes.size(), 24U + 16U);
    ASSERT_TRUE(object.store_pid_to_shm(3));
    EXPECT_EQ(bytes.size(), 24U + 2 * 16U);

    std::vector<unsigned char> expected = record(6, 3);
    put_entry(expected, first.pid(), 1);
    put_entry(expected, second.pid(), 2);
    put_entry(expected, my_pid, 3);
    EXPECT_EQ(bytes.bytes(), expected);
}

TEST_F(registry_layout, Is_sized_by_the_count_before_compaction) {
    registry_object bytes("program");
    const int dead = ended_process();
    for (std::uint64_t key = 1; key <= 4; ++key) {
        bytes.append(dead, key);
    }
    ASSERT_TRUE(object.store_pid_to_shm(9));
    EXPECT_EQ(bytes.count(), 1);
    EXPECT_EQ(bytes.size(), 24U + 4 * 16U);
    ASSERT_TRUE(object.store_pid_to_shm(9));
    EXPECT_EQ(bytes.size(), 24U + 16U);
}

TEST_F(registry_layout, Moves_the_sequence_by_two_with_every_registration) {
    const registry_member other("program", 6);
    const registry_object bytes("program");
    EXPECT_EQ(bytes.sequence(), 2U);
    ASSERT_TRUE(object.store_pid_to_shm(5));
    EXPECT_EQ(bytes.sequence(), 4U);
    ASSERT_FALSE(object.store_pid_to_shm(6));
    EXPECT_EQ(bytes.sequence(), 6U);
}

TEST_F(registry_layout, Lets_the_sequence_wrap_around) {
    registry_object bytes("program");
    bytes.resize(24);
    bytes.set_sequence(0xFFFFFFFE);
    ASSERT_TRUE(object.store_pid_to_shm(5));
    EXPECT_EQ(bytes.sequence(), 0U);
    EXPECT_THAT(find(), ElementsAre(Pair(5, my_pid)));
}

TEST_F(registry_layout, Leaves_the_reserved_bytes_alone) {
    registry_object bytes("program");
    bytes.append(ended_process(), 1);
    bytes.append(getppid(), 2);
    bytes.append(ended_process(), 3);
    for (std::uint32_t i = 0; i < 3; ++i) {
        bytes.set_reserved(i, 0xA0 + i);
    }
    ASSERT_TRUE(object.store_pid_to_shm(9));
    EXPECT_EQ(bytes.count(), 2);
    for (std::uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(bytes.reserved(i), 0xA0 + i);
    }
}

TEST_F(registry_layout, Can_be_read_by_all_and_changed_by_its_maker) {
    const mode_t before = umask(0);
    ASSERT_TRUE(object.store_pid_to_shm(5));
    umask(before);
    EXPECT_EQ(registry_object("program").mode(), 0644U);
}

TEST_F(registry_layout, Outlives_its_processes) {
    { const registry_member member("program", 1); }
    EXPECT_TRUE(std::filesystem::exists("/dev/shm/vask_proc_pid_program"));
    EXPECT_EQ(registry_object("program").count(), 1);
}

TEST_F(registry_layout, Is_compacted_in_place_and_in_order) {
    const registry_member member("elsewhere", 1);
    array_of_8 memory;
    const int dead = ended_process();
    memory.append(dead, 1);
    memory.append(getppid(), 2);
    memory.append(0, 3);
    memory.append(-1, 4);
    memory.append(my_pid, 5);
    memory.append(member.pid(), 6);
    EXPECT_THAT(object.resize_pid_array(&memory.array),
                ElementsAre(Pair(2, getppid()), Pair(6, member.pid())));
    EXPECT_EQ(memory.array.count, 2);
    EXPECT_EQ(memory.entries()[0].pid, getppid());
    EXPECT_EQ(memory.entries()[0].key, 2U);
    EXPECT_EQ(memory.entries()[1].pid, member.pid());
    EXPECT_EQ(memory.entries()[1].key, 6U);
}

TEST_F(registry_layout, Compacted_gives_the_last_process_of_a_key) {
    const registry_member member("elsewhere", 1);
    array_of_8 memory;
    memory.append(member.pid(), 3);
    memory.append(getppid(), 3);
    EXPECT_THAT(object.resize_pid_array(&memory.array), ElementsAre(Pair(3, getppid())));
    EXPECT_EQ(memory.array.count, 2);
}

TEST_F(registry_layout, Compacted_has_no_negative_count) {
    for (const int count : {0, -1, INT_MIN}) {
        array_of_8 memory;
        memory.array.count = count;
        EXPECT_THAT(object.resize_pid_array(&memory.array), IsEmpty());
        EXPECT_EQ(memory.array.count, 0);
    }
}

TEST_F(registry_layout, Compacted_keeps_its_sequence) {
    array_of_8 memory;
    memory.array.sequence = 7;
    memory.append(1, 1);
    object.resize_pid_array(&memory.array);
    EXPECT_EQ(memory.array.sequence, 7U);
}
