// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "socket_faults.h"
#include "socket_owners.h"
#include "vask_test/world.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/** A client of the library and a peer without it. */
class talking {
public:
    explicit talking(const char* encoding = nullptr)
        : client("127.0.0.1", VASK_SOCK_UDP, peer.port(), encoding) {
        EXPECT_TRUE(client.start_connect());
    }

    bool wait_for_end_of_request() {
        return wait_until([this] { return !client.m_read_context.reading; });
    }

    raw_socket peer = raw_socket::receiving_datagrams();
    open_socket<vask_client_socket> client;
    request_owner owner;
};

class udp_server {
public:
    udp_server() : server(VASK_SOCK_UDP, 0) { EXPECT_TRUE(server.start_service()); }

    int port() const { return raw_socket::port_of(server.peer_sock); }
    bool wait_for_end_of_request() {
        return wait_until([this] { return !server.m_read_context.reading; });
    }

    open_server server;
    request_owner owner;
};

/** A client whose datagrams nobody wants, with a pending request. */
class refused {
public:
    refused() : client("127.0.0.1", VASK_SOCK_UDP, unused_port(SOCK_DGRAM), nullptr) {
        EXPECT_TRUE(client.start_connect());
    }

    void provoke() { EXPECT_TRUE(client.write("a", 1)); }

    open_socket<vask_client_socket> client;
    request_owner owner;
};

}  // namespace

TEST(udp_client, Sends_each_write_as_a_datagram) {
    talking pair;
    EXPECT_TRUE(pair.client.write("hello", 5));
    EXPECT_TRUE(pair.client.write("world", -1));
    EXPECT_EQ(pair.peer.receive_datagram(), "hello");
    EXPECT_EQ(pair.peer.receive_datagram(), "world");
}

TEST(udp_client, Receives_answers) {
    talking pair;
    pair.client.write("hello", 5);
    pair.peer.receive_datagram();
    ASSERT_TRUE(pair.client.set_read_request(pair.owner.handler(), 100, 1, 0));
    pair.peer.answer("answer");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 1);
    EXPECT_EQ(pair.owner.received, "answer");
}

TEST(udp_client, All_byte_values_pass_raw) {
    talking pair;
    const std::string sent = every_byte(4);
    EXPECT_TRUE(pair.client.write(sent.data(), static_cast<gssize>(sent.size())));
    EXPECT_EQ(pair.peer.receive_datagram(), sent);
    ASSERT_TRUE(pair.client.set_read_request(pair.owner.handler(), 2000, 1, 0));
    pair.peer.answer(sent);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, sent);
}

TEST(udp_client, A_text_with_an_encoding_leaves_in_one_datagram) {
    talking pair("ISO-8859-1");
    const std::string text(5000, 'x');
    EXPECT_TRUE(pair.client.write(text.data(), static_cast<gssize>(text.size())));
    EXPECT_EQ(pair.peer.receive_datagram(), text);
}

TEST(udp_client, Datagrams_are_not_decoded) {
    talking pair("ISO-8859-1");
    pair.client.write("hello", 5);
    pair.peer.receive_datagram();
    ASSERT_TRUE(pair.client.set_read_request(pair.owner.handler(), 100, 1, 0));
    pair.peer.answer("\xe4");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "\xe4");
}

TEST(udp_client, A_datagram_that_is_too_long_for_the_request_is_cut) {
    talking pair;
    pair.client.write("hello", 5);
    pair.peer.receive_datagram();
    ASSERT_TRUE(pair.client.set_read_request(pair.owner.handler(), 3, 3, 0));
    pair.peer.answer("abcdef");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "abc");
}

TEST(udp_client, Datagrams_are_collected_up_to_the_least_size) {
    talking pair;
    pair.client.write("hello", 5);
    pair.peer.receive_datagram();
    ASSERT_TRUE(pair.client.set_read_request(pair.owner.handler(), 10, 6, 5));
    pair.peer.answer("abc");
    EXPECT_TRUE(wait_until([&] { return pair.client.m_read_context.received == 3; }));
    pair.peer.answer("");
    pair.peer.answer("def");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "abcdef");
}

