// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <vector>

#include "socket_owners.h"
#include "support/glib_log_catcher.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char start_signature[] = "bool vask_server_socket::start_service()";
constexpr char watch_signature[] =
    "gboolean vask_server_socket::watch_accepted(GIOChannel*, GIOCondition)";
constexpr char accepted_signature[] =
    "virtual gboolean vask_server_socket::accepted(GIOChannel*, GIOCondition, bool)";

std::string traced_connection(const raw_socket& client) {
    return std::string(accepted_signature) +
           ": IP: 127.0.0.1, port: " + std::to_string(htons(client.port()));
}

/** Keeps the descriptors of its connections instead of handing them out. */
class keeping_server : public open_server {
public:
    keeping_server() : open_server(VASK_SOCK_TCP, 0) { EXPECT_TRUE(start_service()); }

    gboolean accepted(GIOChannel*, GIOCondition, bool ok) override {
        if (ok) {
            kept.emplace_back(peer_sock);
        }
        if (then) {
            then();
        }
        return TRUE;
    }

    /** A client whose connection has been accepted. */
    raw_socket client() {
        const size_t before = kept.size();
        raw_socket result = raw_socket::connected_to(port());
        EXPECT_TRUE(wait_until([&] { return kept.size() > before; }));
        return result;
    }

    std::vector<raw_socket> kept;
    std::function<void()> then;
};

/** Whether a connection is still open at the server's end. */
bool is_open(const raw_socket& kept, const raw_socket& client) {
    client.send("ping");
    return kept.receive(4) == "ping" && !client.peer_is_gone();
}

}  // namespace

TEST(server, Is_named_by_its_constructor) {
    vask_server_socket server(VASK_SOCK_TCP, 0);
    log_catcher log;
    server.write("a", 1);
    EXPECT_THAT(log.lines(), ElementsAre(logged("BUG", server_name, testing::_)));
}

TEST(server, Has_raw_bytes) {
    class server_with_encoding : public open_server {
    public:
        using open_server::open_server;
        using vask_socket::m_encoding;
    };
    server_with_encoding server(VASK_SOCK_TCP, 0);
    EXPECT_EQ(server.m_encoding, nullptr);
}

TEST(server, Listens_on_all_addresses) {
    served service;
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    getsockname(service.server.m_sock, reinterpret_cast<sockaddr*>(&address), &length);
    EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_ANY));
    EXPECT_TRUE(option_is_set(service.server.m_sock, SO_ACCEPTCONN));
    EXPECT_TRUE(option_is_set(service.server.m_sock, SO_REUSEADDR));
}

TEST(server, Listens_on_the_port_that_it_was_given) {
    const int port = unused_port(SOCK_STREAM);
    open_server server(VASK_SOCK_TCP, port);
    ASSERT_TRUE(server.start_service());
    EXPECT_EQ(server.port(), port);
}

TEST(server, A_port_of_more_than_16_bits_is_cut) {
    const int port = unused_port(SOCK_STREAM);
    open_server server(VASK_SOCK_TCP, port + 65536);
    ASSERT_TRUE(server.start_service());
    EXPECT_EQ(server.port(), port);
}

TEST(server, Has_a_backlog_of_1) {
    served service;
    tcp_info info = {};
    socklen_t length = sizeof info;
    ASSERT_EQ(getsockopt(service.server.m_sock, IPPROTO_TCP, TCP_INFO, &info, &length), 0);
    // Of a listening socket this is the length of its queue.
    EXPECT_EQ(info.tcpi_sacked, 1u);
}

TEST(server, Its_start_is_traced) {
    open_server server(VASK_SOCK_TCP, 0);
    debug_messages level;
    log_catcher log;
    EXPECT_TRUE(server.start_service());
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("DBG", server_name, start_signature)));
}

TEST(server, Its_start_is_traced_before_the_reason_for_refusing_it) {
    open_server server(static_cast<vask_sock_proto>(2), 0);
    debug_messages level;
    log_catcher log;
    EXPECT_FALSE(server.start_service());
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("DBG", server_name, start_signature),
                                         socket_line("BUG", server_name, "Unkown proto: 2")));
}

TEST(server, Hands_out_each_connection_as_a_socket_of_its_own) {
    served service;
    raw_socket first = service.client();
    raw_socket second = service.client();
    EXPECT_EQ(service.owner.calls, 2);
    ASSERT_THAT(service.owner.sockets, SizeIs(2));
    EXPECT_EQ(service.owner.sockets[0]->get_peer_port(), htons(first.port()));
    EXPECT_EQ(service.owner.sockets[1]->get_peer_port(), htons(second.port()));
}

