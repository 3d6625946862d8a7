// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

#include "socket_owners.h"

using namespace vask_test;
using testing::IsEmpty;

namespace {

/** Milliseconds until the source is due. */
gint64 msec_until(guint id) {
    GSource* source = g_main_context_find_source_by_id(nullptr, id);
    return source != nullptr ? (g_source_get_ready_time(source) - g_get_monotonic_time()) / 1000
                             : -1;
}

bool is_attached(guint id) {
    return g_main_context_find_source_by_id(nullptr, id) != nullptr;
}

/** Has the source due at once. */
void let_time_pass_for(guint id) {
    g_source_set_ready_time(g_main_context_find_source_by_id(nullptr, id), 0);
}

guint timer_of(const vask_socket& socket) {
    return socket.m_read_context.timer_id;
}

}  // namespace

TEST(read_timeout, A_silent_peer_ends_the_request_with_status_0) {
    connected pair;
    log_catcher log;
    pair.read(10, 10, 1);

    EXPECT_TRUE(pair.wait_for_end_of_request());

    EXPECT_EQ(pair.owner.calls, 1);
    EXPECT_EQ(pair.owner.status, 0);
    EXPECT_FALSE(pair.owner.complete);
    EXPECT_EQ(timer_of(pair.socket), 0u);
    EXPECT_EQ(pair.socket.m_read_watch_id, 0u);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(read_timeout, Counts_seconds) {
    connected pair;
    pair.read(10, 10, 5);
    EXPECT_GT(msec_until(timer_of(pair.socket)), 2500);
    EXPECT_LE(msec_until(timer_of(pair.socket)), 5000);
}

TEST(read_timeout, Keeps_what_has_come_before) {
    connected pair;
    pair.read(10, 10, 5);
    pair.peer.send("abc");
    EXPECT_TRUE(wait_until([&] { return pair.socket.m_read_context.received == 3; }));
    let_time_pass_for(timer_of(pair.socket));
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 0);
    EXPECT_EQ(pair.owner.received, "abc");
}

TEST(read_timeout, Every_byte_starts_it_anew) {
    connected pair;
    pair.read(10, 10, 5);
    for (int i = 1; i < 10; ++i) {
        const guint former = timer_of(pair.socket);
        // As if 3 seconds had passed.
        GSource* source = g_main_context_find_source_by_id(nullptr, former);
        g_source_set_ready_time(source, g_source_get_ready_time(source) - 3000000);
        EXPECT_LE(msec_until(former), 2000);

        pair.peer.send("a");
        EXPECT_TRUE(wait_until([&] { return pair.socket.m_read_context.received == guint64(i); }));

        EXPECT_FALSE(is_attached(former));
        EXPECT_GT(msec_until(timer_of(pair.socket)), 2500);
    }
    EXPECT_EQ(pair.owner.calls, 0);
    pair.peer.send("a");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 1);
}

TEST(read_timeout, Of_5_is_never_over_with_one_byte_every_3_seconds) {
    connected pair;
    pair.read(4, 4, 5);
    for (int i = 0; i < 4; ++i) {
        EXPECT_FALSE(wait_until([&] { return pair.owner.calls > 0; },
                                static_cast<int>(3000 / timeout_factor())));
        pair.peer.send("a");
    }
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 1);
    EXPECT_EQ(pair.owner.received, "aaaa");
}

TEST(read_timeout, Of_5_ends_the_request_after_5_silent_seconds) {
    connected pair;
    const gint64 start = g_get_monotonic_time();
    pair.read(4, 4, 5);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_GE(g_get_monotonic_time() - start, 5000000);
    EXPECT_EQ(pair.owner.status, 0);
}

TEST(read_timeout, Of_0_or_less_is_none) {
    connected pair;
    pair.read(10, 10, 0);
    EXPECT_EQ(timer_of(pair.socket), 0u);
    pair.peer.send("0123456789");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    pair.read(10, 10, -5);
    EXPECT_EQ(timer_of(pair.socket), 0u);
}

TEST(read_timeout, That_does_not_fit_in_milliseconds_is_cut) {
    connected pair;
    pair.read(10, 10, INT_MAX);
    EXPECT_EQ(pair.socket.m_read_context.timeout, INT_MAX);
    EXPECT_GT(msec_until(timer_of(pair.socket)), gint64{2147483} * 1000 - 60000);
    EXPECT_LE(msec_until(timer_of(pair.socket)), gint64{2147483} * 1000);
}

TEST(read_timeout, The_longest_one_that_fits_is_kept) {
    connected pair;
    pair.read(10, 10, 2147483);
    EXPECT_GT(msec_until(timer_of(pair.socket)), gint64{2147483} * 1000 - 60000);
}

TEST(read_timeout, Is_disarmed_when_the_request_completes) {
    connected pair;
    pair.read(1, 1, 5);
    const guint timer = timer_of(pair.socket);
    EXPECT_TRUE(is_attached(timer));
    pair.peer.send("a");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_FALSE(is_attached(timer));
    EXPECT_EQ(timer_of(pair.socket), 0u);
}

TEST(read_timeout, Is_disarmed_at_the_end_of_the_stream) {
    connected pair;
    pair.read(1, 1, 5);
    const guint timer = timer_of(pair.socket);
    pair.peer.close();
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_FALSE(is_attached(timer));
}

