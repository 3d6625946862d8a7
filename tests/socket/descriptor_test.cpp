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

/** The descriptors of the standard streams are free while it lives. */
class closed_standard_streams {
public:
    closed_standard_streams() {
        for (int fd = 0; fd != count; ++fd) {
            m_saved[fd] = fcntl(fd, F_DUPFD_CLOEXEC, count);
        }
        for (int fd = 0; fd != count; ++fd) {
            close(fd);
        }
    }
    ~closed_standard_streams() {
        for (int fd = 0; fd != count; ++fd) {
            if (m_saved[fd] != -1) {
                dup2(m_saved[fd], fd);
                close(m_saved[fd]);
            }
        }
    }
    bool are_free() const {
        int fd = 0;
        while (fd != count && fcntl(fd, F_GETFD) == -1) {
            ++fd;
        }
        return fd == count;
    }

private:
    static constexpr int count = STDERR_FILENO + 1;
    int m_saved[count];
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

TEST(descriptors, A_server_never_has_a_descriptor_of_a_standard_stream) {
    closed_standard_streams gap;
    open_server server(VASK_SOCK_TCP, 0);
    ASSERT_TRUE(server.start_service());
    EXPECT_GT(server.m_sock, STDERR_FILENO);
    EXPECT_TRUE(closes_on_exec(server.m_sock));
    EXPECT_TRUE(gap.are_free());
}

TEST(descriptors, A_client_never_has_a_descriptor_of_a_standard_stream) {
    raw_socket listener = raw_socket::listening();
    closed_standard_streams gap;
    open_socket<vask_client_socket> client("127.0.0.1", VASK_SOCK_TCP, listener.port(), nullptr);
    ASSERT_TRUE(client.start_connect());
    EXPECT_GT(client.peer_sock, STDERR_FILENO);
    EXPECT_TRUE(closes_on_exec(client.peer_sock));
    EXPECT_TRUE(gap.are_free());
    raw_socket peer = listener.accept();
    EXPECT_TRUE(client.write("a", 1));
    EXPECT_EQ(peer.receive(1), "a");
}

TEST(descriptors, An_accepted_connection_never_has_a_descriptor_of_a_standard_stream) {
    served service;
    raw_socket client = raw_socket::connected_to(service.server.port());
    closed_standard_streams gap;
    EXPECT_TRUE(wait_until([&] { return service.owner.calls == 1; }));
    EXPECT_GT(service.server.peer_sock, STDERR_FILENO);
    EXPECT_TRUE(closes_on_exec(service.server.peer_sock));
    EXPECT_TRUE(gap.are_free());
}

TEST(descriptors, An_accepted_connection_blocks_although_the_listening_socket_does_not) {
    served service;
    raw_socket client = service.client();
    EXPECT_NE(fcntl(service.server.m_sock, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(service.server.peer_sock, F_GETFL) & O_NONBLOCK, 0);
}
