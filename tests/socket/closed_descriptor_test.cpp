// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Descriptors that their host closes behind the library's back.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "socket_owners.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;

TEST(closed_descriptor, Ends_the_request_of_a_stream) {
    for (const char* encoding : {static_cast<const char*>(nullptr), "UTF-8", "UTF-16LE"}) {
        connected pair(encoding);
        log_catcher log;
        pair.read(10, 10);
        close(pair.socket.peer_sock);
        EXPECT_LE(dispatches_within(100), 2);
        EXPECT_EQ(pair.owner.calls, 1);
        EXPECT_EQ(pair.owner.status, 0);
        EXPECT_THAT(log.lines(),
                    ElementsAre(socket_line("ERR", client_name,
                                            "Failed to call g_io_channel_read_chars: 10: 0: Bad "
                                            "file descriptor")));
    }
}

TEST(closed_descriptor, Ends_the_request_for_datagrams) {
    open_server server(VASK_SOCK_UDP, 0);
    ASSERT_TRUE(server.start_service());
    log_catcher log;
    request_owner owner;
    ASSERT_TRUE(server.set_read_request(owner.handler(), 10, 10, 0));
    close(server.peer_sock);
    EXPECT_LE(dispatches_within(100), 2);
    EXPECT_EQ(owner.calls, 1);
    EXPECT_EQ(owner.status, 0);
    EXPECT_THAT(log.lines(),
                Contains(socket_line("ERR", server_name,
                                     "Failed to call recvfrom(): " + std::to_string(EBADF))));
}

TEST(closed_descriptor, Fails_to_be_written_to) {
    for (const char* encoding : {static_cast<const char*>(nullptr), "UTF-16LE"}) {
        connected pair(encoding);
        log_catcher log;
        close(pair.socket.peer_sock);
        EXPECT_FALSE(pair.socket.write("a", 1));
        EXPECT_THAT(log.lines(),
                    ElementsAre(socket_line("ERR", client_name,
                                            "Failed to call g_io_channel_write_chars: 1: 0: Bad "
                                            "file descriptor")));
    }
}

TEST(closed_descriptor,
     Of_a_server_is_reported_ten_times_a_second_and_does_not_keep_the_loop_busy) {
    served service;
    log_catcher log;
    close(service.server.m_sock);
    EXPECT_LE(dispatches_within(450), 11);
    EXPECT_THAT(log.lines(),
                Contains(socket_line("ERR", server_name,
                                     "gboolean vask_server_socket::watch_accepted(GIOChannel*, "
                                     "GIOCondition): Failed to call accept(): " +
                                         std::to_string(EBADF))));
}
