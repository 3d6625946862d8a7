// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "socket_faults.h"
#include "socket_owners.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string failed(const std::string& function, int error) {
    return "bool vask_client_socket::start_connect(): Failed to call " + function +
           "(): " + std::to_string(error);
}

}  // namespace

TEST(client, Connects) {
    connected pair;
    EXPECT_EQ(pair.peer.peer_port(), raw_socket::port_of(pair.socket.peer_sock));
    EXPECT_NE(pair.socket.peer_ch, nullptr);
}

TEST(client, Is_named_by_its_constructor) {
    vask_client_socket client("127.0.0.1", VASK_SOCK_TCP, 1, nullptr);
    log_catcher log;
    client.write("a", 1);
    EXPECT_THAT(log.lines(), ElementsAre(logged("BUG", client_name, testing::_)));
}

TEST(client, Can_write_before_it_has_read) {
    connected pair;
    EXPECT_TRUE(pair.socket.write("hello", 5));
    EXPECT_EQ(pair.peer.receive(5), "hello");
}

TEST(client, Keeps_a_copy_of_the_address) {
    raw_socket listener = raw_socket::listening();
    std::string address = "127.0.0.1";
    vask_client_socket client(address.c_str(), VASK_SOCK_TCP, listener.port(), nullptr);
    address = "1.2.3.4.5.6";
    EXPECT_TRUE(client.start_connect());
}

TEST(client, Of_a_port_without_a_server_is_refused) {
    vask_client_socket client("127.0.0.1", VASK_SOCK_TCP, unused_port(SOCK_STREAM), nullptr);
    log_catcher log;
    EXPECT_FALSE(client.start_connect());
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name, failed("connect", ECONNREFUSED))));
}

TEST(client, That_was_refused_can_try_again) {
    open_socket<vask_client_socket> client("127.0.0.1", VASK_SOCK_TCP, unused_port(SOCK_STREAM),
                                           nullptr);
    log_catcher log;
    EXPECT_FALSE(client.start_connect());
    EXPECT_EQ(client.peer_ch, nullptr);
    // The descriptor stays until then.
    EXPECT_NE(client.peer_sock, 0);
    EXPECT_FALSE(client.start_connect());
}

TEST(client, Of_an_unknown_protocol_does_not_connect) {
    open_socket<vask_client_socket> client("127.0.0.1", static_cast<vask_sock_proto>(7), 1,
                                           nullptr);
    log_catcher log;
    EXPECT_FALSE(client.start_connect());
    EXPECT_EQ(client.peer_sock, 0);
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("BUG", client_name, "Unkown proto: 7")));
}

TEST(client, Without_a_descriptor_fails) {
    vask_client_socket client("127.0.0.1", VASK_SOCK_TCP, 1, nullptr);
    socket_fault fault("socket", EMFILE);
    log_catcher log;
    EXPECT_FALSE(client.start_connect());
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name, failed("socket", EMFILE))));
}

TEST(client, Of_the_broadcast_address_fails_without_the_right_to_broadcast) {
    vask_client_socket client("255.255.255.255", VASK_SOCK_UDP, 1, nullptr);
    socket_fault fault("setsockopt", EPERM);
    log_catcher log;
    EXPECT_FALSE(client.start_connect());
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name,
                                        "Failed to call setsockopt(): " + std::to_string(EPERM))));
}

TEST(client, Of_TCP_does_not_connect_to_the_broadcast_address) {
    vask_client_socket client("255.255.255.255", VASK_SOCK_TCP, 1, nullptr);
    log_catcher log;
    EXPECT_FALSE(client.start_connect());
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name, failed("connect", ENETUNREACH))));
}

TEST(client, Without_an_address_does_not_connect) {
    for (const char* address : {static_cast<const char*>(nullptr), "", "nowhere"}) {
        vask_client_socket client(address, VASK_SOCK_TCP, 1, nullptr);
        log_catcher log;
        EXPECT_FALSE(client.start_connect());
        EXPECT_THAT(log.lines(),
                    ElementsAre(socket_line("ERR", client_name, failed("connect", ENETUNREACH))));
    }
}

TEST(client, An_unknown_encoding_is_refused) {
    raw_socket listener = raw_socket::listening();
    open_socket<vask_client_socket> client("127.0.0.1", VASK_SOCK_TCP, listener.port(),
                                           "NO-SUCH-ENCODING");
    log_catcher log;
    EXPECT_FALSE(client.start_connect());
    EXPECT_NE(client.peer_ch, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(unknown_encoding_line(client_name, "")));
}

TEST(client, An_interrupted_connection_is_waited_for) {
    raw_socket listener = raw_socket::listening();
    vask_client_socket client("127.0.0.1", VASK_SOCK_TCP, listener.port(), nullptr);
    // Like one that goes on by itself: the system says so, and then it is there.
    interrupted_connect interruption;
    log_catcher log;
    EXPECT_TRUE(client.start_connect());
    EXPECT_TRUE(interruption.happened());
    EXPECT_THAT(log.lines(), IsEmpty());
    raw_socket peer = listener.accept();
    EXPECT_TRUE(client.write("a", 1));
    EXPECT_EQ(peer.receive(1), "a");
}

TEST(client, An_interrupted_wait_for_an_interrupted_connection_goes_on) {
    raw_socket listener = raw_socket::listening();
    vask_client_socket client("127.0.0.1", VASK_SOCK_TCP, listener.port(), nullptr);
    interrupted_connect interruption;
    socket_fault fault("poll", EINTR, 3);
    log_catcher log;
    EXPECT_TRUE(client.start_connect());
    EXPECT_EQ(fault.left(), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(client, A_failed_wait_for_an_interrupted_connection_is_a_failed_connection) {
    raw_socket listener = raw_socket::listening();
    vask_client_socket client("127.0.0.1", VASK_SOCK_TCP, listener.port(), nullptr);
    interrupted_connect interruption;
    socket_fault fault("poll", ENOMEM);
    log_catcher log;
    EXPECT_FALSE(client.start_connect());
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name, failed("connect", ENOMEM))));
}

TEST(client, A_new_connection_gives_up_the_former_one) {
    connected pair;
    pair.read(1, 1);
    ASSERT_TRUE(pair.socket.start_connect());
    raw_socket next = pair.listener.accept();
    EXPECT_TRUE(wait_until([&] { return pair.peer.peer_is_gone(); }));
    EXPECT_FALSE(pair.socket.m_read_context.reading);
    EXPECT_TRUE(pair.read(1, 1));
    next.send("a");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "a");
}
