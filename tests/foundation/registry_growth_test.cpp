// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Registries that outgrow a page of memory, with entries that all count as alive.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/registry_faults.h"
#include "foundation/registry_member.h"

using testing::IsEmpty;
using testing::SizeIs;

namespace {

class registry_growth : public registry_test, public testing::WithParamInterface<int> {
protected:
    registry_growth() { bytes.fill(static_cast<size_t>(entries), getppid()); }

    static size_t pages_of(size_t size) {
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        return (size + page - 1) / page;
    }

    const int entries = GetParam();
    registry_faults::healed healed;
    registry_object bytes{"program"};
};

}  // namespace

TEST_P(registry_growth, Shows_every_entry) {
    const registry_map found = find();
    ASSERT_THAT(found, SizeIs(entries));
    for (int key = 1; key <= entries; ++key) {
        EXPECT_EQ(found.at(static_cast<unsigned long>(key)), getppid());
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(registry_growth, Takes_another_entry_behind_all_others) {
    EXPECT_TRUE(object.store_pid_to_shm(100000));
    ASSERT_EQ(bytes.count(), entries + 1);
    EXPECT_EQ(bytes.pid(static_cast<size_t>(entries)), my_pid);
    EXPECT_EQ(bytes.key(static_cast<size_t>(entries)), 100000U);
    EXPECT_EQ(bytes.size(), 24 + 16 * static_cast<size_t>(entries));
    const registry_map found = find();
    EXPECT_THAT(found, SizeIs(entries + 1));
    EXPECT_EQ(found.at(100000), my_pid);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(registry_growth, Grows_the_view_of_a_writer_only_when_a_page_is_too_small) {
    EXPECT_TRUE(object.store_pid_to_shm(100000));
    const bool fits = pages_of(24 + 16 * static_cast<size_t>(entries)) == 1;
    EXPECT_EQ(registry_faults::seen.mremap, fits ? 0 : 1);
}

TEST_P(registry_growth, Grows_the_view_of_a_reader_only_when_a_page_is_too_small) {
    find();
    const bool fits = pages_of(8 + 16 * static_cast<size_t>(entries)) == 1;
    EXPECT_EQ(registry_faults::seen.mremap, fits ? 0 : 1);
}

TEST_P(registry_growth, Is_mapped_by_nobody_afterwards) {
    find();
    EXPECT_FALSE(bytes.is_mapped());
    EXPECT_TRUE(object.store_pid_to_shm(100000));
    EXPECT_FALSE(bytes.is_mapped());
}

TEST_P(registry_growth, Finds_a_key_that_is_in_use_in_the_last_entry) {
    EXPECT_FALSE(object.store_pid_to_shm(static_cast<unsigned long>(entries)));
    EXPECT_EQ(bytes.count(), entries);
    EXPECT_EQ(bytes.sequence(), 2U);
}

INSTANTIATE_TEST_SUITE_P(entries, registry_growth, testing::Values(254, 255, 256, 1023, 1024, 3000),
                         testing::PrintToStringParamName());
