// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What would crash, hang or keep the processor busy.

#include <fcntl.h>
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "socket_faults.h"
#include "socket_owners.h"
#include "support/glib_log_catcher.h"

using namespace vask_test;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char watch_signature[] =
    "gboolean vask_server_socket::watch_accepted(GIOChannel*, GIOCondition)";

std::string failed_accept(int error) {
    return std::string(watch_signature) + ": Failed to call accept(): " + std::to_string(error);
}

size_t sources() {
    return resource_count::take().sources.size();
}

/** No descriptor can be opened while it lives. */
class full_descriptor_table {
public:
    full_descriptor_table() {
        getrlimit(RLIMIT_NOFILE, &m_former);
        const rlimit full = {static_cast<rlim_t>(first_free()), m_former.rlim_max};
        setrlimit(RLIMIT_NOFILE, &full);
    }
    ~full_descriptor_table() { setrlimit(RLIMIT_NOFILE, &m_former); }

private:
    static int first_free() {
        const int fd = dup(STDOUT_FILENO);
        close(fd);
        return fd;
    }

    rlimit m_former;
};

/** A sanitizer opens descriptors of its own for what it sees for the first time. */
void rehearse_a_failure(served& service) {
    log_catcher log;
    socket_fault fault("accept4", EMFILE);
    raw_socket client = service.client();
    EXPECT_TRUE(wait_until([&] { return service.owner.calls == 2; }));
    service.owner.sockets.clear();
    service.owner.calls = 0;
}

}  // namespace

TEST(server_guard, A_kept_accept_watch_ends_with_its_server) {
    const size_t before = sources();
    {
        served service;
        raw_socket client = service.client();
        EXPECT_EQ(service.server.m_accept_watch_id, 0u);
        EXPECT_EQ(sources(), before + 1);
    }
    EXPECT_EQ(sources(), before);
}

TEST(server_guard, There_is_never_a_second_accept_watch) {
    served service;
    const size_t before = sources();
    service.server.set_watch_accepted();
    EXPECT_EQ(sources(), before);
    raw_socket client = service.client();
    service.server.set_watch_accepted();
    EXPECT_EQ(sources(), before);
    raw_socket second = service.client();
    EXPECT_EQ(service.owner.calls, 2);
}

TEST(server_guard, A_request_that_ends_while_accepting_goes_on_adds_no_watch) {
    served service;
    raw_socket client = service.client();
    service.owner.sockets.clear();
    const size_t before = sources();
    request_owner reader;
    ASSERT_TRUE(service.server.set_read_request(reader.handler(), 4, 4, 0));
    client.close();
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
    EXPECT_EQ(sources(), before);
}

TEST(server_guard, Accepting_does_not_block_when_there_is_no_connection) {
    served service;
    log_catcher log;
    EXPECT_TRUE(service.server.watch_accepted(service.server.sock_ch, G_IO_IN));
    ASSERT_THAT(service.owner.sockets, SizeIs(1));
    EXPECT_EQ(service.owner.sockets.front(), nullptr);
    EXPECT_THAT(log.lines(), Contains(socket_line("ERR", server_name, failed_accept(EAGAIN))));
}

TEST(server_guard, The_handler_may_delete_the_server) {
    auto* service = new open_server(VASK_SOCK_TCP, 0);
    accept_owner owner;
    owner.then = [service] { delete service; };
    service->set_accepted_handler(owner.handler());
    ASSERT_TRUE(service->start_service());
    const int port = service->port();

    raw_socket client = raw_socket::connected_to(port);
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));

    // The connection is the handler's.
    request_owner reader;
    ASSERT_TRUE(owner.sockets.front()->set_read_request(reader.handler(), 4, 4, 0));
    client.send("ping");
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
    EXPECT_EQ(reader.received, "ping");
}

TEST(server_guard, The_handler_of_a_request_may_delete_the_server) {
    auto* server = new open_server(VASK_SOCK_TCP, 0);
    accept_owner owner;
    server->set_accepted_handler(owner.handler());
    ASSERT_TRUE(server->start_service());
    raw_socket client = raw_socket::connected_to(server->port());
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    owner.sockets.clear();
    request_owner reader;
    reader.then = [server](vask_socket*) { delete server; };
    ASSERT_TRUE(server->set_read_request(reader.handler(), 4, 4, 0));
    client.close();
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
}

TEST(server_guard, The_handler_may_start_the_service_anew) {
    served service;
    bool restarted = false;
    service.owner.then = [&] {
        if (!restarted) {
            restarted = true;
            EXPECT_TRUE(service.server.start_service());
        }
    };
    raw_socket first = service.client();
    raw_socket second = service.client();
    EXPECT_EQ(service.owner.calls, 2);
}

