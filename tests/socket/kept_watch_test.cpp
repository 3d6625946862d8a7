// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A request that is set inside the handler of the former one may be served by the same watch. What
// could tell.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <functional>
#include <memory>
#include <string>

#include "socket_owners.h"

using namespace vask_test;

namespace {

bool is_source(guint id) {
    return id != 0 && g_main_context_find_source_by_id(nullptr, id) != nullptr;
}

size_t source_count() {
    return resource_count::take().sources.size();
}

/** Those of wait_until(). A loop that does not sleep has thousands. */
constexpr int few_awakenings = 100;

/** How often a main loop wakes within 100 ms. */
int awakenings() {
    bool over = false;
    const guint timer = g_timeout_add(
        100,
        [](gpointer data) -> gboolean {
            *static_cast<bool*>(data) = true;
            return G_SOURCE_CONTINUE;
        },
        &over);
    int count = 0;
    while (!over) {
        g_main_context_iteration(nullptr, TRUE);
        ++count;
    }
    g_source_remove(timer);
    return count;
}

/** A client whose handler does something once, in its first call. */
class kept_watch : public testing::Test {
protected:
    void in_first_handler(const std::function<void()>& action) {
        pair.owner.then = [this, action](vask_socket*) {
            if (pair.owner.calls == 1) {
                action();
            }
        };
        ASSERT_TRUE(pair.read(1, 1));
        pair.peer.send("a");
        ASSERT_TRUE(wait_until([this] { return pair.owner.calls >= 1; }));
    }