TEST(udp_client, A_datagram_too_long_for_the_network_fails) {
    talking pair;
    const std::string text(70000, 'x');
    log_catcher log;
    EXPECT_FALSE(pair.client.write(text.data(), static_cast<gssize>(text.size())));
    EXPECT_EQ(pair.client.peer_ch, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("ERR", client_name,
                                                     "Failed to call g_io_channel_write_chars: "
                                                     "70000: 0: Message too long")));
}

TEST(udp_client, Of_the_broadcast_address_can_broadcast) {
    if (is_in_open_world()) {
        GTEST_SKIP() << "no private network";
    }
    raw_socket listener = raw_socket::receiving_datagrams();
    open_socket<vask_client_socket> client("255.255.255.255", VASK_SOCK_UDP, listener.port(),
                                           nullptr);
    ASSERT_TRUE(client.start_connect());
    EXPECT_TRUE(option_is_set(client.peer_sock, SO_BROADCAST));

    EXPECT_TRUE(client.write("anybody?", 8));

    EXPECT_EQ(listener.receive_datagram(), "anybody?");
}

TEST(udp_client, Of_a_text_that_is_no_address_cannot_broadcast) {
    open_socket<vask_client_socket> client("nowhere", VASK_SOCK_UDP, 1, nullptr);
    log_catcher log;
    EXPECT_FALSE(client.start_connect());
    EXPECT_FALSE(option_is_set(client.peer_sock, SO_BROADCAST));
}

TEST(udp_client, Of_another_address_cannot_broadcast) {
    talking pair;
    EXPECT_FALSE(option_is_set(pair.client.peer_sock, SO_BROADCAST));
}

TEST(udp_server, Is_ready_for_requests_at_once) {
    udp_server service;
    EXPECT_NE(service.server.peer_ch, nullptr);
    EXPECT_EQ(service.server.sock_ch, nullptr);
    EXPECT_EQ(service.server.m_accept_watch_id, 0u);
}

TEST(udp_server, Its_channel_has_the_defaults_of_GLib) {
    udp_server service;
    EXPECT_STREQ(g_io_channel_get_encoding(service.server.peer_ch), "UTF-8");
    EXPECT_TRUE(g_io_channel_get_buffered(service.server.peer_ch));
}

TEST(udp_server, Receives_from_anybody_who_becomes_its_peer) {
    udp_server service;
    raw_socket first = raw_socket::receiving_datagrams();
    raw_socket second = raw_socket::receiving_datagrams();
    for (const raw_socket* sender : {&first, &second}) {
        ASSERT_TRUE(service.server.set_read_request(service.owner.handler(), 100, 1, 0));
        sender->send_to(service.port(), "from " + std::to_string(sender->port()));
        EXPECT_TRUE(service.wait_for_end_of_request());
        EXPECT_EQ(service.owner.received, "from " + std::to_string(sender->port()));
        EXPECT_EQ(service.server.get_peer_port(), htons(sender->port()));
        EXPECT_EQ(service.server.get_peer_ip_addr(), "127.0.0.1");
    }
}

TEST(udp_server, Its_peer_has_no_address_before_the_first_datagram) {
    udp_server service;
    EXPECT_EQ(service.server.get_peer_ip_addr(), "0.0.0.0");
    EXPECT_EQ(service.server.get_peer_port(), 0);
}

TEST(udp_server, All_byte_values_pass_raw) {
    udp_server service;
    ASSERT_TRUE(service.server.set_read_request(service.owner.handler(), 2000, 1, 0));
    raw_socket::receiving_datagrams().send_to(service.port(), every_byte(4));
    EXPECT_TRUE(service.wait_for_end_of_request());
    EXPECT_EQ(service.owner.received, every_byte(4));
}

