// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Many connections, one in ten of which is reset half-way.

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include "socket_owners.h"

using namespace vask_test;

namespace {

// The main loop's own arrays grow now and then. The smallest block of the allocator, lost with
// every connection that was reset, would be more.
constexpr long accepted_growth = 8192;

#ifndef VASK_TEST_CONNECTIONS
#define VASK_TEST_CONNECTIONS 3000
#endif
constexpr int connections = VASK_TEST_CONNECTIONS;

constexpr char request[] = "0123456789";
constexpr gsize request_size = sizeof request - 1;

class connection_cycles : public testing::Test {
protected:
    connection_cycles() : server(VASK_SOCK_TCP, 0) {
        vask_object::print_msg_level = VASK_P_FATAL;
        server.set_accepted_handler(acceptor.handler());
        acceptor.then = [this] {
            vask_socket* connection = acceptor.sockets.back().release();
            acceptor.sockets.clear();
            ASSERT_NE(connection, nullptr);
            connection->set_read_request(reader.handler(), request_size, request_size, 30);
        };
        reader.then = [this](vask_socket* connection) {
            completed += reader.complete;
            if (reader.complete) {
                connection->write(reader.received.data(), request_size);
            }
            delete connection;
        };
        EXPECT_TRUE(server.start_service());
    }
    ~connection_cycles() override { vask_object::print_msg_level = VASK_P_INFO; }

    void wait_for_call(int calls) {
        while (reader.calls < calls) {
            g_main_context_iteration(nullptr, TRUE);
        }
    }

    void run(int count) {
        for (int i = 0; i < count; ++i) {
            const int calls = reader.calls + 1;
            raw_socket client = raw_socket::connected_to(server.port());
            if (i % 10 == 9) {
                client.send("01234");
                client.reset();
                wait_for_call(calls);
                continue;
            }
            client.send(request);
            wait_for_call(calls);
            ASSERT_EQ(client.receive(request_size), request);
        }
    }

    // Under a sanitizer this is 0, and its leak check at the end stands in.
    static long heap_in_use() { return static_cast<long>(mallinfo2().uordblks); }

    accept_owner acceptor;
    request_owner reader;
    open_server server;
    int completed = 0;
};

}  // namespace

TEST_F(connection_cycles, Leave_nothing_behind) {
    ASSERT_NO_FATAL_FAILURE(run(100));
    completed = 0;
    const resource_count before = resource_count::take();
    const long heap_before = heap_in_use();

    ASSERT_NO_FATAL_FAILURE(run(connections));

    EXPECT_EQ(completed, connections - connections / 10);
    EXPECT_LE(heap_in_use() - heap_before, accepted_growth);
    EXPECT_EQ(before.difference(resource_count::take()), "");
}
