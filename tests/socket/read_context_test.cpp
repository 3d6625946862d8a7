// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "vask_socket.h"

namespace {

void receive(vask_sock_read_context& context, const std::string& data) {
    std::memcpy(context.curr_buf_ptr(), data.data(), data.size());
    context.received += data.size();
}

}  // namespace

TEST(read_context, Is_complete_at_first_as_far_as_its_status_goes) {
    const vask_sock_read_context context;
    EXPECT_EQ(context.status, 1);
    EXPECT_FALSE(context.complete);
    EXPECT_FALSE(context.reading);
    EXPECT_EQ(context.read_req_size, 0u);
    EXPECT_EQ(context.least_size, 0u);
    EXPECT_EQ(context.received, 0u);
    EXPECT_EQ(context.buffer, nullptr);
    EXPECT_EQ(context.capacity, 0u);
    EXPECT_EQ(context.timeout, 0);
    EXPECT_EQ(context.timer_id, 0u);
}

TEST(read_context, Sizes_are_64_bits_wide) {
    const vask_sock_read_context context;
    EXPECT_EQ(sizeof context.read_req_size, 8u);
    EXPECT_EQ(sizeof context.least_size, 8u);
    EXPECT_EQ(sizeof context.received, 8u);
    EXPECT_EQ(sizeof context.capacity, 8u);
}

TEST(read_context, Reset_takes_both_sizes) {
    vask_sock_read_context context;
    EXPECT_TRUE(context.reset(10, 4));
    EXPECT_EQ(context.read_req_size, 10u);
    EXPECT_EQ(context.least_size, 4u);
    EXPECT_NE(context.buffer, nullptr);
}

TEST(read_context, A_least_size_beyond_the_size_counts_as_the_size) {
    vask_sock_read_context context;
    EXPECT_TRUE(context.reset(10, 11));
    EXPECT_EQ(context.least_size, 10u);
}

TEST(read_context, Reset_forgets_the_former_request) {
    vask_sock_read_context context;
    context.reset(10, 10);
    receive(context, "0123456789");
    context.reading = true;
    context.complete = true;

    context.reset(5, 5);

    EXPECT_EQ(context.received, 0u);
    EXPECT_FALSE(context.reading);
    EXPECT_FALSE(context.complete);
}

TEST(read_context, Reset_leaves_the_status_and_the_time_out) {
    vask_sock_read_context context;
    context.status = 2;
    context.timeout = 7;
    context.reset(5, 5);
    EXPECT_EQ(context.status, 2);
    EXPECT_EQ(context.timeout, 7);
}

TEST(read_context, The_capacity_stays_0) {
    vask_sock_read_context context;
    context.reset(10, 10);
    EXPECT_EQ(context.capacity, 0u);
}

TEST(read_context, A_size_of_0_keeps_no_buffer) {
    vask_sock_read_context context;
    context.reset(10, 10);
    EXPECT_TRUE(context.reset(0, 5));
    EXPECT_EQ(context.buffer, nullptr);
    EXPECT_EQ(context.least_size, 0u);
}

TEST(read_context, The_next_bytes_go_behind_those_received) {
    vask_sock_read_context context;
    context.reset(10, 10);
    EXPECT_EQ(context.curr_buf_ptr(), context.buffer);
    receive(context, "abc");
    EXPECT_EQ(context.curr_buf_ptr(), context.buffer + 3);
}

TEST(read_context, Copy_begins_at_the_offset_and_ends_with_what_was_received) {
    vask_sock_read_context context;
    context.reset(10, 10);
    receive(context, "abcde");
    char copied[] = "______";
    context.copy(copied, 2);
    EXPECT_STREQ(copied, "cde___");
}

TEST(read_context, Copy_does_nothing_when_less_has_been_received) {
    vask_sock_read_context context;
    context.reset(10, 10);
    receive(context, "abcde");
    char copied[] = "___";
    context.copy(copied, 5);
    context.copy(copied, 6);
    context.copy(nullptr, 6);
    EXPECT_STREQ(copied, "___");
}

TEST(read_context, Deleting_the_buffer_leaves_the_counts) {
    vask_sock_read_context context;
    context.reset(10, 10);
    receive(context, "abc");
    context.delete_buffer();
    EXPECT_EQ(context.buffer, nullptr);
    EXPECT_EQ(context.capacity, 0u);
    EXPECT_EQ(context.received, 3u);
    EXPECT_EQ(context.read_req_size, 10u);
}

TEST(read_context, Copy_does_nothing_when_the_buffer_has_been_deleted) {
    vask_sock_read_context context;
    context.reset(10, 10);
    receive(context, "abc");
    context.delete_buffer();
    char copied[] = "___";
    context.copy(copied, 0);
    EXPECT_STREQ(copied, "___");
}

TEST(read_context, Deleting_the_buffer_twice_is_harmless) {
    vask_sock_read_context context;
    context.reset(10, 10);
    context.delete_buffer();
    context.delete_buffer();
}