TEST(server_guard, The_handler_that_clears_the_flag_may_ask_for_connections_again) {
    served service;
    service.owner.keep_accepting = false;
    service.owner.then = [&] { service.server.set_watch_accepted(); };
    raw_socket first = service.client();
    raw_socket second = service.client();
    EXPECT_EQ(service.owner.calls, 2);
}

TEST(server_guard, A_new_peer_is_not_read_through_the_channel_of_the_former_one) {
    served service;
    raw_socket first = service.client();
    service.owner.sockets.clear();
    request_owner reader;
    ASSERT_TRUE(service.server.set_read_request(reader.handler(), 4, 4, 0));
    first.send("1111");
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
    EXPECT_NE(service.server.peer_ch, nullptr);

    raw_socket second = service.client();
    EXPECT_EQ(service.server.peer_ch, nullptr);
    service.owner.sockets.clear();
    ASSERT_TRUE(service.server.set_read_request(reader.handler(), 4, 4, 0));
    second.send("2222");

    EXPECT_TRUE(wait_until([&] { return reader.calls == 2; }));
    EXPECT_EQ(reader.received, "2222");
}

TEST(server_guard, Server_and_connection_release_their_channel_once) {
    glib_log_catcher glib_log;
    {
        served service;
        raw_socket client = service.client();
        request_owner first, second;
        vask_socket& connection = *service.owner.sockets.front();
        ASSERT_TRUE(connection.set_read_request(first.handler(), 1, 1, 0));
        ASSERT_TRUE(service.server.set_read_request(second.handler(), 1, 1, 0));
        service.owner.sockets.clear();
        EXPECT_EQ(service.server.peer_ch, nullptr);
        EXPECT_EQ(service.server.peer_sock, 0);
    }
    EXPECT_THAT(glib_log.entries, SizeIs(1));
}

TEST(server_guard, The_end_of_a_server_with_a_request_of_its_own_takes_the_peer_from_the_other) {
    accept_owner owner;
    raw_socket client;
    {
        open_server server(VASK_SOCK_TCP, 0);
        server.set_accepted_handler(owner.handler());
        ASSERT_TRUE(server.start_service());
        client = raw_socket::connected_to(server.port());
        EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
        ASSERT_TRUE(server.set_read_request({}, 1, 1, 5));
    }
    log_catcher log;
    EXPECT_FALSE(owner.sockets.front()->set_read_request({}, 1, 1, 0));
    EXPECT_TRUE(wait_until([&] { return client.peer_is_gone(); }));
}

TEST(server_guard, A_client_that_resets_before_it_is_accepted_is_only_a_short_connection) {
    served service;
    log_catcher log;
    raw_socket::connected_to(service.server.port()).reset();
    EXPECT_TRUE(wait_until([&] { return service.owner.calls == 1; }));
    ASSERT_NE(service.owner.sockets.front(), nullptr);
    request_owner reader;
    ASSERT_TRUE(service.owner.sockets.front()->set_read_request(reader.handler(), 1, 1, 0));
    EXPECT_TRUE(wait_until([&] { return reader.calls == 1; }));
    EXPECT_EQ(reader.status, 0);

    raw_socket next = service.client();
    EXPECT_EQ(service.owner.calls, 2);
}

TEST(server_guard, A_failed_accept_is_handed_to_the_handler_without_a_socket) {
    served service;
    log_catcher log;
    {
        socket_fault fault("accept4", ECONNABORTED);
        raw_socket client = service.client();
        EXPECT_EQ(fault.left(), 0);
    }
    ASSERT_THAT(service.owner.sockets, testing::Not(IsEmpty()));
    EXPECT_EQ(service.owner.sockets.front(), nullptr);
    EXPECT_THAT(log.lines(),
                Contains(socket_line("ERR", server_name, failed_accept(ECONNABORTED))));
    // The connection is still there.
    EXPECT_TRUE(wait_until([&] { return service.owner.calls == 2; }));
    EXPECT_NE(service.owner.sockets.back(), nullptr);
}

TEST(server_guard, A_failed_accept_without_a_former_peer_complains_of_its_address_as_well) {
    served service;
    debug_messages level;
    log_catcher log;
    service.server.watch_accepted(service.server.sock_ch, G_IO_IN);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            socket_line("DBG", server_name, watch_signature),
            socket_line("ERR", server_name, failed_accept(EAGAIN)),
            socket_line("BUG", server_name,
                        "std::string vask_socket::get_peer_ip_addr(): peer_sock is not ready"),
            socket_line("BUG", server_name,
                        "int vask_socket::get_peer_port(): peer_sock is not ready"),
            socket_line("DBG", server_name,
                        "virtual gboolean vask_server_socket::accepted(GIOChannel*, GIOCondition, "
                        "bool): IP: , port: 0")));
}