    void wait_until_something_is_there() {
        EXPECT_TRUE(wait_until_without_loop([this] {
            char byte;
            return recv(pair.socket.peer_sock, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 1;
        }));
    }

    bool request_ends(int number) {
        return wait_until([this, number] { return pair.owner.calls == number; });
    }

    connected pair;
};

}  // namespace

TEST_F(kept_watch, Has_an_id_only_while_a_request_is_pending) {
    in_first_handler([this] {
        EXPECT_EQ(pair.socket.m_read_watch_id, 0u);
        pair.read(1, 1);
        EXPECT_TRUE(is_source(pair.socket.m_read_watch_id));
    });
    EXPECT_TRUE(is_source(pair.socket.m_read_watch_id));
    pair.peer.send("b");
    EXPECT_TRUE(request_ends(2));
    EXPECT_EQ(pair.owner.received, "b");
    EXPECT_EQ(pair.socket.m_read_watch_id, 0u);
}

TEST_F(kept_watch, Ends_when_no_further_request_is_set) {
    const size_t before = source_count();
    in_first_handler([this] { pair.read(1, 1); });
    EXPECT_EQ(source_count(), before + 1);
    pair.peer.send("b");
    EXPECT_TRUE(request_ends(2));
    EXPECT_EQ(source_count(), before);
}

TEST_F(kept_watch, Ends_at_once_when_the_further_request_times_out) {
    const size_t before = source_count();
    in_first_handler([this] { pair.read(1, 1, 1); });
    EXPECT_TRUE(request_ends(2));
    EXPECT_EQ(source_count(), before);
}

TEST_F(kept_watch, Ends_with_a_peer_that_is_closed_before_the_next_request_or_after_it) {
    const size_t before = source_count();
    in_first_handler([this] {
        pair.read(1, 1);
        pair.socket.close_peer_sock(FALSE);
        EXPECT_EQ(pair.socket.m_read_watch_id, 0u);
    });
    EXPECT_EQ(source_count(), before);
    EXPECT_FALSE(pair.socket.m_read_context.reading);
}

TEST_F(kept_watch, Does_not_serve_another_connection) {
    const size_t before = source_count();
    in_first_handler([this] {
        ASSERT_TRUE(pair.socket.start_connect());
        pair.read(1, 1);
    });
    EXPECT_EQ(source_count(), before + 1);
    pair.peer.send("x");
    const raw_socket latter = pair.listener.accept();
    latter.send("b");
    EXPECT_TRUE(request_ends(2));
    EXPECT_EQ(pair.owner.received, "b");
}

TEST_F(kept_watch, Does_not_serve_a_connection_with_the_descriptor_of_a_closed_one) {
    in_first_handler([this] {
        const int former = pair.socket.peer_sock;
        pair.socket.close_peer_sock(FALSE);
        ASSERT_TRUE(pair.socket.start_connect());
        ASSERT_EQ(pair.socket.peer_sock, former);
        pair.read(1, 1);
    });
    const raw_socket latter = pair.listener.accept();
    latter.send("b");
    EXPECT_TRUE(request_ends(2));
    EXPECT_EQ(pair.owner.received, "b");
}

TEST_F(kept_watch, Lets_a_main_loop_in_the_handler_sleep_while_nobody_asks_for_what_comes) {
    int count = -1;
    in_first_handler([&] {
        pair.peer.send("b");
        count = awakenings();
    });
    EXPECT_LE(count, few_awakenings);
    EXPECT_EQ(pair.owner.calls, 1);
    EXPECT_TRUE(pair.read(1, 1));
    EXPECT_TRUE(request_ends(2));
    EXPECT_EQ(pair.owner.received, "b");
}

TEST_F(kept_watch, Is_not_ready_for_what_nobody_asks_for) {
    bool was_pending = true;
    pair.owner.then = [&](vask_socket*) {
        pair.peer.send("b");
        wait_until_something_is_there();
        was_pending = g_main_context_pending(nullptr);
    };
    pair.read(1, 1);
    pair.peer.send("a");
    // There is no other source.
    while (pair.owner.calls == 0) {
        g_main_context_iteration(nullptr, TRUE);
    }
    EXPECT_FALSE(was_pending);
}

TEST_F(kept_watch, Serves_the_next_request_in_a_main_loop_in_the_handler) {
    in_first_handler([this] {
        pair.read(1, 1);
        pair.peer.send("b");
        EXPECT_TRUE(request_ends(2));
        EXPECT_EQ(pair.owner.received, "b");
    });
    EXPECT_EQ(pair.socket.m_read_watch_id, 0u);
    EXPECT_TRUE(pair.read(1, 1));
    pair.peer.send("c");
    EXPECT_TRUE(request_ends(3));
    EXPECT_EQ(pair.owner.received, "c");
}

TEST_F(kept_watch, Serves_requests_that_are_set_in_handlers_within_the_handler) {
    const size_t before = source_count();
    pair.owner.then = [this](vask_socket*) {
        const int call = pair.owner.calls;
        if (call < 5) {
            pair.read(1, 1);
            pair.peer.send(std::string(1, static_cast<char>('a' + call)));
            EXPECT_TRUE(wait_until([&] { return pair.owner.calls > call; }));
        }
    };
    pair.read(1, 1);
    pair.peer.send("a");
    EXPECT_TRUE(request_ends(5));
    EXPECT_EQ(pair.owner.received, "e");
    EXPECT_EQ(source_count(), before);
}

TEST_F(kept_watch, Serves_a_request_that_is_set_behind_a_main_loop_in_the_handler) {
    in_first_handler([this] {
        pair.peer.send("b");
        drain_main_loop();
        pair.read(1, 1);
    });
    EXPECT_TRUE(request_ends(2));
    EXPECT_EQ(pair.owner.received, "b");
}

TEST_F(kept_watch, Lets_the_next_request_time_out_in_a_main_loop_in_the_handler) {
    const size_t before = source_count();
    int count = -1;
    in_first_handler([&] {
        pair.read(1, 1, 1);
        EXPECT_TRUE(request_ends(2));
        EXPECT_EQ(pair.owner.status, 0);
        pair.peer.send("b");
        count = awakenings();
    });
    EXPECT_LE(count, few_awakenings);
    EXPECT_EQ(source_count(), before);
    EXPECT_EQ(pair.owner.calls, 2);
}

TEST_F(kept_watch, Is_no_watch_of_what_the_application_reads_itself) {
    const size_t before = source_count();
    in_first_handler([this] {
        pair.read(1, 1);
        pair.peer.send("b");
        wait_until_something_is_there();
        EXPECT_FALSE(pair.socket.watch_read(pair.socket.peer_ch, G_IO_IN));
        EXPECT_EQ(pair.owner.calls, 2);
    });
    EXPECT_EQ(source_count(), before);
}

TEST_F(kept_watch, Serves_a_socket_and_its_copy_on_one_connection) {
    vask_socket copy(pair.socket);
    request_owner other;
    const auto ask_copy = [&] { copy.set_read_request(other.handler(), 1, 1, 0); };
    // Each asks for the next byte for the other one.
    pair.owner.then = [&](vask_socket*) { ask_copy(); };
    other.then = [&](vask_socket*) { pair.read(1, 1); };
    pair.read(1, 1);
    for (int i = 1; i <= 6; ++i) {
        pair.peer.send("a");
        EXPECT_TRUE(wait_until([&] { return pair.owner.calls + other.calls == i; }));
    }
    EXPECT_EQ(pair.owner.calls, 3);
}

TEST(kept_watch_of_datagrams, Serves_the_next_request) {
    open_server server(VASK_SOCK_UDP, 0);
    ASSERT_TRUE(server.start_service());
    request_owner owner;
    owner.then = [&](vask_socket* socket) {
        EXPECT_TRUE(socket->set_read_request(owner.handler(), 10, 1, 0));
    };
    server.set_read_request(owner.handler(), 10, 1, 0);
    raw_socket sender = raw_socket::receiving_datagrams();
    for (const char* text : {"one", "two", "three"}) {
        const int before = owner.calls;
        sender.send_to(raw_socket::port_of(server.peer_sock), text);
        EXPECT_TRUE(wait_until([&] { return owner.calls > before; }));
        EXPECT_EQ(owner.received, text);
    }
}

namespace {

/** A client that its handlers may delete. */
class deleted_in_handler : public testing::Test {
public:
    void delete_client() { client.reset(); }

protected:
    deleted_in_handler()
        : client(std::make_unique<open_socket<vask_client_socket>>("127.0.0.1", VASK_SOCK_TCP,
                                                                   listener.port(), nullptr)) {
        EXPECT_TRUE(client->start_connect());
        peer = listener.accept();
        client->set_read_request(owner.handler(), 1, 1, 0);
        peer.send("a");
    }
    void ask() { EXPECT_TRUE(client->set_read_request(owner.handler(), 1, 1, 0)); }