TEST(udp_server, What_it_writes_stays_in_its_channel) {
    udp_server service;
    EXPECT_TRUE(service.server.write("a", 1));
    EXPECT_EQ(g_io_channel_get_buffer_condition(service.server.peer_ch) & G_IO_OUT, G_IO_OUT);
}

TEST(udp_server, What_does_not_fit_in_its_channel_fails) {
    udp_server service;
    const std::string text(5000, 'x');
    log_catcher log;
    EXPECT_FALSE(service.server.write(text.data(), static_cast<gssize>(text.size())));
    EXPECT_EQ(service.server.peer_ch, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("ERR", server_name,
                                                     "Failed to call g_io_channel_write_chars: "
                                                     "5000: 0: Destination address required")));
}

TEST(udp_server, A_request_without_datagrams_times_out) {
    udp_server service;
    log_catcher log;
    ASSERT_TRUE(service.server.set_read_request(service.owner.handler(), 100, 1, 1));
    EXPECT_TRUE(service.wait_for_end_of_request());
    EXPECT_EQ(service.owner.status, 0);
    // It tries to accept again, as every server does then.
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("BUG", server_name,
                                        "void vask_server_socket::set_watch_accepted(): sock_ch == "
                                        "NULL")));
}

TEST(udp_server, A_failed_read_ends_the_request_with_status_0) {
    udp_server service;
    log_catcher log;
    ASSERT_TRUE(service.server.set_read_request(service.owner.handler(), 100, 1, 5));
    socket_fault fault("recvfrom", ENOMEM);
    raw_socket::receiving_datagrams().send_to(service.port(), "a");
    EXPECT_TRUE(service.wait_for_end_of_request());
    EXPECT_EQ(service.owner.calls, 1);
    EXPECT_EQ(service.owner.status, 0);
    EXPECT_FALSE(service.owner.complete);
    EXPECT_EQ(service.server.m_read_context.timer_id, 0u);
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", server_name,
                                        "Failed to call recvfrom(): " + std::to_string(ENOMEM)),
                            testing::_));
}

TEST(udp_server, An_interrupted_read_is_repeated) {
    udp_server service;
    ASSERT_TRUE(service.server.set_read_request(service.owner.handler(), 100, 1, 0));
    socket_fault fault("recvfrom", EINTR, 3);
    raw_socket::receiving_datagrams().send_to(service.port(), "a");
    EXPECT_TRUE(service.wait_for_end_of_request());
    EXPECT_EQ(fault.left(), 0);
    EXPECT_EQ(service.owner.received, "a");
}

TEST(udp_server, A_datagram_that_is_announced_and_not_there_is_waited_for) {
    udp_server service;
    log_catcher log;
    ASSERT_TRUE(service.server.set_read_request(service.owner.handler(), 100, 1, 0));
    socket_fault fault("recvfrom", EAGAIN);
    raw_socket::receiving_datagrams().send_to(service.port(), "a");
    EXPECT_TRUE(service.wait_for_end_of_request());
    EXPECT_EQ(fault.left(), 0);
    EXPECT_EQ(service.owner.status, 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(udp_server, Its_end_closes_the_port) {
    auto service = std::make_unique<udp_server>();
    const int port = service->port();
    service.reset();
    open_server next(VASK_SOCK_UDP, port);
    EXPECT_TRUE(next.start_service());
    EXPECT_EQ(raw_socket::port_of(next.peer_sock), port);
}

TEST(udp_refusal, Does_not_keep_the_loop_busy) {
    refused sender;
    ASSERT_TRUE(sender.client.set_read_request(sender.owner.handler(), 100, 1, 0));
    sender.provoke();
    // One for the error, and one for the end of the time.
    EXPECT_LE(dispatches_within(200), 2);
    EXPECT_EQ(sender.owner.calls, 0);
    EXPECT_TRUE(sender.client.m_read_context.reading);
}

TEST(udp_refusal, From_before_the_request_does_not_keep_the_loop_busy) {
    refused sender;
    sender.provoke();
    ASSERT_TRUE(sender.client.set_read_request(sender.owner.handler(), 100, 1, 0));
    EXPECT_LE(dispatches_within(200), 2);
    EXPECT_TRUE(sender.client.m_read_context.reading);
}

TEST(udp_refusal, Is_logged_for_those_who_ask_for_details_only) {
    refused sender;
    ASSERT_TRUE(sender.client.set_read_request(sender.owner.handler(), 100, 1, 0));
    debug_messages level;
    log_catcher log;
    sender.provoke();
    EXPECT_TRUE(wait_until([&] { return !log.lines().empty(); }));
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("DBG", client_name,
                                                     "An earlier datagram has failed: " +
                                                         std::to_string(ECONNREFUSED))));
}