TEST(server, Connections_are_independent_of_each_other) {
    served service;
    raw_socket first = service.client();
    raw_socket second = service.client();
    request_owner first_owner, second_owner;
    service.owner.sockets[0]->set_read_request(first_owner.handler(), 5, 5, 0);
    service.owner.sockets[1]->set_read_request(second_owner.handler(), 6, 6, 0);
    second.send("second");
    first.send("first");
    EXPECT_TRUE(wait_until([&] { return first_owner.calls + second_owner.calls == 2; }));
    EXPECT_EQ(first_owner.received, "first");
    EXPECT_EQ(second_owner.received, "second");
}

TEST(server, A_connection_is_traced_with_its_address_and_the_port_as_it_is_stored) {
    served service;
    debug_messages level;
    log_catcher log;
    raw_socket client = service.client();
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("DBG", server_name, watch_signature),
                            socket_line("DBG", server_name, traced_connection(client))));
}

TEST(server, Goes_on_while_the_handler_leaves_the_flag) {
    served service;
    std::vector<raw_socket> clients;
    for (int i = 0; i < 20; ++i) {
        clients.push_back(service.client());
    }
    EXPECT_EQ(service.owner.calls, 20);
    EXPECT_THAT(service.owner.sockets, SizeIs(20));
}

TEST(server, Stops_when_the_handler_clears_the_flag) {
    served service;
    service.owner.keep_accepting = false;
    raw_socket first = service.client();
    raw_socket second = raw_socket::connected_to(service.server.port());
    EXPECT_EQ(dispatches_within(100), 1);
    EXPECT_EQ(service.owner.calls, 1);
}

TEST(server, That_has_stopped_accepts_again_on_demand) {
    served service;
    service.owner.keep_accepting = false;
    raw_socket first = service.client();
    raw_socket second = raw_socket::connected_to(service.server.port());
    service.server.set_watch_accepted();
    EXPECT_TRUE(wait_until([&] { return service.owner.calls == 2; }));
}

TEST(server, That_has_stopped_accepts_again_when_its_own_request_ends_incomplete) {
    served service;
    service.owner.keep_accepting = false;
    raw_socket first = service.client();
    service.owner.sockets.clear();
    request_owner reader;
    ASSERT_TRUE(service.server.set_read_request(reader.handler(), 4, 4, 0));
    raw_socket second = raw_socket::connected_to(service.server.port());
    drain_main_loop();
    EXPECT_EQ(service.owner.calls, 1);

    first.close();

    EXPECT_TRUE(wait_until([&] { return service.owner.calls == 2; }));
    EXPECT_EQ(reader.calls, 1);
    EXPECT_EQ(reader.status, 2);
}

TEST(server, That_has_stopped_accepts_again_when_its_own_request_times_out) {
    served service;
    service.owner.keep_accepting = false;
    raw_socket first = service.client();
    service.owner.sockets.clear();
    request_owner reader;
    ASSERT_TRUE(service.server.set_read_request(reader.handler(), 4, 4, 1));
    raw_socket second = raw_socket::connected_to(service.server.port());
    EXPECT_TRUE(wait_until([&] { return service.owner.calls == 2; }));
    EXPECT_EQ(reader.status, 0);
}

TEST(server, That_has_stopped_does_not_accept_when_its_own_request_completes) {
    served service;
    service.owner.keep_accepting = false;
    raw_socket first = service.client();
    service.owner.sockets.clear();
    request_owner reader;
    ASSERT_TRUE(service.server.set_read_request(reader.handler(), 4, 4, 0));
    raw_socket second = raw_socket::connected_to(service.server.port());
    first.send("ping");
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
    EXPECT_EQ(reader.status, 1);
    drain_main_loop();
    EXPECT_EQ(service.owner.calls, 1);
    EXPECT_EQ(service.server.m_accept_watch_id, 0u);
}

TEST(server, Serves_its_last_peer_through_its_own_requests) {
    served service;
    raw_socket client = service.client();
    service.owner.sockets.clear();
    request_owner reader;
    ASSERT_TRUE(service.server.set_read_request(reader.handler(), 4, 4, 0));
    client.send("ping");
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
    EXPECT_EQ(reader.received, "ping");
    EXPECT_TRUE(service.server.write("pong", 4));
    EXPECT_EQ(client.receive(4), "pong");
}

