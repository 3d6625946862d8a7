// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Memory runs out while encoded text is read.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>

#include "socket_owners.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

constexpr std::size_t segment = 600;

// The next piece of memory for a whole segment is refused.
bool is_refused = false;

}  // namespace

void* operator new(std::size_t size) {
    const bool refuses = is_refused && size >= segment;
    is_refused = is_refused && !refuses;
    void* memory = refuses ? nullptr : malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    free(memory);
}

TEST(text_memory, Ends_the_request_when_it_runs_out) {
    connected pair("UTF-16LE");
    ASSERT_TRUE(pair.read(segment, segment));
    const std::string text(segment, 'a');
    log_catcher log;
    pair.peer.send(text);

    is_refused = true;
    const bool has_ended = pair.wait_for_end_of_request();
    is_refused = false;

    EXPECT_TRUE(has_ended);
    EXPECT_EQ(pair.owner.calls, 1);
    EXPECT_EQ(pair.owner.status, 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name,
                                        "Failed to call g_io_channel_read_chars: 600: 0: No memory "
                                        "for what has come")));
}
