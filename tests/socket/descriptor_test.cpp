// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "socket_owners.h"

using namespace vask_test;

namespace {

bool closes_on_exec(int fd) {
    return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

/** Descriptor 0 is free while it lives. */
class closed_standard_input {
public:
    closed_standard_input() : m_saved(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)) {
        close(STDIN_FILENO);
    }
    ~closed_standard_input() {
        if (m_saved != -1) {
            dup2(m_saved, STDIN_FILENO);
            close(m_saved);
        }
    }
    bool is_free() const { return fcntl(STDIN_FILENO, F_GETFD) == -1; }

private:
    int m_saved;
};

}  // namespace

TEST(descriptors, Of_a_server_and_its_connections_are_closed_on_exec) {
    served service;
    raw_socket client = service.client();
    EXPECT_TRUE(closes_on_exec(service.server.m_sock));
    EXPECT_TRUE(closes_on_exec(service.server.peer_sock));
}

TEST(descriptors, Of_a_client_is_closed_on_exec) {
    connected pair;
    EXPECT_TRUE(closes_on_exec(pair.socket.peer_sock));
}

TEST(descriptors, Of_UDP_are_closed_on_exec) {
    open_server server(VASK_SOCK_UDP, 0);
    ASSERT_TRUE(server.start_service());
    open_socket<vask_client_socket> client("127.0.0.1", VASK_SOCK_UDP, 1, nullptr);
    ASSERT_TRUE(client.start_connect());
    EXPECT_TRUE(closes_on_exec(server.peer_sock));
    EXPECT_TRUE(closes_on_exec(client.peer_sock));
}

TEST(descriptors, A_server_never_has_descriptor_0) {
    closed_standard_input gap;
    open_server server(VASK_SOCK_TCP, 0);
    ASSERT_TRUE(server.start_service());
    EXPECT_GT(server.m_sock, STDERR_FILENO);
    EXPECT_TRUE(closes_on_exec(server.m_sock));
    EXPECT_TRUE(gap.is_free());
}

TEST(descriptors, A_client_never_has_descriptor_0) {
    raw_socket listener = raw_socket::listening();
    closed_standard_input gap;
    open_socket<vask_client_socket> client("127.0.0.1", VASK_SOCK_TCP, listener.port(), nullptr);
    ASSERT_TRUE(client.start_connect());
    EXPECT_GT(client.peer_sock, STDERR_FILENO);
    EXPECT_TRUE(closes_on_exec(client.peer_sock));
    EXPECT_TRUE(gap.is_free());
    raw_socket peer = listener.accept();
    EXPECT_TRUE(client.write("a", 1));
    EXPECT_EQ(peer.receive(1), "a");
}

TEST(descriptors, An_accepted_connection_never_has_descriptor_0) {
    served service;
    raw_socket client = raw_socket::connected_to(service.server.port());
    closed_standard_input gap;
    EXPECT_TRUE(wait_until([&] { return service.owner.calls == 1; }));
    EXPECT_GT(service.server.peer_sock, STDERR_FILENO);
    EXPECT_TRUE(closes_on_exec(service.server.peer_sock));
    EXPECT_TRUE(gap.is_free());
}

TEST(descriptors, An_accepted_connection_blocks_although_the_listening_socket_does_not) {
    served service;
    raw_socket client = service.client();
    EXPECT_NE(fcntl(service.server.m_sock, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(service.server.peer_sock, F_GETFL) & O_NONBLOCK, 0);
}
