// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Memory runs out while encoded text is read.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "socket_owners.h"
#include "support/counted_memory.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

constexpr std::size_t segment = 600;

// Refuses the next piece of memory for a whole segment.
bool refuse_one_segment(std::size_t size) {
    const bool refuses = size >= segment;
    if (refuses) {
        refuses_allocation = nullptr;
    }
    return refuses;
}

}  // namespace

TEST(text_memory, Ends_the_request_when_it_runs_out) {
    connected pair("UTF-16LE");
    ASSERT_TRUE(pair.read(segment, segment));
    const std::string text(segment, 'a');
    log_catcher log;
    pair.peer.send(text);

    refuses_allocation = refuse_one_segment;
    const bool has_ended = pair.wait_for_end_of_request();
    refuses_allocation = nullptr;

    EXPECT_TRUE(has_ended);
    EXPECT_EQ(pair.owner.calls, 1);
    EXPECT_EQ(pair.owner.status, 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name,
                                        "Failed to call g_io_channel_read_chars: 600: 0: No memory "
                                        "for what has come")));
}
