// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What the library itself asks of the system while it is loaded.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/system_calls.h"

namespace {

bool flag(void* library, const char* name) {
    return *static_cast<const bool*>(dlsym(library, name));
}

}  // namespace

TEST(load_system_calls, Are_none) {
    const vask_test::call_counts count = vask_test::count_system_calls([] {
        // Not to be mixed up with the library that the test itself is linked to.
        void* library = dlopen(VASK_TEST_LOAD_END_MARK, RTLD_NOW | RTLD_DEEPBIND);
        if (!library) {
            _exit(1);
        }
        if (flag(library, "was_made_before_begin") || !flag(library, "was_made_at_end")) {
            _exit(2);
        }
    });
    EXPECT_EQ(count.exit_status, 0);
    ASSERT_TRUE(count.complete);
    EXPECT_EQ(count.all, 0) << testing::PrintToString(count);
}