TEST(server, Without_a_handler_reports_a_connection_and_stops) {
    open_server server(VASK_SOCK_TCP, 0);
    ASSERT_TRUE(server.start_service());
    log_catcher log;
    raw_socket client = raw_socket::connected_to(server.port());
    EXPECT_TRUE(wait_until([&] { return !log.lines().empty(); }));
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("BUG", server_name, "accepted_cb is invalid")));
    log.clear();
    raw_socket second = raw_socket::connected_to(server.port());
    EXPECT_EQ(dispatches_within(100), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(server, Without_a_handler_a_connection_is_traced_before_it_is_reported) {
    open_server server(VASK_SOCK_TCP, 0);
    ASSERT_TRUE(server.start_service());
    debug_messages level;
    log_catcher log;
    raw_socket client = raw_socket::connected_to(server.port());
    EXPECT_TRUE(wait_until([&] { return server.peer_sock != 0; }));
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("DBG", server_name, watch_signature),
                            socket_line("DBG", server_name, traced_connection(client)),
                            socket_line("BUG", server_name, "accepted_cb is invalid")));
}

TEST(server, A_handler_without_object_or_function_is_none) {
    accept_owner owner;
    for (const vask_obj_exec_info& handler :
         {vask_obj_exec_info{owner.handler().func, nullptr, nullptr},
          vask_obj_exec_info{nullptr, nullptr, &owner}}) {
        open_server server(VASK_SOCK_TCP, 0);
        server.set_accepted_handler(handler);
        ASSERT_TRUE(server.start_service());
        log_catcher log;
        raw_socket client = raw_socket::connected_to(server.port());
        EXPECT_TRUE(wait_until([&] { return !log.lines().empty(); }));
        EXPECT_THAT(log.lines(),
                    ElementsAre(socket_line("BUG", server_name, "accepted_cb is invalid")));
    }
    EXPECT_EQ(owner.calls, 0);
}

TEST(server, A_subclass_can_take_over_the_connections) {
    keeping_server server;
    raw_socket client = server.client();
    EXPECT_THAT(server.kept, SizeIs(1));
    EXPECT_EQ(server.get_peer_port(), htons(client.port()));
}

TEST(server, A_connection_that_a_subclass_has_taken_over_stays_open_when_the_next_one_comes) {
    keeping_server server;
    raw_socket first = server.client();
    raw_socket second = server.client();
    EXPECT_TRUE(is_open(server.kept[0], first));
    EXPECT_TRUE(is_open(server.kept[1], second));
}

TEST(server, A_connection_that_a_subclass_has_taken_over_stays_open_when_the_server_ends) {
    auto server = std::make_unique<keeping_server>();
    raw_socket client = server->client();
    const std::vector<raw_socket> kept = std::move(server->kept);
    server.reset();
    EXPECT_TRUE(is_open(kept.front(), client));
}

TEST(server, A_connection_that_a_subclass_has_closed_is_not_closed_once_more) {
    auto server = std::make_unique<keeping_server>();
    raw_socket client = server->client();
    const int number = server->peer_sock;
    server->kept.clear();
    const raw_socket stranger(dup2(STDOUT_FILENO, number));
    server.reset();
    EXPECT_NE(fcntl(stranger.fd(), F_GETFD), -1);
}

TEST(server, A_connection_that_has_been_read_through_the_server_is_closed_when_the_next_one_comes) {
    keeping_server server;
    request_owner reader;
    server.then = [&] {
        server.kept.back().forget();
        EXPECT_TRUE(server.set_read_request(reader.handler(), 4, 4, 0));
    };
    raw_socket first = server.client();
    first.send("ping");
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
    EXPECT_FALSE(first.peer_is_gone());
    raw_socket second = server.client();
    EXPECT_TRUE(wait_until([&] { return first.peer_is_gone(); }));
}

TEST(server, A_connection_that_a_subclass_copies_is_closed_by_the_last_of_those_who_share_it) {
    std::unique_ptr<vask_socket> copy;
    keeping_server server;
    server.then = [&] {
        server.kept.back().forget();
        copy = std::make_unique<vask_socket>(server);
    };
    raw_socket first = server.client();
    raw_socket second = server.client();
    EXPECT_TRUE(wait_until([&] { return first.peer_is_gone(); }));
    EXPECT_FALSE(second.peer_is_gone());
}

TEST(server, A_connection_that_no_handler_takes_is_closed_when_the_next_one_comes) {
    open_server server(VASK_SOCK_TCP, 0);
    ASSERT_TRUE(server.start_service());
    log_catcher log;
    raw_socket first = raw_socket::connected_to(server.port());
    EXPECT_TRUE(wait_until([&] { return server.peer_sock != 0; }));
    EXPECT_FALSE(first.peer_is_gone());
    server.set_watch_accepted();
    raw_socket second = raw_socket::connected_to(server.port());
    EXPECT_TRUE(wait_until([&] { return first.peer_is_gone(); }));
}

