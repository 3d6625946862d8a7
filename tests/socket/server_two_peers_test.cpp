// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A connection that comes while the server itself reads from another one.

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <functional>
#include <memory>

#include "socket_owners.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/** A server with a pending request for its first peer. */
class reading_server : public served {
public:
    reading_server() : first(client()) {
        owner.sockets.clear();
        ask();
    }

    bool ask(int timeout = 0) { return server.set_read_request(reader.handler(), 4, 4, timeout); }
    bool wait_for_end_of_request() {
        return wait_until([this] { return !server.m_read_context.reading; });
    }

    raw_socket first;
    request_owner reader;
};

}  // namespace

TEST(two_peers, The_request_goes_on_on_the_channel_of_the_former) {
    reading_server service;
    log_catcher log;
    service.first.send("11");
    raw_socket second = service.client();
    EXPECT_EQ(service.reader.calls, 0);
    second.send("2222");
    drain_main_loop();
    service.first.send("11");

    EXPECT_TRUE(service.wait_for_end_of_request());

    EXPECT_EQ(service.reader.calls, 1);
    EXPECT_EQ(service.reader.received, "1111");
    EXPECT_EQ(service.reader.status, 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(two_peers, The_time_out_of_the_request_goes_on) {
    served service;
    raw_socket first = service.client();
    request_owner reader;
    ASSERT_TRUE(service.server.set_read_request(reader.handler(), 4, 4, 1));
    const guint timer = service.server.m_read_context.timer_id;
    raw_socket second = service.client();
    EXPECT_EQ(service.server.m_read_context.timer_id, timer);
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
    EXPECT_EQ(reader.status, 0);
}

TEST(two_peers, The_descriptor_and_the_address_are_those_of_the_latter) {
    reading_server service;
    raw_socket second = service.client();
    EXPECT_EQ(service.server.get_peer_port(), htons(second.port()));
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    getpeername(service.server.peer_sock, reinterpret_cast<sockaddr*>(&address), &length);
    EXPECT_EQ(address.sin_port, htons(second.port()));
}

TEST(two_peers, The_socket_that_is_handed_out_is_the_latter) {
    reading_server service;
    raw_socket second = service.client();
    request_owner owner;
    ASSERT_TRUE(service.owner.sockets.front()->set_read_request(owner.handler(), 4, 4, 0));
    second.send("2222");
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    EXPECT_EQ(owner.received, "2222");
    EXPECT_TRUE(service.owner.sockets.front()->write("back", 4));
    EXPECT_EQ(second.receive(4), "back");
}

TEST(two_peers, An_answer_and_further_requests_are_for_the_former) {
    reading_server service;
    service.reader.then = [&](vask_socket* socket) {
        EXPECT_TRUE(socket->write("pong", 4));
        EXPECT_TRUE(service.ask());
    };
    raw_socket second = service.client();
    for (int i = 1; i <= 3; ++i) {
        service.first.send("ping");
        EXPECT_TRUE(wait_until([&] { return service.reader.calls == i; }));
        EXPECT_EQ(service.first.receive(4), "pong");
    }
}

TEST(two_peers, An_answer_after_the_handler_is_for_the_former_as_well) {
    reading_server service;
    raw_socket second = service.client();
    service.first.send("ping");
    EXPECT_TRUE(service.wait_for_end_of_request());
    drain_main_loop();
    EXPECT_TRUE(service.server.write("pong", 4));
    EXPECT_EQ(service.first.receive(4), "pong");
}

TEST(two_peers, When_the_former_has_left_the_server_reads_from_the_latter) {
    reading_server service;
    raw_socket second = service.client();
    service.owner.sockets.clear();
    service.first.close();
    EXPECT_TRUE(service.wait_for_end_of_request());
    EXPECT_EQ(service.reader.status, 2);

    ASSERT_TRUE(service.ask());
    second.send("2222");

    EXPECT_TRUE(service.wait_for_end_of_request());
    EXPECT_EQ(service.reader.received, "2222");
}

TEST(two_peers, A_former_one_that_leaves_is_closed) {
    reading_server service;
    raw_socket second = service.client();
    shutdown(service.first.fd(), SHUT_WR);
    EXPECT_TRUE(wait_until([&] { return service.first.peer_is_gone(); }));
    EXPECT_FALSE(second.peer_is_gone());
}

TEST(two_peers, A_former_one_that_is_only_slow_may_be_asked_again_by_the_handler) {
    reading_server service;
    service.first.send("ping");
    EXPECT_TRUE(service.wait_for_end_of_request());
    service.reader.then = [&](vask_socket*) {
        if (service.reader.status == 0) {
            EXPECT_TRUE(service.ask());
        }
    };
    ASSERT_TRUE(service.ask(1));
    raw_socket second = service.client();
    EXPECT_TRUE(wait_until([&] { return service.reader.calls == 2; }));
    service.first.send("late");
    EXPECT_TRUE(wait_until([&] { return service.reader.calls == 3; }));
    EXPECT_EQ(service.reader.received, "late");
}

TEST(two_peers, When_the_former_leaves_a_server_that_has_stopped_accepts_again) {
    reading_server service;
    service.owner.keep_accepting = false;
    raw_socket second = service.client();
    raw_socket third = raw_socket::connected_to(service.server.port());
    drain_main_loop();
    EXPECT_EQ(service.owner.calls, 2);

    service.first.close();

    EXPECT_TRUE(wait_until([&] { return service.owner.calls == 3; }));
}

TEST(two_peers, A_third_one_leaves_the_request_with_the_first) {
    reading_server service;
    raw_socket second = service.client();
    service.owner.sockets.clear();
    raw_socket third = service.client();
    EXPECT_TRUE(wait_until([&] { return second.peer_is_gone(); }));
    EXPECT_EQ(service.server.get_peer_port(), htons(third.port()));
    service.first.send("1111");
    EXPECT_TRUE(service.wait_for_end_of_request());
    EXPECT_EQ(service.reader.received, "1111");
}

TEST(two_peers, The_end_of_the_latter_leaves_the_request_of_the_former) {
    reading_server service;
    raw_socket second = service.client();
    service.owner.sockets.front()->close_peer_sock(FALSE);
    EXPECT_EQ(service.server.peer_sock, 0);
    service.first.send("1111");
    EXPECT_TRUE(service.wait_for_end_of_request());
    EXPECT_EQ(service.reader.received, "1111");
}

TEST(two_peers, A_latter_one_can_be_rejected_by_its_handler) {
    reading_server service;
    service.owner.then = [&] { service.owner.sockets.back()->close_peer_sock(FALSE); };
    raw_socket second = service.client();
    EXPECT_TRUE(wait_until([&] { return second.peer_is_gone(); }));
    service.first.send("1111");
    EXPECT_TRUE(service.wait_for_end_of_request());
    EXPECT_EQ(service.reader.received, "1111");
}

TEST(two_peers, Closing_the_peer_of_the_server_closes_the_former_first) {
    reading_server service;
    raw_socket second = service.client();
    service.server.close_peer_sock(FALSE);
    EXPECT_FALSE(service.server.m_read_context.reading);
    EXPECT_TRUE(wait_until([&] { return service.first.peer_is_gone(); }));
    EXPECT_FALSE(second.peer_is_gone());
    service.server.close_peer_sock(FALSE);
    EXPECT_TRUE(wait_until([&] { return second.peer_is_gone(); }));
}

TEST(two_peers, A_write_that_fails_leaves_the_latter_open) {
    reading_server service;
    raw_socket second = service.client();
    service.first.reset();
    EXPECT_TRUE(wait_until([&] { return service.first.fd() == -1; }));
    log_catcher log;
    while (service.server.write("more", 4)) {
    }
    EXPECT_FALSE(second.peer_is_gone());
    ASSERT_TRUE(service.owner.sockets.front()->set_read_request({}, 1, 1, 0));
    EXPECT_TRUE(service.owner.sockets.front()->write("back", 4));
    EXPECT_EQ(second.receive(4), "back");
}

TEST(two_peers, Another_owner_that_closes_the_former_ends_the_request_without_a_call) {
    served service;
    raw_socket first = service.client();
    request_owner reader;
    ASSERT_TRUE(service.server.set_read_request(reader.handler(), 4, 4, 0));
    raw_socket second = service.client();
    service.owner.sockets.front()->close_peer_sock(FALSE);
    EXPECT_FALSE(service.server.m_read_context.reading);
    EXPECT_EQ(reader.calls, 0);
    ASSERT_TRUE(service.server.set_read_request(reader.handler(), 4, 4, 0));
    second.send("2222");
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
    EXPECT_EQ(reader.received, "2222");
}

TEST(two_peers,
     Another_owner_that_closes_the_latter_takes_away_a_channel_that_was_supplied_for_it) {
    reading_server service;
    bool keeps_channel = true;
    service.owner.then = [&] {
        service.server.peer_ch = g_io_channel_unix_new(service.server.peer_sock);
        vask_socket(service.server).close_peer_sock(FALSE);
        keeps_channel = service.server.peer_ch != nullptr;
    };
    raw_socket second = service.client();
    EXPECT_FALSE(keeps_channel);
    service.first.send("1111");
    EXPECT_TRUE(service.wait_for_end_of_request());
    EXPECT_EQ(service.reader.received, "1111");
}

TEST(two_peers, The_end_of_the_server_closes_the_former_and_leaves_the_latter_to_its_owner) {
    accept_owner owner;
    raw_socket first, second;
    {
        open_server server(VASK_SOCK_TCP, 0);
        server.set_accepted_handler(owner.handler());
        ASSERT_TRUE(server.start_service());
        first = raw_socket::connected_to(server.port());
        EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
        ASSERT_TRUE(server.set_read_request({}, 1, 1, 5));
        second = raw_socket::connected_to(server.port());
        EXPECT_TRUE(wait_until([&] { return owner.calls == 2; }));
    }
    EXPECT_TRUE(wait_until([&] { return first.peer_is_gone(); }));
    EXPECT_FALSE(second.peer_is_gone());
}

TEST(two_peers, The_handler_of_the_latter_may_delete_the_server) {
    auto* server = new open_server(VASK_SOCK_TCP, 0);
    accept_owner owner;
    server->set_accepted_handler(owner.handler());
    ASSERT_TRUE(server->start_service());
    const int port = server->port();
    raw_socket first = raw_socket::connected_to(port);
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    ASSERT_TRUE(server->set_read_request({}, 4, 4, 5));
    owner.then = [server] { delete server; };
    raw_socket second = raw_socket::connected_to(port);
    EXPECT_TRUE(wait_until([&] { return owner.calls == 2; }));
    EXPECT_TRUE(wait_until([&] { return first.peer_is_gone(); }));
}

TEST(two_peers, The_handler_of_the_request_may_delete_the_server) {
    auto* server = new open_server(VASK_SOCK_TCP, 0);
    accept_owner owner;
    server->set_accepted_handler(owner.handler());
    ASSERT_TRUE(server->start_service());
    const int port = server->port();
    raw_socket first = raw_socket::connected_to(port);
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    request_owner reader;
    reader.then = [server](vask_socket*) { delete server; };
    ASSERT_TRUE(server->set_read_request(reader.handler(), 4, 4, 0));
    raw_socket second = raw_socket::connected_to(port);
    EXPECT_TRUE(wait_until([&] { return owner.calls == 2; }));
    first.close();
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
}

TEST(two_peers, A_main_loop_in_the_handler_of_the_latter_serves_the_former) {
    reading_server service;
    service.reader.then = [&](vask_socket* socket) { EXPECT_TRUE(socket->write("pong", 4)); };
    service.owner.then = [&] {
        service.first.send("ping");
        EXPECT_TRUE(wait_until([&] { return service.reader.calls == 1; }));
    };
    raw_socket second = service.client();
    EXPECT_EQ(service.first.receive(4), "pong");
}

TEST(two_peers, A_copy_of_the_server_is_on_the_latter) {
    reading_server service;
    raw_socket second = service.client();
    vask_socket copy(service.server);
    request_owner owner;
    ASSERT_TRUE(copy.set_read_request(owner.handler(), 4, 4, 0));
    second.send("2222");
    service.first.send("1111");
    EXPECT_TRUE(wait_until([&] { return owner.calls + service.reader.calls == 2; }));
    EXPECT_EQ(owner.received, "2222");
    EXPECT_EQ(service.reader.received, "1111");
}

TEST(two_peers, A_request_for_the_latter_is_refused_while_the_former_is_read) {
    reading_server service;
    log_catcher log;
    service.owner.then = [&] { EXPECT_FALSE(service.ask()); };
    raw_socket second = service.client();
    EXPECT_THAT(log.lines(), ElementsAre(socket_line(
                                 "BUG", server_name,
                                 "bool vask_socket::set_read_request(vask_obj_exec_info, gsize, "
                                 "gsize, int): read_req_size: 4. Previous request may not be "
                                 "finished.")));
}

TEST(two_peers, A_service_that_starts_anew_leaves_the_request_of_the_former) {
    reading_server service;
    raw_socket second = service.client();
    ASSERT_TRUE(service.server.start_service());
    raw_socket third = service.client();
    service.first.send("1111");
    EXPECT_TRUE(service.wait_for_end_of_request());
    EXPECT_EQ(service.reader.received, "1111");
}