TEST(udp_refusal, That_is_found_while_reading_is_taken_as_quietly) {
    refused sender;
    ASSERT_TRUE(sender.client.set_read_request(sender.owner.handler(), 100, 1, 0));
    sender.provoke();
    log_catcher log;
    EXPECT_TRUE(sender.client.watch_read(sender.client.peer_ch, G_IO_IN));
    EXPECT_TRUE(sender.client.m_read_context.reading);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(dispatches_within(100), 1);
}

TEST(udp_refusal, Lets_the_request_run_on_to_its_time_out) {
    refused sender;
    log_catcher log;
    ASSERT_TRUE(sender.client.set_read_request(sender.owner.handler(), 100, 1, 1));
    const guint timer = sender.client.m_read_context.timer_id;
    sender.provoke();
    drain_main_loop();
    EXPECT_EQ(sender.client.m_read_context.timer_id, timer);
    EXPECT_TRUE(wait_until([&] { return sender.owner.calls == 1; }));
    EXPECT_EQ(sender.owner.status, 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(udp_refusal, Lets_the_request_run_on_to_data) {
    refused sender;
    ASSERT_TRUE(sender.client.set_read_request(sender.owner.handler(), 100, 1, 0));
    sender.provoke();
    drain_main_loop();
    // The peer opens its port after all.
    open_server late(VASK_SOCK_UDP, ntohs(static_cast<uint16_t>(sender.client.get_peer_port())));
    ASSERT_TRUE(late.start_service());
    ASSERT_TRUE(sender.client.write("hello?", 6));
    raw_socket peer(dup(late.peer_sock));
    EXPECT_EQ(peer.receive_datagram(), "hello?");
    peer.answer("now");
    EXPECT_TRUE(wait_until([&] { return sender.owner.calls == 1; }));
    EXPECT_EQ(sender.owner.received, "now");
}

TEST(udp_refusal, That_data_waits_beside_is_taken_with_them) {
    refused sender;
    sender.provoke();
    open_server late(VASK_SOCK_UDP, ntohs(static_cast<uint16_t>(sender.client.get_peer_port())));
    ASSERT_TRUE(late.start_service());
    const raw_socket peer(dup(late.peer_sock));
    peer.send_to(raw_socket::port_of(sender.client.peer_sock), "now");
    ASSERT_TRUE(sender.client.set_read_request(sender.owner.handler(), 100, 1, 0));
    debug_messages level;
    log_catcher log;
    EXPECT_EQ(dispatches_within(100), 2);
    EXPECT_EQ(sender.owner.received, "now");
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("DBG", client_name,
                                                     "An earlier datagram has failed: " +
                                                         std::to_string(ECONNREFUSED))));
}

TEST(udp_refusal, That_nobody_has_taken_fails_the_next_write) {
    refused sender;
    sender.provoke();
    log_catcher log;
    EXPECT_FALSE(sender.client.write("bb", 2));
    EXPECT_EQ(sender.client.peer_ch, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("ERR", client_name,
                                                     "Failed to call g_io_channel_write_chars: 2: "
                                                     "0: Connection refused")));
}