TEST(server, The_data_pointer_of_the_handler_is_the_record_while_the_handler_runs) {
    served service;
    const void* argument = nullptr;
    const void* data = nullptr;
    service.owner.then = [&] {
        argument = service.owner.info;
        data = service.server.m_accepted_handler.data;
    };
    raw_socket client = service.client();
    EXPECT_NE(argument, nullptr);
    EXPECT_EQ(data, argument);
    EXPECT_EQ(service.server.m_accepted_handler.data, nullptr);
}

TEST(server, A_handler_that_is_set_meanwhile_keeps_its_data_pointer) {
    served service;
    accept_owner next;
    int some_data = 0;
    service.owner.then = [&] {
        service.server.set_accepted_handler({next.handler().func, &some_data, &next});
    };
    raw_socket first = service.client();
    EXPECT_EQ(service.server.m_accepted_handler.data, &some_data);
    raw_socket second = raw_socket::connected_to(service.server.port());
    EXPECT_TRUE(wait_until([&] { return next.calls == 1; }));
}

TEST(server, Of_an_unknown_protocol_does_not_start) {
    open_server server(static_cast<vask_sock_proto>(2), 0);
    log_catcher log;
    EXPECT_FALSE(server.start_service());
    EXPECT_EQ(server.m_sock, 0);
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("BUG", server_name, "Unkown proto: 2")));
}

TEST(server, A_second_one_on_the_same_port_fails_to_bind) {
    served service;
    open_server second(VASK_SOCK_TCP, service.server.port());
    log_catcher log;
    EXPECT_FALSE(second.start_service());
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", server_name,
                                        std::string(start_signature) + ": Failed to call bind(): " +
                                            std::to_string(EADDRINUSE))));
}

TEST(server, Starts_again_on_a_port_with_a_connection_in_TIME_WAIT) {
    int port = 0;
    {
        served service;
        port = service.server.port();
        raw_socket client = service.client();
        // Who closes first waits.
        service.owner.sockets.clear();
        service.server.close_peer_sock(FALSE);
        EXPECT_EQ(client.receive_to_the_end(), "");
    }
    open_server next(VASK_SOCK_TCP, port);
    log_catcher log;
    EXPECT_TRUE(next.start_service());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(server, Its_accept_watch_needs_a_listening_channel) {
    open_server server(VASK_SOCK_TCP, 0);
    log_catcher log;
    server.set_watch_accepted();
    EXPECT_EQ(server.m_accept_watch_id, 0u);
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("BUG", server_name,
                                        "void vask_server_socket::set_watch_accepted(): sock_ch == "
                                        "NULL")));
}

TEST(server, Its_accept_watch_is_known_until_it_is_dispatched) {
    served service;
    EXPECT_NE(service.server.m_accept_watch_id, 0u);
    raw_socket client = service.client();
    EXPECT_EQ(service.server.m_accept_watch_id, 0u);
}

TEST(server, The_end_of_one_that_listens_is_reported_by_GLib_once) {
    glib_log_catcher glib_log;
    { served service; }
    EXPECT_THAT(glib_log.entries, ElementsAre(glib_log_catcher::entry{
                                      G_LOG_LEVEL_CRITICAL,
                                      "g_object_unref: assertion 'G_IS_OBJECT (object)' failed"}));
}

TEST(server, The_end_of_one_that_has_not_started_is_not_reported) {
    glib_log_catcher glib_log;
    { open_server server(VASK_SOCK_TCP, 0); }
    EXPECT_THAT(glib_log.entries, IsEmpty());
}

TEST(server, Its_end_closes_the_listening_socket_and_leaves_the_connections) {
    auto service = std::make_unique<served>();
    raw_socket client = service->client();
    std::unique_ptr<vask_socket> connection = std::move(service->owner.sockets.front());
    const int port = service->server.port();
    service.reset();

    EXPECT_TRUE(raw_socket::is_refused(port));
    request_owner owner;
    ASSERT_TRUE(connection->set_read_request(owner.handler(), 4, 4, 0));
    client.send("ping");
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    EXPECT_EQ(owner.received, "ping");
}

TEST(server, May_start_once_more) {
    served service;
    raw_socket first = service.client();
    ASSERT_TRUE(service.server.start_service());
    raw_socket second = service.client();
    EXPECT_EQ(service.owner.calls, 2);
}
