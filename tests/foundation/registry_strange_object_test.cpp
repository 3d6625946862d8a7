// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Objects that no writer has made: whoever may write to /dev/shm can put anything there.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

#include "foundation/registry_faults.h"
#include "foundation/registry_member.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

constexpr size_t mebibyte = size_t{1} << 20;
// As large as a file may be without support for large files.
constexpr size_t enormous = size_t{1} << (sizeof(size_t) == 8 ? 40 : 30);

class registry_strange_object : public registry_test {
protected:
    registry_faults::healed healed;
    registry_object bytes{"program"};
};

}  // namespace

TEST_F(registry_strange_object, Of_no_bytes_lists_nobody_and_can_be_written) {
    EXPECT_THAT(find(), IsEmpty());
    EXPECT_TRUE(object.store_pid_to_shm(1));
    EXPECT_THAT(find(), ElementsAre(Pair(1, my_pid)));
    EXPECT_EQ(bytes.size(), 24U);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_strange_object, Without_a_whole_header_lists_nobody_and_can_be_written) {
    for (const size_t size : {1, 4, 7}) {
        bytes.resize(0);
        bytes.resize(size);
        EXPECT_THAT(find(), IsEmpty()) << size;
        EXPECT_TRUE(object.store_pid_to_shm(1)) << size;
        EXPECT_THAT(find(), ElementsAre(Pair(1, my_pid))) << size;
    }
}

TEST_F(registry_strange_object, With_an_odd_sequence_alone_lists_nobody) {
    bytes.resize(4);
    bytes.set_sequence(1);
    show_clock(leaping_clock(1));
    EXPECT_THAT(find(), IsEmpty());
    EXPECT_TRUE(object.store_pid_to_shm(1));
    EXPECT_EQ(bytes.sequence(), 2U);
}

TEST_F(registry_strange_object, With_half_an_entry_behind_a_page_lists_the_whole_ones) {
    for (const size_t cut_off : {1, 12, 15}) {
        bytes.fill(300, my_pid);
        bytes.resize(8 + 300 * 16 - cut_off);
        const registry_map found = find();
        EXPECT_THAT(found, SizeIs(299)) << cut_off;
        EXPECT_EQ(found.count(300), 0U) << cut_off;
    }
}

TEST_F(registry_strange_object, Is_listed_as_far_as_it_goes_when_it_claims_more_entries) {
    bytes.fill(3, my_pid);
    for (const int claimed : {4, 255, 256, 1000, 1 << 22, INT_MAX}) {
        bytes.set_count(claimed);
        EXPECT_THAT(find(), SizeIs(3)) << claimed;
    }
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_LE(registry_faults::seen.largest_mapping, size_t{4096});
}

TEST_F(registry_strange_object, Is_written_as_far_as_it_goes_when_it_claims_more_entries) {
    bytes.fill(3, getppid());
    bytes.set_count(INT_MAX);
    EXPECT_TRUE(object.store_pid_to_shm(9));
    EXPECT_EQ(bytes.count(), 4);
    EXPECT_EQ(bytes.size(), 24U + 3 * 16U);
    EXPECT_THAT(find(), SizeIs(4));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_strange_object, With_a_negative_count_lists_nobody_and_can_be_written) {
    for (const int claimed : {-1, INT_MIN}) {
        bytes.fill(3, getppid());
        bytes.set_count(claimed);
        EXPECT_THAT(find(), IsEmpty()) << claimed;
        EXPECT_TRUE(object.store_pid_to_shm(9));
        EXPECT_EQ(bytes.count(), 1);
        EXPECT_THAT(find(), ElementsAre(Pair(9, my_pid))) << claimed;
    }
}

TEST_F(registry_strange_object, With_process_ids_of_nobody_lists_nobody) {
    bytes.append(0, 1);
    bytes.append(-1, 2);
    bytes.append(INT_MIN, 3);
    bytes.append(INT_MAX, 4);
    EXPECT_THAT(find(), IsEmpty());
    EXPECT_TRUE(object.store_pid_to_shm(9));
    EXPECT_EQ(bytes.count(), 1);
}

TEST_F(registry_strange_object, Of_enormous_size_is_read_without_an_enormous_view) {
    bytes.fill(3, my_pid);
    bytes.resize(enormous);
    EXPECT_THAT(find(), SizeIs(3));
    EXPECT_LE(registry_faults::seen.largest_mapping, size_t{4096});
    bytes.set_count(INT_MAX);
    EXPECT_THAT(find(), SizeIs(3));
    EXPECT_LE(registry_faults::seen.largest_mapping, 65 * mebibyte);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_strange_object, Of_enormous_size_is_cut_to_what_its_count_needs) {
    bytes.fill(3, getppid());
    bytes.resize(enormous);
    EXPECT_TRUE(object.store_pid_to_shm(9));
    EXPECT_EQ(bytes.size(), 24U + 3 * 16U);
    EXPECT_THAT(find(), SizeIs(4));
}

// More entries than there can be processes: neither memory nor time is spent on them.
TEST_F(registry_strange_object, Of_enormous_size_and_count_takes_no_enormous_memory_to_write) {
    bytes.fill(3, getppid());
    bytes.resize(enormous);
    bytes.set_count(1 << 26);
    EXPECT_TRUE(object.store_pid_to_shm(9));
    EXPECT_LE(bytes.memory(), 65 * mebibyte);
    EXPECT_EQ(bytes.count(), 4);
    EXPECT_THAT(find(), SizeIs(4));
}

TEST_F(registry_strange_object, That_is_no_file_is_refused) {
    ASSERT_EQ(unlink(bytes.path().c_str()), 0);
    std::filesystem::create_directory(bytes.path());
    EXPECT_THAT(find(), IsEmpty());
    EXPECT_FALSE(object.store_pid_to_shm(1));
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_F(registry_strange_object, That_is_a_pipe_is_refused_at_once) {
    ASSERT_EQ(unlink(bytes.path().c_str()), 0);
    ASSERT_EQ(mkfifo(bytes.path().c_str(), 0644), 0);
    EXPECT_THAT(find(), IsEmpty());
    EXPECT_FALSE(object.store_pid_to_shm(1));
    EXPECT_THAT(log.lines(),
                ElementsAre(error("looker", "Failed to call mmap @ find_stored_pid_from_shm"),
                            error("program", "Failed to call mmap @ store_pid_to_shm")));
    EXPECT_EQ(library_lock::value(), 1);
}

TEST_F(registry_strange_object, That_shrinks_after_it_was_mapped_is_read_as_it_is_then) {
    bytes.fill(255, my_pid);
    bytes.set_sequence(1);
    int copies = 0;
    registry_faults::now.after_copy = [&](void*) {
        if (++copies == 1) {
            bytes.resize(0);
        }
    };
    EXPECT_THAT(find(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(registry_strange_object, That_shrinks_after_the_view_has_grown_is_read_as_it_is_then) {
    bytes.fill(600, my_pid);
    bytes.set_sequence(1);
    int copies = 0;
    registry_faults::now.after_copy = [&](void*) {
        if (++copies == 2) {
            bytes.set_sequence(2);
            bytes.set_count(10);
            bytes.resize(24 + 160);
        }
    };
    EXPECT_THAT(find(), SizeIs(10));
    EXPECT_THAT(log.lines(), IsEmpty());
}
