// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Handlers and overrides that throw where the main loop has called them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <stdexcept>

#include "socket_faults.h"
#include "socket_owners.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

[[noreturn]] void run_out_of_paper() {
    throw std::runtime_error("no paper");
}

testing::Matcher<const log_line&> thrown_from(const std::string& callback) {
    return logged("ERR", "vask", callback + ": An exception was thrown: no paper");
}

constexpr char read_done[] = "vask_socket::read_done()";
constexpr char accepted[] = "vask_server_socket::accepted()";
constexpr char timer[] = "vask_exec::_timer_callback()";

}  // namespace

TEST(throwing_handler, Of_a_request_that_is_complete_has_ended_it) {
    connected pair;
    log_catcher log;
    pair.owner.then = [](vask_socket*) { run_out_of_paper(); };
    pair.read(4, 4, 5);
    pair.peer.send("ping");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_THAT(log.lines(), ElementsAre(thrown_from(read_done)));
    EXPECT_EQ(pair.socket.m_read_watch_id, 0u);
    EXPECT_EQ(pair.socket.m_read_context.timer_id, 0u);

    pair.owner.then = nullptr;
    ASSERT_TRUE(pair.read(4, 4));
    pair.peer.send("more");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "more");
}

TEST(throwing_handler, Of_a_request_that_fails_has_ended_it) {
    connected pair;
    log_catcher log;
    pair.owner.then = [](vask_socket*) { run_out_of_paper(); };
    pair.read(4, 4);
    pair.peer.close();
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_THAT(log.lines(), ElementsAre(thrown_from(read_done)));
}

TEST(throwing_handler, Of_a_request_that_times_out_has_ended_it) {
    connected pair;
    log_catcher log;
    pair.owner.then = [](vask_socket*) { run_out_of_paper(); };
    pair.read(4, 4, 1);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_THAT(log.lines(), ElementsAre(thrown_from(timer)));
    EXPECT_EQ(pair.owner.status, 0);
    ASSERT_TRUE(pair.read(4, 4));
}

TEST(throwing_handler, That_has_set_the_next_request_leaves_it_pending) {
    connected pair;
    log_catcher log;
    pair.owner.then = [&pair](vask_socket*) {
        if (pair.owner.calls == 1) {
            pair.read(4, 4);
            run_out_of_paper();
        }
    };
    pair.read(4, 4);
    pair.peer.send("pingmore");
    EXPECT_TRUE(wait_until([&] { return pair.owner.calls == 2; }));
    EXPECT_EQ(pair.owner.received, "more");
}

TEST(throwing_handler, May_delete_the_socket_before) {
    raw_socket listener = raw_socket::listening();
    for (const int timeout : {0, 1}) {
        auto* client = new vask_client_socket("127.0.0.1", VASK_SOCK_TCP, listener.port(), nullptr);
        ASSERT_TRUE(client->start_connect());
        raw_socket peer = listener.accept();
        request_owner owner;
        log_catcher log;
        owner.then = [](vask_socket* socket) {
            delete socket;
            run_out_of_paper();
        };
        client->set_read_request(owner.handler(), 4, 4, timeout);
        if (timeout == 0) {
            peer.send("ping");
        }
        EXPECT_TRUE(wait_until([&] { return !log.lines().empty(); }));
        EXPECT_THAT(log.lines(), ElementsAre(thrown_from(timeout == 0 ? read_done : timer)));
    }
}

TEST(throwing_handler, An_override_of_read_done_that_throws_has_ended_the_request) {
    class throwing : public vask_client_socket {
    public:
        using vask_client_socket::vask_client_socket;
        void read_done() override { run_out_of_paper(); }
    };
    raw_socket listener = raw_socket::listening();
    throwing client("127.0.0.1", VASK_SOCK_TCP, listener.port(), nullptr);
    ASSERT_TRUE(client.start_connect());
    raw_socket peer = listener.accept();
    log_catcher log;
    for (size_t i = 1; i <= 2; ++i) {
        ASSERT_TRUE(client.set_read_request({}, 4, 4, 0));
        peer.send("ping");
        EXPECT_TRUE(wait_until([&] { return log.lines().size() == i; }));
    }
}

TEST(throwing_handler, Of_a_connection_lets_the_server_accept_the_next) {
    served service;
    log_catcher log;
    service.owner.then = [&] {
        if (service.owner.calls == 1) {
            run_out_of_paper();
        }
    };
    raw_socket first = service.client();
    EXPECT_THAT(log.lines(), ElementsAre(thrown_from(accepted)));
    EXPECT_EQ(service.server.m_accepted_handler.data, nullptr);
    raw_socket second = service.client();
    EXPECT_EQ(service.owner.calls, 2);
}

TEST(throwing_handler, Of_a_connection_keeps_the_socket_that_it_has_taken) {
    served service;
    log_catcher log;
    service.owner.then = run_out_of_paper;
    raw_socket client = service.client();
    request_owner reader;
    ASSERT_TRUE(service.owner.sockets.front()->set_read_request(reader.handler(), 4, 4, 0));
    client.send("ping");
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
}

