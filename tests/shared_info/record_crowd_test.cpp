// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "shared_info/record_crowd.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "support/forked_process.h"
#include "support/shared_objects.h"
#include "vask_object.h"

using testing::IsEmpty;

namespace {

class record_crowd : public shared_info_test {};

}  // namespace

TEST_F(record_crowd, Loses_no_value_and_reads_none_that_nobody_wrote) {
    expect_no_value_lost_in_a_crowd(2);
    EXPECT_EQ(record.sem_value(), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(record_crowd, Creates_one_record_however_many_come_first_at_once) {
    for (int round = 0; round < 20; ++round) {
        const shared_value<std::atomic<bool>> may_start;
        std::vector<std::unique_ptr<forked_process>> processes;
        for (int i = 0; i < 8; ++i) {
            processes.push_back(std::make_unique<forked_process>([&may_start] {
                own_shared_info own;
                while (!*may_start) {
                    std::this_thread::yield();
                }
                if (own.get_monitor_rotation() != VASK_MONITOR_ROTATION_NOT_SET) {
                    return 100;
                }
                return own.m_shared_info_ctx->get_created() ? 1 : 0;
            }));
        }
        *may_start = true;
        int creators = 0;
        for (const auto& process : processes) {
            creators += process->wait_for_end();
        }
        EXPECT_EQ(creators, 1);
        EXPECT_EQ(record.sem_value(), 1);
        record.remove();
        record.remove_sem();
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}