TEST(server_guard, A_failed_accept_stops_accepting_when_the_handler_wants_it) {
    served service;
    log_catcher log;
    service.owner.keep_accepting = false;
    socket_fault fault("accept4", ECONNABORTED);
    raw_socket client = service.client();
    EXPECT_EQ(dispatches_within(100), 1);
    EXPECT_EQ(service.owner.calls, 1);
}

TEST(server_guard, An_interrupted_accept_is_repeated) {
    served service;
    log_catcher log;
    socket_fault fault("accept4", EINTR, 3);
    raw_socket client = service.client();
    EXPECT_EQ(fault.left(), 0);
    EXPECT_NE(service.owner.sockets.front(), nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(server_guard, A_full_descriptor_table_does_not_keep_the_loop_busy) {
    served service;
    rehearse_a_failure(service);
    raw_socket client = raw_socket::connected_to(service.server.port());
    log_catcher log;
    {
        full_descriptor_table table;
        // An attempt every 100 ms, the timer that starts it, and the end of the time.
        EXPECT_LE(dispatches_within(450), 11);
    }
    ASSERT_THAT(log.lines(), testing::Not(IsEmpty()));
    EXPECT_THAT(log.lines(), Contains(socket_line("ERR", server_name, failed_accept(EMFILE))));
    EXPECT_THAT(service.owner.sockets, Each(testing::IsNull()));
}

TEST(server_guard, A_want_of_memory_does_not_keep_the_loop_busy_either) {
    served service;
    rehearse_a_failure(service);
    raw_socket client = raw_socket::connected_to(service.server.port());
    log_catcher log;
    socket_fault fault("accept4", ENOMEM, 1000);
    EXPECT_LE(dispatches_within(450), 11);
    EXPECT_THAT(log.lines(), Contains(socket_line("ERR", server_name, failed_accept(ENOMEM))));
}

TEST(server_guard, Any_other_error_that_lasts_does_not_keep_the_loop_busy_either) {
    for (const int error : {EPERM, EACCES, EINVAL, EBADF}) {
        served service;
        rehearse_a_failure(service);
        raw_socket client = raw_socket::connected_to(service.server.port());
        log_catcher log;
        socket_fault fault("accept4", error, 1000);
        EXPECT_LE(dispatches_within(450), 11) << error;
        EXPECT_THAT(log.lines(), Contains(socket_line("ERR", server_name, failed_accept(error))));
    }
}

TEST(server_guard, A_listening_socket_that_somebody_shuts_down_does_not_keep_the_loop_busy) {
    served service;
    rehearse_a_failure(service);
    log_catcher log;
    ASSERT_EQ(shutdown(service.server.m_sock, SHUT_RDWR), 0);
    EXPECT_LE(dispatches_within(450), 11);
    EXPECT_THAT(log.lines(), Contains(socket_line("ERR", server_name, failed_accept(EINVAL))));
}

TEST(server_guard, An_error_of_one_connection_does_not_hold_up_the_next) {
    for (const int error : {EAGAIN, ECONNABORTED, EHOSTDOWN, EHOSTUNREACH, ENETDOWN, ENETUNREACH,
                            ENONET, ENOPROTOOPT, EOPNOTSUPP, EPROTO}) {
        served service;
        log_catcher log;
        socket_fault fault("accept4", error);
        raw_socket client = service.client();
        // The first dispatch after it accepts, and no timer.
        g_main_context_iteration(nullptr, TRUE);
        EXPECT_EQ(service.owner.calls, 2) << error;
        EXPECT_NE(service.owner.sockets.back(), nullptr) << error;
    }
}

TEST(server_guard, A_connection_that_had_no_descriptor_is_accepted_when_there_is_one) {
    served service;
    rehearse_a_failure(service);
    raw_socket client = raw_socket::connected_to(service.server.port());
    log_catcher log;
    {
        full_descriptor_table table;
        EXPECT_TRUE(wait_until([&] { return service.owner.calls == 1; }));
        EXPECT_EQ(service.owner.sockets.back(), nullptr);
    }
    EXPECT_TRUE(wait_until([&] { return service.owner.sockets.back() != nullptr; }));
    EXPECT_EQ(service.owner.sockets.back()->get_peer_port(), htons(client.port()));
}

TEST(server_guard, The_pause_for_want_of_descriptors_ends_with_the_server) {
    const size_t before = sources();
    log_catcher log;
    {
        served service;
        socket_fault fault("accept4", ENFILE);
        raw_socket client = service.client();
        EXPECT_EQ(sources(), before + 1);
    }
    EXPECT_EQ(sources(), before);
}

TEST(server_guard, Without_descriptors_the_handler_can_stop_accepting) {
    served service;
    log_catcher log;
    service.owner.keep_accepting = false;
    socket_fault fault("accept4", ENOBUFS);
    raw_socket client = service.client();
    EXPECT_EQ(dispatches_within(250), 1);
    EXPECT_EQ(service.owner.calls, 1);
}