TEST(throwing_handler, Of_a_connection_may_delete_the_server_before) {
    auto* server = new open_server(VASK_SOCK_TCP, 0);
    accept_owner owner;
    owner.then = [server] {
        delete server;
        run_out_of_paper();
    };
    server->set_accepted_handler(owner.handler());
    ASSERT_TRUE(server->start_service());
    log_catcher log;
    raw_socket client = raw_socket::connected_to(server->port());
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    EXPECT_THAT(log.lines(), Contains(thrown_from(accepted)));
}

TEST(throwing_handler, Of_a_connection_may_start_the_service_anew_before) {
    served service;
    log_catcher log;
    service.owner.then = [&] {
        if (service.owner.calls == 1) {
            EXPECT_TRUE(service.server.start_service());
            run_out_of_paper();
        }
    };
    raw_socket first = service.client();
    raw_socket second = service.client();
    EXPECT_EQ(service.owner.calls, 2);
}

TEST(throwing_handler, An_override_of_accepted_that_throws_lets_the_server_accept_the_next) {
    class throwing : public open_server {
    public:
        using open_server::open_server;
        gboolean accepted(GIOChannel*, GIOCondition, bool) override {
            const raw_socket mine(peer_sock);
            ++calls;
            run_out_of_paper();
        }
        int calls = 0;
    };
    throwing server(VASK_SOCK_TCP, 0);
    ASSERT_TRUE(server.start_service());
    log_catcher log;
    for (int i = 1; i <= 2; ++i) {
        raw_socket client = raw_socket::connected_to(server.port());
        EXPECT_TRUE(wait_until([&] { return server.calls == i; }));
    }
    EXPECT_THAT(log.lines(), ElementsAre(thrown_from(accepted), thrown_from(accepted)));
}

TEST(throwing_handler, Of_an_error_that_lasts_does_not_keep_the_loop_busy) {
    served service;
    log_catcher log;
    service.owner.then = run_out_of_paper;
    {
        socket_fault fault("accept4", ENOMEM, 1000);
        raw_socket client = raw_socket::connected_to(service.server.port());
        EXPECT_LE(dispatches_within(450), 11);
        EXPECT_THAT(log.lines(), Contains(thrown_from(accepted)));
    }
    service.owner.then = nullptr;
    EXPECT_TRUE(wait_until(
        [&] { return !service.owner.sockets.empty() && service.owner.sockets.back() != nullptr; }));
}

TEST(throwing_handler, Of_a_request_of_the_server_lets_it_accept_again) {
    served service;
    service.owner.keep_accepting = false;
    raw_socket first = service.client();
    service.owner.sockets.clear();
    request_owner reader;
    reader.then = [](vask_socket*) { run_out_of_paper(); };
    ASSERT_TRUE(service.server.set_read_request(reader.handler(), 4, 4, 0));
    log_catcher log;
    first.close();
    raw_socket second = service.client();
    EXPECT_EQ(service.owner.calls, 2);
    EXPECT_THAT(log.lines(), ElementsAre(thrown_from(read_done)));
}

TEST(throwing_handler, Of_a_request_of_the_server_may_delete_it_before) {
    auto* server = new open_server(VASK_SOCK_TCP, 0);
    accept_owner owner;
    server->set_accepted_handler(owner.handler());
    ASSERT_TRUE(server->start_service());
    raw_socket client = raw_socket::connected_to(server->port());
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    owner.sockets.clear();
    request_owner reader;
    reader.then = [server](vask_socket*) {
        delete server;
        run_out_of_paper();
    };
    ASSERT_TRUE(server->set_read_request(reader.handler(), 4, 4, 0));
    log_catcher log;
    client.close();
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
    EXPECT_THAT(log.lines(), Contains(thrown_from(read_done)));
}

TEST(throwing_handler, Beside_a_request_for_a_former_peer_leaves_it_to_that_one) {
    served service;
    raw_socket first = service.client();
    service.owner.sockets.clear();
    request_owner reader;
    ASSERT_TRUE(service.server.set_read_request(reader.handler(), 4, 4, 0));
    service.owner.then = run_out_of_paper;
    log_catcher log;
    raw_socket second = service.client();
    first.send("1111");
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
    EXPECT_EQ(reader.received, "1111");
    EXPECT_TRUE(service.server.write("back", 4));
    EXPECT_EQ(first.receive(4), "back");
}

TEST(throwing_handler, What_a_function_throws_that_the_application_calls_reaches_it) {
    connected pair;
    pair.owner.then = [](vask_socket*) { run_out_of_paper(); };
    pair.read(4, 4);
    log_catcher log;
    EXPECT_THROW(pair.socket.cb_timeout(nullptr), std::runtime_error);
    EXPECT_THAT(log.lines(), IsEmpty());
}
