// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// How often a lookup enters the kernel, counted from outside.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "foundation/registry_member.h"
#include "support/system_calls.h"

using vask_test::call_counts;

namespace {

class registry_system_calls : public registry_test {
protected:
    call_counts count_in_lookup(size_t entries) {
        return vask_test::count_system_calls([this, entries] {
            // As in a program that was started, not only forked.
            vask_object::my_pid = getpid();
            // The second lookup uses the memory that the first one took from the kernel.
            find();
            vask_test::system_call_mark::begin();
            const size_t found = find().size();
            if (found == entries) {
                vask_test::system_call_mark::end();
            }
        });
    }
};

}  // namespace

TEST_F(registry_system_calls, Are_one_for_each_entry_and_five_more) {
    for (const size_t entries : {1, 100, 200}) {
        registry_object("program").fill(entries, my_pid);
        const call_counts counts = count_in_lookup(entries);
        ASSERT_TRUE(counts.complete);
        EXPECT_EQ(counts.of(SYS_kill), static_cast<int>(entries));
        EXPECT_LE(counts.all, static_cast<int>(entries) + 5) << testing::PrintToString(counts);
    }
}