TEST(read_timeout, Does_not_outlive_its_socket) {
    request_owner owner;
    guint timer = 0;
    guint watch = 0;
    {
        connected pair;
        pair.socket.set_read_request(owner.handler(), 1, 1, 5);
        timer = timer_of(pair.socket);
        watch = pair.socket.m_read_watch_id;
        EXPECT_TRUE(is_attached(watch));
    }
    EXPECT_FALSE(is_attached(timer));
    EXPECT_FALSE(is_attached(watch));
    EXPECT_EQ(owner.calls, 0);
}

TEST(read_timeout, Does_not_outlive_a_socket_whose_peer_was_closed) {
    request_owner owner;
    guint timer = 0;
    {
        connected pair;
        pair.socket.set_read_request(owner.handler(), 1, 1, 5);
        timer = timer_of(pair.socket);
        pair.socket.close_peer_sock(FALSE);
        EXPECT_EQ(pair.socket.peer_ch, nullptr);
        EXPECT_TRUE(is_attached(timer));
    }
    EXPECT_FALSE(is_attached(timer));
    EXPECT_EQ(owner.calls, 0);
}

TEST(read_timeout, The_handler_may_set_the_next_request) {
    connected pair;
    pair.owner.then = [&pair](vask_socket* socket) {
        if (pair.owner.calls == 1) {
            EXPECT_TRUE(socket->set_read_request(pair.owner.handler(), 1, 1, 5));
        }
    };
    pair.read(1, 1, 5);
    let_time_pass_for(timer_of(pair.socket));
    EXPECT_TRUE(wait_until([&] { return pair.owner.calls == 1; }));

    EXPECT_TRUE(pair.socket.m_read_context.reading);
    EXPECT_GT(msec_until(timer_of(pair.socket)), 2500);
    pair.peer.send("a");
    EXPECT_TRUE(wait_until([&] { return pair.owner.calls == 2; }));
    EXPECT_EQ(pair.owner.status, 1);
}

TEST(read_timeout, The_handler_may_delete_the_socket) {
    raw_socket listener = raw_socket::listening();
    auto* client = new vask_client_socket("127.0.0.1", VASK_SOCK_TCP, listener.port(), nullptr);
    ASSERT_TRUE(client->start_connect());
    request_owner owner;
    owner.then = [](vask_socket* socket) { delete socket; };
    client->set_read_request(owner.handler(), 2, 2, 5);
    let_time_pass_for(timer_of(*client));
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    EXPECT_EQ(owner.status, 0);
}

TEST(read_timeout, Is_left_armed_when_the_peer_is_closed_and_then_calls_the_owner) {
    connected pair;
    pair.read(1, 1, 5);
    const guint timer = timer_of(pair.socket);
    pair.socket.close_peer_sock(FALSE);
    EXPECT_TRUE(is_attached(timer));
    EXPECT_EQ(pair.owner.calls, 0);

    let_time_pass_for(timer);
    EXPECT_TRUE(wait_until([&] { return pair.owner.calls == 1; }));

    EXPECT_EQ(pair.owner.status, 0);
    EXPECT_EQ(timer_of(pair.socket), 0u);
}

// An id that is used again would be hard to come by, so the watch is one that must not be touched.
TEST(read_timeout, That_is_over_after_the_peer_was_closed_removes_no_watch) {
    connected pair;
    pair.read(1, 1, 5);
    const guint timer = timer_of(pair.socket);
    pair.socket.close_peer_sock(FALSE);
    EXPECT_EQ(pair.socket.m_read_watch_id, 0u);
    const size_t before = resource_count::take().sources.size();

    let_time_pass_for(timer);
    EXPECT_TRUE(wait_until([&] { return pair.owner.calls == 1; }));

    EXPECT_EQ(resource_count::take().sources.size(), before - 1);
}

TEST(read_timeout, Of_a_closed_peer_does_not_end_a_request_to_the_next_one) {
    connected pair;
    pair.read(1, 1, 5);
    const guint timer = timer_of(pair.socket);
    pair.socket.close_peer_sock(FALSE);
    ASSERT_TRUE(pair.socket.start_connect());
    raw_socket next_peer = pair.listener.accept();

    ASSERT_TRUE(pair.read(1, 1, 0));

    EXPECT_FALSE(is_attached(timer));
    EXPECT_EQ(timer_of(pair.socket), 0u);
    next_peer.send("a");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 1);
}

TEST(read_timeout, Can_be_armed_and_disarmed) {
    connected pair;
    pair.read(1, 1, 5);
    const guint first = timer_of(pair.socket);
    pair.socket.set_timeout_cb();
    EXPECT_FALSE(is_attached(first));
    EXPECT_TRUE(is_attached(timer_of(pair.socket)));
    pair.socket.remove_timeout_cb();
    EXPECT_EQ(timer_of(pair.socket), 0u);
    pair.socket.remove_timeout_cb();
    EXPECT_EQ(timer_of(pair.socket), 0u);
}

TEST(read_timeout, Its_end_may_be_called_by_hand) {
    connected pair;
    pair.read(1, 1, 5);
    pair.socket.cb_timeout(nullptr);
    EXPECT_EQ(pair.owner.calls, 1);
    EXPECT_EQ(pair.owner.status, 0);
    EXPECT_FALSE(pair.socket.m_read_context.reading);
    EXPECT_EQ(timer_of(pair.socket), 0u);
}
