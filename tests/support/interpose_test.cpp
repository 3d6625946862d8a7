// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "support/interpose.h"

#include <glib/gstdio.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

bool everything_exists = false;

}  // namespace

extern "C" int access(const char* path, int mode) noexcept {
    if (everything_exists) {
        return 0;
    }
    return vask_test::next_function<int(const char*, int)>("access")(path, mode);
}

TEST(interpose, Takes_the_place_of_a_function_for_libraries_too) {
    EXPECT_EQ(g_access("/", F_OK), 0);
    EXPECT_EQ(g_access("/nonexistent", F_OK), -1);
    everything_exists = true;
    EXPECT_EQ(g_access("/nonexistent", F_OK), 0);
    everything_exists = false;
}
