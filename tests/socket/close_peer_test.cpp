// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "socket_owners.h"
#include "support/interpose.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char signature[] = "void vask_socket::close_peer_sock(gboolean)";

int watched_descriptor = -1;
int closes_of_watched_descriptor = 0;

/** A text that stays in the channel's buffer. */
void write_to_buffer(connected& pair, const char* text) {
    g_io_channel_set_buffered(pair.socket.peer_ch, TRUE);
    EXPECT_TRUE(pair.socket.write(text, -1));
    EXPECT_NE(g_io_channel_get_buffer_condition(pair.socket.peer_ch) & G_IO_OUT, 0);
}

}  // namespace

extern "C" int close(int fd) {
    closes_of_watched_descriptor += fd >= 0 && fd == watched_descriptor;
    return next_function<int(int)>("close")(fd);
}

TEST(close_peer, Closes_the_connection) {
    connected pair;
    pair.socket.close_peer_sock(TRUE);
    EXPECT_TRUE(wait_until([&] { return pair.peer.peer_is_gone(); }));
    EXPECT_EQ(pair.socket.peer_sock, 0);
    EXPECT_EQ(pair.socket.peer_ch, nullptr);
}

TEST(close_peer, With_flushing_sends_what_the_channel_has_not_sent_yet) {
    connected pair;
    write_to_buffer(pair, "late");
    pair.socket.close_peer_sock(TRUE);
    EXPECT_EQ(pair.peer.receive_to_the_end(), "late");
}

TEST(close_peer, Without_flushing_drops_what_the_channel_has_not_sent_yet) {
    connected pair;
    write_to_buffer(pair, "late");
    pair.socket.close_peer_sock(FALSE);
    EXPECT_EQ(pair.peer.receive_to_the_end(), "");
}

TEST(close_peer, By_the_end_of_the_socket_sends_what_the_channel_has_not_sent_yet) {
    raw_socket peer;
    {
        connected pair;
        peer = std::move(pair.peer);
        write_to_buffer(pair, "late");
    }
    EXPECT_EQ(peer.receive_to_the_end(), "late");
}

TEST(close_peer, Is_traced) {
    connected pair;
    debug_messages level;
    log_catcher log;
    pair.socket.close_peer_sock(FALSE);
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("DBG", client_name, signature)));
}

TEST(close_peer, Without_a_connection_is_traced_as_well) {
    vask_socket socket(VASK_SOCK_TCP, 0, nullptr);
    debug_messages level;
    log_catcher log;
    socket.close_peer_sock(FALSE);
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("DBG", no_name, signature)));
}

TEST(close_peer, Ends_a_pending_request_without_a_call) {
    connected pair;
    pair.read(1, 1);
    const guint watch = pair.socket.m_read_watch_id;

    pair.socket.close_peer_sock(FALSE);

    EXPECT_FALSE(pair.socket.m_read_context.reading);
    EXPECT_EQ(pair.socket.m_read_watch_id, 0u);
    EXPECT_EQ(g_main_context_find_source_by_id(nullptr, watch), nullptr);
    drain_main_loop();
    EXPECT_EQ(pair.owner.calls, 0);
}

TEST(close_peer, Closes_the_descriptor_once) {
    connected pair;
    watched_descriptor = pair.socket.peer_sock;
    closes_of_watched_descriptor = 0;
    pair.socket.close_peer_sock(TRUE);
    EXPECT_EQ(closes_of_watched_descriptor, 1);
    watched_descriptor = -1;
}

TEST(close_peer, Once_more_does_nothing) {
    connected pair;
    watched_descriptor = pair.socket.peer_sock;
    closes_of_watched_descriptor = 0;
    pair.socket.close_peer_sock(TRUE);
    pair.socket.close_peer_sock(TRUE);
    EXPECT_EQ(closes_of_watched_descriptor, 1);
    watched_descriptor = -1;
}

TEST(close_peer, A_stranger_that_has_the_descriptor_next_keeps_it) {
    int stranger = -1;
    {
        connected pair;
        const int number = pair.socket.peer_sock;
        pair.socket.close_peer_sock(TRUE);
        stranger = dup2(STDOUT_FILENO, number);
        ASSERT_EQ(stranger, number);
    }
    EXPECT_NE(fcntl(stranger, F_GETFD), -1);
    close(stranger);
}

TEST(close_peer, The_end_of_a_socket_closes_its_connection_once) {
    raw_socket peer;
    {
        connected pair;
        peer = std::move(pair.peer);
        watched_descriptor = pair.socket.peer_sock;
        closes_of_watched_descriptor = 0;
    }
    EXPECT_EQ(closes_of_watched_descriptor, 1);
    watched_descriptor = -1;
    EXPECT_TRUE(wait_until([&] { return peer.peer_is_gone(); }));
}

TEST(close_peer, The_end_of_a_socket_without_a_channel_closes_its_descriptor) {
    served service;
    raw_socket client = service.client();
    service.owner.sockets.clear();
    // The server has it as its own peer still.
    EXPECT_FALSE(client.peer_is_gone());
    service.server.close_peer_sock(FALSE);
    EXPECT_TRUE(wait_until([&] { return client.peer_is_gone(); }));
}

TEST(close_peer, By_the_last_reference_to_the_channel_closes_the_descriptor_once) {
    connected pair;
    g_io_channel_set_close_on_unref(pair.socket.peer_ch, TRUE);
    watched_descriptor = pair.socket.peer_sock;
    closes_of_watched_descriptor = 0;
    EXPECT_TRUE(pair.socket.start_connect());
    EXPECT_EQ(closes_of_watched_descriptor, 1);
    watched_descriptor = -1;
}

TEST(close_peer, Of_a_socket_without_a_peer_does_nothing) {
    vask_socket socket(VASK_SOCK_TCP, 0, nullptr);
    log_catcher log;
    socket.close_peer_sock(TRUE);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(close_peer, The_handler_may_close_the_peer) {
    connected pair;
    pair.owner.then = [](vask_socket* socket) { socket->close_peer_sock(TRUE); };
    pair.read(1, 1, 5);
    pair.peer.send("a");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_TRUE(wait_until([&] { return pair.peer.peer_is_gone(); }));
    EXPECT_EQ(pair.owner.received, "a");
}

TEST(close_peer, What_was_received_stays) {
    connected pair;
    pair.peer.send("abc");
    pair.read(3, 3);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    pair.socket.close_peer_sock(TRUE);
    char copied[4] = {};
    pair.socket.m_read_context.copy(copied, 0);
    EXPECT_STREQ(copied, "abc");
}
