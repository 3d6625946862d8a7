// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "skip_list.h"
#include "vask_test/googletest.h"

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    if (!GTEST_FLAG_GET(list_tests)) {
        vask_test::skip_listed_tests();
    }
    vask_test::set_up_googletest(vask_test::library_objects::are_leaks);
    return RUN_ALL_TESTS();
}
