// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Requests that end without being complete.

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>

#include "socket_owners.h"
#include "support/interpose.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/** What recv() fails with instead of receiving, and how many times. */
int error_of_recv = 0;
int failures_of_recv = 0;

}  // namespace

extern "C" ssize_t recv(int fd, void* buffer, size_t size, int flags) {
    if (failures_of_recv > 0 && (flags & MSG_DONTWAIT)) {
        --failures_of_recv;
        errno = error_of_recv;
        return -1;
    }
    return next_function<ssize_t(int, void*, size_t, int)>("recv")(fd, buffer, size, flags);
}

TEST(end_of_stream, Before_the_least_size_ends_the_request_with_status_2) {
    connected pair;
    log_catcher log;
    pair.read(10, 6);
    pair.peer.send("abc");
    pair.peer.close();

    EXPECT_TRUE(pair.wait_for_end_of_request());

    EXPECT_EQ(pair.owner.calls, 1);
    EXPECT_EQ(pair.owner.status, 2);
    EXPECT_FALSE(pair.owner.complete);
    EXPECT_EQ(pair.owner.received, "abc");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(end_of_stream, After_the_least_size_is_left_to_the_next_request) {
    connected pair;
    pair.read(10, 3);
    pair.peer.send("abc");
    pair.peer.close();
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 1);
    pair.read(10, 0);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 2);
    EXPECT_EQ(pair.owner.received, "");
}

TEST(end_of_stream, Leaves_the_socket_with_its_peer) {
    connected pair;
    pair.read(10, 6);
    shutdown(pair.peer.fd(), SHUT_WR);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_TRUE(pair.socket.write("still", 5));
    EXPECT_EQ(pair.peer.receive(5), "still");
}

TEST(end_of_stream, The_handler_may_delete_the_socket) {
    raw_socket listener = raw_socket::listening();
    auto* client = new vask_client_socket("127.0.0.1", VASK_SOCK_TCP, listener.port(), nullptr);
    ASSERT_TRUE(client->start_connect());
    raw_socket peer = listener.accept();
    request_owner owner;
    owner.then = [](vask_socket* socket) { delete socket; };
    client->set_read_request(owner.handler(), 2, 2, 10);
    peer.close();
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
}

TEST(failed_read, From_a_peer_that_resets_ends_the_request_with_status_0) {
    connected pair;
    log_catcher log;
    pair.read(10, 6);
    pair.peer.send("abc");
    EXPECT_TRUE(wait_until([&] { return pair.socket.m_read_context.received == 3; }));
    pair.peer.reset();

    EXPECT_TRUE(pair.wait_for_end_of_request());

    EXPECT_EQ(pair.owner.calls, 1);
    EXPECT_EQ(pair.owner.status, 0);
    EXPECT_FALSE(pair.owner.complete);
    EXPECT_EQ(pair.owner.received, "abc");
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name,
                                        "Failed to call g_io_channel_read_chars: 7: 0: "
                                        "Connection reset by peer")));
}

TEST(failed_read, Disarms_the_time_out) {
    connected pair;
    log_catcher log;
    pair.read(10, 6, 100);
    pair.peer.reset();
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.socket.m_read_context.timer_id, 0u);
    EXPECT_EQ(pair.socket.m_read_watch_id, 0u);
}

TEST(failed_read, Any_other_status_of_GLib_is_kept) {
    connected pair;
    log_catcher log;
    pair.read(10, 6);
    error_of_recv = EAGAIN;
    failures_of_recv = 1;
    pair.peer.send("abc");

    EXPECT_TRUE(pair.wait_for_end_of_request());

    EXPECT_EQ(pair.owner.status, G_IO_STATUS_AGAIN);
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name,
                                        "Failed to call g_io_channel_read_chars: 10: 3: ")));
}

TEST(failed_read, A_read_that_a_signal_interrupts_is_repeated) {
    connected pair;
    log_catcher log;
    pair.read(3, 3);
    error_of_recv = EINTR;
    failures_of_recv = 3;
    pair.peer.send("abc");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(failures_of_recv, 0);
    EXPECT_EQ(pair.owner.status, 1);
    EXPECT_EQ(pair.owner.received, "abc");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(failed_read, The_handler_may_set_the_next_request) {
    connected pair;
    log_catcher log;
    pair.owner.then = [&pair](vask_socket* socket) {
        if (pair.owner.calls == 1) {
            EXPECT_TRUE(socket->set_read_request(pair.owner.handler(), 3, 3, 0));
        }
    };
    pair.read(3, 3);
    error_of_recv = ENOBUFS;
    failures_of_recv = 1;
    pair.peer.send("abc");
    EXPECT_TRUE(wait_until([&] { return pair.owner.calls == 2; }));
    EXPECT_EQ(pair.owner.received, "abc");
}

// Both watches are dispatched for the same data, and the second one must not wait for more.
TEST(failed_read, Of_two_requests_for_one_connection_the_second_does_not_block_the_loop) {
    connected pair;
    vask_socket copy(pair.socket);
    request_owner second;
    log_catcher log;
    pair.read(3, 3);
    copy.set_read_request(second.handler(), 3, 3, 0);

    pair.peer.send("abc");

    EXPECT_TRUE(wait_until([&] { return pair.owner.calls + second.calls == 2; }));
    EXPECT_EQ(pair.owner.received + second.received, "abc");
    EXPECT_EQ(pair.owner.status + second.status, G_IO_STATUS_NORMAL + G_IO_STATUS_AGAIN);
}
