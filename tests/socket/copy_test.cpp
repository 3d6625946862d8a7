// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Several sockets on one connection.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>

#include "socket_owners.h"

using namespace vask_test;
using testing::IsEmpty;

namespace {

class copied : public vask_socket {
public:
    explicit copied(vask_socket& other) : vask_socket(other) {}
    using vask_exec::exec_list;
    using vask_object::obj_name;
    using vask_object::shm_lock_sem;
    using vask_socket::m_encoding;
    using vask_socket::m_peer_addr;
    using vask_socket::m_port;
    using vask_socket::m_proto;
    using vask_socket::m_read_done_handler;
    using vask_socket::m_read_watch_id;
    using vask_socket::peer_ch;
    using vask_socket::peer_sock;
};

class busy : public open_socket<vask_client_socket> {
public:
    using open_socket::open_socket;
    void nothing(void*) {}
};

int some_data;

}  // namespace

TEST(socket_copy, Has_the_connection_and_what_describes_it) {
    connected pair("UTF-8");
    copied copy(pair.socket);
    EXPECT_EQ(copy.m_port, pair.listener.port());
    EXPECT_EQ(copy.m_proto, VASK_SOCK_TCP);
    EXPECT_STREQ(copy.m_encoding, "UTF-8");
    EXPECT_EQ(copy.peer_sock, pair.socket.peer_sock);
    EXPECT_EQ(copy.peer_ch, pair.socket.peer_ch);
    EXPECT_EQ(copy.get_peer_ip_addr(), "127.0.0.1");
    EXPECT_EQ(copy.get_peer_port(), pair.socket.get_peer_port());
}

TEST(socket_copy, Has_no_request_and_no_handler) {
    connected pair;
    pair.read(10, 10, 5, &some_data);
    copied copy(pair.socket);
    EXPECT_FALSE(copy.m_read_context.reading);
    EXPECT_EQ(copy.m_read_context.read_req_size, 0u);
    EXPECT_EQ(copy.m_read_context.buffer, nullptr);
    EXPECT_EQ(copy.m_read_context.status, 1);
    EXPECT_EQ(copy.m_read_context.timer_id, 0u);
    EXPECT_EQ(copy.m_read_watch_id, 0u);
    EXPECT_EQ(copy.m_read_done_handler.obj, nullptr);
    EXPECT_TRUE(copy.m_read_done_handler.func == nullptr);
    EXPECT_EQ(copy.get_saved_data(), nullptr);
}

TEST(socket_copy, Of_a_socket_without_a_peer_has_none_either) {
    vask_socket original(VASK_SOCK_UDP, 4711, nullptr);
    copied copy(original);
    EXPECT_EQ(copy.m_port, 4711);
    EXPECT_EQ(copy.m_proto, VASK_SOCK_UDP);
    EXPECT_EQ(copy.peer_sock, 0);
    EXPECT_EQ(copy.peer_ch, nullptr);
}

TEST(socket_copy, Leaves_the_request_of_the_original_alone) {
    connected pair;
    pair.read(1, 1);
    vask_socket copy(pair.socket);
    EXPECT_TRUE(pair.socket.m_read_context.reading);
    pair.peer.send("a");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "a");
}

TEST(socket_copy, Has_a_fresh_queue_of_idle_calls_and_a_fresh_base) {
    raw_socket listener = raw_socket::listening();
    busy original("127.0.0.1", VASK_SOCK_TCP, listener.port(), nullptr);
    ASSERT_TRUE(original.start_connect());
    original.add_idle_exec_func(static_cast<vask_exec_func>(&busy::nothing), nullptr);
    copied copy(original);
    EXPECT_THAT(copy.exec_list, IsEmpty());
    EXPECT_EQ(copy.shm_lock_sem, nullptr);
    EXPECT_STREQ(copy.obj_name, "<No Name>");
    drain_main_loop();
}

TEST(socket_copy, Reads_and_writes) {
    connected pair;
    vask_socket copy(pair.socket);
    request_owner owner;
    EXPECT_TRUE(copy.write("ping", 4));
    EXPECT_EQ(pair.peer.receive(4), "ping");
    EXPECT_TRUE(copy.set_read_request(owner.handler(), 4, 4, 0));
    pair.peer.send("pong");
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    EXPECT_EQ(owner.socket, &copy);
    EXPECT_EQ(owner.received, "pong");
}

TEST(socket_copy, The_end_of_one_with_a_channel_takes_the_peer_from_the_other) {
    connected pair;
    pair.read(1, 1);
    { vask_socket copy(pair.socket); }
    EXPECT_EQ(pair.socket.peer_sock, 0);
    EXPECT_EQ(pair.socket.peer_ch, nullptr);
    EXPECT_FALSE(pair.socket.m_read_context.reading);
    EXPECT_TRUE(wait_until([&] { return pair.peer.peer_is_gone(); }));
    EXPECT_EQ(pair.owner.calls, 0);
}

TEST(socket_copy, Closing_one_does_not_close_a_strangers_descriptor_by_the_other) {
    int stranger = -1;
    {
        connected pair;
        vask_socket copy(pair.socket);
        const int number = pair.socket.peer_sock;
        copy.close_peer_sock(FALSE);
        stranger = dup2(STDOUT_FILENO, number);
    }
    EXPECT_NE(fcntl(stranger, F_GETFD), -1);
    close(stranger);
}

TEST(socket_copy, Without_a_channel_leaves_the_connection_to_the_other) {
    served service;
    raw_socket client = service.client();
    service.owner.sockets.clear();
    request_owner owner;
    ASSERT_TRUE(service.server.set_read_request(owner.handler(), 4, 4, 0));
    client.send("ping");
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    EXPECT_EQ(owner.received, "ping");
}

TEST(socket_copy, The_last_of_several_without_a_channel_closes_the_descriptor) {
    raw_socket client;
    {
        served service;
        client = service.client();
        auto copy = std::make_unique<vask_socket>(*service.owner.sockets.front());
        service.owner.sockets.clear();
        EXPECT_FALSE(client.peer_is_gone());
    }
    EXPECT_TRUE(wait_until([&] { return client.peer_is_gone(); }));
}

TEST(socket_copy, Shares_a_channel_that_the_original_gets_later) {
    served service;
    raw_socket client = service.client();
    vask_socket& accepted = *service.owner.sockets.front();
    copied copy(accepted);
    request_owner first, second;
    EXPECT_TRUE(accepted.set_read_request(first.handler(), 1, 1, 0));
    client.send("a");
    EXPECT_TRUE(wait_until([&] { return first.calls == 1; }));
    EXPECT_TRUE(copy.set_read_request(second.handler(), 1, 1, 0));
    client.send("b");
    EXPECT_TRUE(wait_until([&] { return second.calls == 1; }));
    EXPECT_EQ(second.received, "b");
}
