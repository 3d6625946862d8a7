// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "socket_owners.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

constexpr char ip_signature[] = "std::string vask_socket::get_peer_ip_addr()";
constexpr char port_signature[] = "int vask_socket::get_peer_port()";

std::string not_ready(const char* signature) {
    return std::string(signature) + ": peer_sock is not ready";
}

/** A socket whose subclass brings its own descriptor. */
class supplied : public open_socket<vask_socket> {
public:
    explicit supplied(int fd) : open_socket(VASK_SOCK_TCP, 0, nullptr) { peer_sock = fd; }
    // What has no channel is not closed by the library.
    ~supplied() override {
        if (peer_ch == nullptr) {
            close(peer_sock);
        }
    }
    void set_address(const char* address, int port) {
        m_peer_addr.sin_family = AF_INET;
        m_peer_addr.sin_addr.s_addr = inet_addr(address);
        m_peer_addr.sin_port = htons(static_cast<in_port_t>(port));
    }
};

int stream_socket() {
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

}  // namespace

TEST(peer_address, Is_the_peers_in_dotted_form) {
    connected pair;
    EXPECT_EQ(pair.socket.get_peer_ip_addr(), "127.0.0.1");
}

TEST(peer_address, The_longest_one_fits) {
    supplied socket(stream_socket());
    socket.set_address("255.254.253.252", 1);
    EXPECT_EQ(socket.get_peer_ip_addr(), "255.254.253.252");
}

TEST(peer_address, Without_a_peer_is_empty) {
    vask_socket socket(VASK_SOCK_TCP, 0, nullptr);
    log_catcher log;
    EXPECT_EQ(socket.get_peer_ip_addr(), "");
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("BUG", no_name, not_ready(ip_signature))));
}

TEST(peer_port, Is_in_network_byte_order) {
    supplied socket(stream_socket());
    socket.set_address("127.0.0.1", 8080);
    EXPECT_EQ(socket.get_peer_port(), htons(8080));
    EXPECT_NE(socket.get_peer_port(), 8080);
    // 8080 is 0x1f90.
    EXPECT_EQ(socket.get_peer_port(), 0x901f);
}

TEST(peer_port, Of_a_client_is_the_port_it_is_connected_to) {
    connected pair;
    EXPECT_EQ(pair.socket.get_peer_port(), htons(pair.listener.port()));
}

TEST(peer_port, Of_an_accepted_connection_is_that_of_the_client) {
    served service;
    raw_socket client = service.client();
    EXPECT_EQ(service.owner.sockets.front()->get_peer_port(), htons(client.port()));
    EXPECT_EQ(service.owner.sockets.front()->get_peer_ip_addr(), "127.0.0.1");
    EXPECT_EQ(service.server.get_peer_port(), htons(client.port()));
}

TEST(peer_port, Without_a_peer_is_0) {
    vask_socket socket(VASK_SOCK_TCP, 0, nullptr);
    log_catcher log;
    EXPECT_EQ(socket.get_peer_port(), 0);
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("BUG", no_name, not_ready(port_signature))));
}

TEST(peer_address, After_closing_there_is_none) {
    connected pair;
    pair.socket.close_peer_sock(FALSE);
    log_catcher log;
    EXPECT_EQ(pair.socket.get_peer_ip_addr(), "");
    EXPECT_EQ(pair.socket.get_peer_port(), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("BUG", client_name, not_ready(ip_signature)),
                            socket_line("BUG", client_name, not_ready(port_signature))));
}

TEST(supplied_descriptor, Is_connected_and_used) {
    raw_socket listener = raw_socket::listening();
    supplied socket(stream_socket());
    socket.set_address("127.0.0.1", listener.port());
    ASSERT_TRUE(socket.make_connection());
    raw_socket peer = listener.accept();
    // Like every new channel of GLib this one has UTF-8 and a buffer, until somebody says
    // otherwise.
    request_owner owner;
    ASSERT_TRUE(socket.set_read_request(owner.handler(), 3, 3, 0));
    peer.send("abc");
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    EXPECT_EQ(owner.received, "abc");
}

TEST(supplied_descriptor, Gets_a_channel_for_its_first_request) {
    connected pair;
    supplied socket(dup(pair.peer.fd()));
    request_owner owner;
    ASSERT_TRUE(socket.set_read_request(owner.handler(), 3, 3, 0));
    EXPECT_NE(socket.peer_ch, nullptr);
    EXPECT_FALSE(g_io_channel_get_buffered(socket.peer_ch));
    EXPECT_EQ(g_io_channel_get_encoding(socket.peer_ch), nullptr);
    pair.socket.write("abc", 3);
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    EXPECT_EQ(owner.received, "abc");
}

TEST(supplied_descriptor, May_be_taken_away_while_there_is_no_channel) {
    served service;
    raw_socket client = service.client();
    service.owner.sockets.clear();
    const int taken = service.server.peer_sock;
    service.server.peer_sock = 0;

    raw_socket next_client = service.client();

    EXPECT_FALSE(client.peer_is_gone());
    close(taken);
    EXPECT_TRUE(wait_until([&] { return client.peer_is_gone(); }));
}

TEST(broadcast_option, Is_set_on_the_descriptor) {
    supplied socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    EXPECT_TRUE(socket.set_broadcast_option());
    EXPECT_TRUE(option_is_set(socket.peer_sock, SO_BROADCAST));
}

TEST(broadcast_option, Without_a_descriptor_fails_and_leaves_descriptor_0_alone) {
    vask_socket socket(VASK_SOCK_UDP, 0, nullptr);
    EXPECT_FALSE(socket.set_broadcast_option());
    EXPECT_EQ(errno, EBADF);
}

TEST(connection, Without_a_descriptor_fails_and_leaves_descriptor_0_alone) {
    vask_socket socket(VASK_SOCK_TCP, 0, nullptr);
    EXPECT_FALSE(socket.make_connection());
    EXPECT_EQ(errno, EBADF);
}

TEST(connection, That_is_refused_leaves_the_reason_and_no_channel) {
    supplied socket(stream_socket());
    socket.set_address("127.0.0.1", unused_port(SOCK_STREAM));
    log_catcher log;
    EXPECT_FALSE(socket.make_connection());
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(socket.peer_ch, nullptr);
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}
