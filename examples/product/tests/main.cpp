// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <vask_test/googletest.h>

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    vask_test::set_up_googletest();
    return RUN_ALL_TESTS();
}
