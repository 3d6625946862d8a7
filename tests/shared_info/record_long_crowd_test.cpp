// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "shared_info/record_crowd.h"
#include "support/shared_objects.h"

using testing::IsEmpty;

namespace {

class record_long_crowd : public shared_info_test {};

}  // namespace

TEST_F(record_long_crowd, Loses_no_value_in_ten_seconds) {
    expect_no_value_lost_in_a_crowd(10);
    EXPECT_EQ(record.sem_value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}