    void expect_end(int calls) {
        EXPECT_TRUE(wait_until([&] { return owner.calls == calls && client == nullptr; }));
        EXPECT_TRUE(wait_until([this] { return peer.peer_is_gone(); }));
        EXPECT_EQ(source_count(), m_sources);
    }

    raw_socket listener = raw_socket::listening();
    std::unique_ptr<open_socket<vask_client_socket>> client;
    raw_socket peer;
    request_owner owner;

private:
    const size_t m_sources = source_count();
};

}  // namespace

TEST_F(deleted_in_handler, Takes_the_next_request_and_its_watch_with_it) {
    owner.then = [this](vask_socket*) {
        ask();
        client.reset();
    };
    expect_end(1);
}

TEST_F(deleted_in_handler, Of_the_next_request_in_a_main_loop_in_the_handler_leaves_nothing) {
    owner.then = [this](vask_socket*) {
        if (owner.calls == 1) {
            ask();
            peer.send("b");
            EXPECT_TRUE(wait_until([this] { return owner.calls == 2; }));
            EXPECT_EQ(client, nullptr);
        } else {
            client.reset();
        }
    };
    expect_end(2);
}

TEST_F(deleted_in_handler, By_a_main_loop_in_the_handler_leaves_nothing) {
    owner.then = [this](vask_socket*) {
        g_idle_add(
            [](gpointer self) -> gboolean {
                static_cast<deleted_in_handler*>(self)->delete_client();
                return G_SOURCE_REMOVE;
            },
            this);
        ask();
        EXPECT_TRUE(wait_until([this] { return client == nullptr; }));
    };
    expect_end(1);
}
