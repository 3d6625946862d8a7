// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A program that forks without exec keeps the recorded process id of its parent.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "foundation/registry_member.h"

namespace {

class registry_forked_reader : public registry_test {
protected:
    // Lookups in a child that does not know its process id. What the parent does meanwhile is
    // repeated until the child has ended.
    int count_wrong_lookups(
        const std::string& name, const registry_map& expected, int lookups,
        const std::function<void()>& meanwhile = [] {}) {
        const int recorded = vask_object::my_pid;
        const shared_value<std::atomic<int>> wrong;
        forked_process child([&] {
            vask_object::my_pid = recorded;
            for (int i = 0; i < lookups; ++i) {
                *wrong += find(name) == expected ? 0 : 1;
            }
            return 0;
        });
        while (child.is_running()) {
            meanwhile();
        }
        EXPECT_EQ(child.wait_for_end(), 0);
        return *wrong;
    }
};

}  // namespace

TEST_F(registry_forked_reader, Finds_what_its_parent_finds) {
    registry_object("program").fill(100, my_pid);
    EXPECT_EQ(count_wrong_lookups("program", find(), 10), 0);
}

TEST_F(registry_forked_reader, Finds_all_of_a_registry_of_several_pages) {
    registry_object("program").fill(1000, my_pid);
    EXPECT_EQ(count_wrong_lookups("program", find(), 10), 0);
}

TEST_F(registry_forked_reader, Is_not_misled_by_what_its_parent_reads_meanwhile) {
    registry_object("program").append(my_pid, 1);
    registry_object("other").append(my_pid, 2);
    const registry_map expected = find("program");
    EXPECT_EQ(count_wrong_lookups("program", expected, 5000, [this] { find("other"); }), 0);
}
