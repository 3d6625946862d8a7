// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "socket_owners.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char signature[] =
    "bool vask_socket::set_read_request(vask_obj_exec_info, gsize, gsize, int)";

std::string with_signature(const std::string& text) {
    return std::string(signature) + ": " + text;
}

/** The next allocation of this size fails; 0 for none. */
gsize failing_size = 0;

int allocations = 0;

gpointer watched_buffer = nullptr;
int releases_of_watched_buffer = 0;

int some_data;

}  // namespace

extern "C" gpointer g_try_malloc(gsize size) {
    ++allocations;
    if (size != 0 && size == failing_size) {
        return nullptr;
    }
    // Of a request of gigabytes only the size matters here.
    return malloc(guint64{size} >> 32 ? 16 : size);
}

extern "C" void(g_free)(gpointer memory) {
    releases_of_watched_buffer += memory != nullptr && memory == watched_buffer;
    free(memory);
}

TEST(read_request, Is_pending_until_data_comes) {
    connected pair;
    EXPECT_TRUE(pair.read(10, 3));
    EXPECT_TRUE(pair.socket.m_read_context.reading);
    EXPECT_FALSE(pair.socket.m_read_context.complete);
    drain_main_loop();
    EXPECT_EQ(pair.owner.calls, 0);
}

TEST(read_request, Ends_with_status_1_and_the_data) {
    connected pair;
    pair.read(10, 3);
    pair.peer.send("abc");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.calls, 1);
    EXPECT_EQ(pair.owner.status, 1);
    EXPECT_TRUE(pair.owner.complete);
    EXPECT_EQ(pair.owner.received, "abc");
}

TEST(read_request, Completes_with_all_that_is_there_at_most_its_size) {
    connected pair;
    pair.peer.send("abcdefgh");
    pair.read(6, 3);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "abcdef");
    pair.read(6, 2);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "gh");
}

TEST(read_request, Collects_pieces_up_to_its_least_size) {
    connected pair;
    pair.read(10, 6);
    for (const char* piece : {"ab", "cd", "ef"}) {
        EXPECT_EQ(pair.owner.calls, 0);
        const auto before = pair.socket.m_read_context.received;
        pair.peer.send(piece);
        EXPECT_TRUE(wait_until([&] { return pair.socket.m_read_context.received > before; }));
    }
    EXPECT_EQ(pair.owner.calls, 1);
    EXPECT_EQ(pair.owner.received, "abcdef");
}

TEST(read_request, With_a_least_size_beyond_its_size_completes_at_its_size) {
    connected pair;
    pair.read(4, 100);
    pair.peer.send("abcdefgh");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 1);
    EXPECT_TRUE(pair.owner.complete);
    EXPECT_EQ(pair.owner.received, "abcd");
}

TEST(read_request, Of_size_0_completes_when_data_comes_and_takes_none) {
    connected pair;
    pair.read(0, 0);
    drain_main_loop();
    EXPECT_EQ(pair.owner.calls, 0);
    pair.peer.send("a");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.status, 1);
    EXPECT_EQ(pair.socket.m_read_context.buffer, nullptr);
    pair.read(1, 1);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "a");
}

TEST(read_request, All_byte_values_pass_raw) {
    connected pair;
    const std::string sent = every_byte(4);
    pair.read(sent.size(), sent.size());
    pair.peer.send(sent);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, sent);
}

TEST(read_request, The_handler_receives_the_socket_and_the_data_pointer_is_saved) {
    connected pair;
    pair.read(1, 1, 0, &some_data);
    pair.peer.send("a");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.socket, &pair.socket);
    EXPECT_EQ(pair.socket.get_saved_data(), &some_data);
}

TEST(read_request, There_is_no_saved_data_before_the_first_one) {
    connected pair;
    EXPECT_EQ(pair.socket.get_saved_data(), nullptr);
}

TEST(read_request, A_second_one_is_refused_while_one_is_pending) {
    connected pair;
    request_owner second_owner;
    pair.read(10, 3, 0, &some_data);
    log_catcher log;

    EXPECT_FALSE(pair.socket.set_read_request(second_owner.handler(), 5, 5, 0));

    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("BUG", client_name,
                                        with_signature("read_req_size: 10. Previous request may "
                                                       "not be finished."))));
    EXPECT_TRUE(pair.socket.m_read_context.reading);
    EXPECT_EQ(pair.socket.m_read_context.read_req_size, 10u);
    EXPECT_EQ(pair.socket.get_saved_data(), &some_data);
    pair.peer.send("abc");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.calls, 1);
    EXPECT_EQ(second_owner.calls, 0);
}

TEST(read_request, The_pending_size_is_printed_as_a_number_of_32_bits) {
    if (sizeof(gsize) == 4) {
        GTEST_SKIP() << "Sizes have 32 bits here.";
    }
    connected pair;
    ASSERT_TRUE(pair.read(static_cast<gsize>((guint64{1} << 32) + 7), 3));
    log_catcher log;
    EXPECT_FALSE(pair.read(1, 1));
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("BUG", client_name,
                                        with_signature("read_req_size: 7. Previous request may not "
                                                       "be finished."))));
}

TEST(read_request, Without_a_peer_is_refused) {
    vask_socket socket(VASK_SOCK_TCP, 0, nullptr);
    log_catcher log;
    EXPECT_FALSE(socket.set_read_request({}, 1, 1, 0));
    EXPECT_FALSE(socket.m_read_context.reading);
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("BUG", no_name, with_signature("peer_sock == 0"))));
}

TEST(read_request, Fails_without_memory) {
    connected pair;
    log_catcher log;
    failing_size = 12345;

    EXPECT_FALSE(pair.read(12345, 1));

    failing_size = 0;
    EXPECT_FALSE(pair.socket.m_read_context.reading);
    EXPECT_EQ(pair.socket.m_read_context.buffer, nullptr);
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("ERR", client_name,
                                        with_signature("Failed to allocate memory: 12345"))));
}

TEST(read_request, Works_after_one_without_memory) {
    connected pair;
    log_catcher log;
    failing_size = 12345;
    EXPECT_FALSE(pair.read(12345, 1));
    failing_size = 0;
    EXPECT_TRUE(pair.read(1, 1));
    pair.peer.send("a");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "a");
}

TEST(read_request, Is_traced) {
    connected pair;
    debug_messages level;
    log_catcher log;
    pair.read(1, 1);
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("DBG", client_name, signature)));
}

TEST(read_request, That_is_refused_is_traced_before_the_reason) {
    connected pair;
    pair.read(10, 3);
    debug_messages level;
    log_catcher log;
    EXPECT_FALSE(pair.read(1, 1));
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line("DBG", client_name, signature),
                            socket_line("BUG", client_name,
                                        with_signature("read_req_size: 10. Previous request may "
                                                       "not be finished."))));
}

TEST(read_request, Replaces_the_buffer_of_the_former_one) {
    connected pair;
    pair.peer.send("abcd");
    pair.read(2, 2);
    EXPECT_TRUE(pair.wait_for_end_of_request());

    pair.read(2, 2);

    EXPECT_EQ(pair.socket.m_read_context.received, 0u);
    char copied[] = "__";
    pair.socket.m_read_context.copy(copied, 0);
    EXPECT_STREQ(copied, "__");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.received, "cd");
}

TEST(read_request, Releases_the_buffer_of_the_former_one_and_has_one_of_its_own) {
    connected pair;
    pair.peer.send("ab");
    pair.read(2, 2);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    watched_buffer = pair.socket.m_read_context.buffer;
    releases_of_watched_buffer = 0;
    allocations = 0;

    pair.read(1, 1);

    EXPECT_EQ(releases_of_watched_buffer, 1);
    EXPECT_EQ(allocations, 1);
    watched_buffer = nullptr;
}

TEST(read_request, Of_size_0_releases_the_buffer_of_the_former_one) {
    connected pair;
    pair.peer.send("ab");
    pair.read(2, 2);
    EXPECT_TRUE(pair.wait_for_end_of_request());
    pair.read(0, 0);
    EXPECT_EQ(pair.socket.m_read_context.buffer, nullptr);
}

TEST(read_request, May_be_without_a_handler) {
    connected pair;
    EXPECT_TRUE(pair.socket.set_read_request({}, 2, 2, 0));
    pair.peer.send("ab");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.socket.m_read_context.status, 1);
    EXPECT_TRUE(pair.socket.m_read_context.complete);
}

TEST(read_request, A_handler_without_object_or_function_is_not_called) {
    connected pair;
    pair.peer.send("abcd");
    EXPECT_TRUE(pair.socket.set_read_request({nullptr, nullptr, &pair.owner}, 2, 2, 0));
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_TRUE(
        pair.socket.set_read_request({pair.owner.handler().func, nullptr, nullptr}, 2, 2, 0));
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.owner.calls, 0);
}

TEST(read_request, The_data_pointer_of_the_handler_is_the_socket_once_it_has_ended) {
    connected pair;
    pair.read(1, 1, 0, &some_data);
    EXPECT_EQ(pair.socket.m_read_done_handler.data, &some_data);
    pair.peer.send("a");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(pair.socket.m_read_done_handler.data, static_cast<vask_socket*>(&pair.socket));
    EXPECT_EQ(pair.socket.get_saved_data(), &some_data);
}

TEST(read_request, The_handler_may_belong_to_a_class_with_another_base) {
    struct other_base {
        virtual ~other_base() = default;
        int filler = 0;
    };
    class owner_with_bases : public other_base, public vask_exec {
    public:
        void done(void* socket) {
            self = this;
            argument = socket;
        }
        owner_with_bases* self = nullptr;
        void* argument = nullptr;
    };
    connected pair;
    owner_with_bases owner;
    pair.socket.set_read_request(
        {static_cast<vask_exec_func>(&owner_with_bases::done), nullptr, &owner}, 1, 1, 0);
    pair.peer.send("a");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_EQ(owner.self, &owner);
    EXPECT_EQ(owner.argument, &pair.socket);
}

TEST(read_request, The_handler_may_set_the_next_one) {
    connected pair;
    pair.owner.then = [&pair](vask_socket* socket) {
        if (pair.owner.calls < 4) {
            EXPECT_TRUE(socket->set_read_request(pair.owner.handler(), 2, 2, 0));
        }
    };
    pair.read(2, 2);
    pair.peer.send("aabbccdd");
    EXPECT_TRUE(wait_until([&] { return pair.owner.calls == 4; }));
    EXPECT_EQ(pair.owner.received, "dd");
    EXPECT_FALSE(pair.socket.m_read_context.reading);
    EXPECT_EQ(pair.socket.m_read_watch_id, 0u);
}

TEST(read_request, The_handler_may_delete_the_socket) {
    raw_socket listener = raw_socket::listening();
    auto* client = new vask_client_socket("127.0.0.1", VASK_SOCK_TCP, listener.port(), nullptr);
    ASSERT_TRUE(client->start_connect());
    raw_socket peer = listener.accept();
    request_owner owner;
    owner.then = [](vask_socket* socket) { delete socket; };
    client->set_read_request(owner.handler(), 2, 2, 10);

    peer.send("ab");

    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    EXPECT_TRUE(wait_until([&] { return peer.peer_is_gone(); }));
}

TEST(read_request, The_ids_are_cleared_before_the_handler_is_called) {
    connected pair;
    bool called = false;
    pair.owner.then = [&](vask_socket*) {
        called = true;
        EXPECT_EQ(pair.socket.m_read_watch_id, 0u);
        EXPECT_EQ(pair.socket.m_read_context.timer_id, 0u);
        EXPECT_FALSE(pair.socket.m_read_context.reading);
    };
    pair.read(2, 2, 10);
    pair.peer.send("ab");
    EXPECT_TRUE(pair.wait_for_end_of_request());
    EXPECT_TRUE(called);
}

TEST(read_request, An_override_of_read_done_runs_around_the_handler) {
    class overriding : public open_socket<vask_client_socket> {
    public:
        using open_socket::open_socket;
        void read_done() override {
            ++entered;
            open_socket::read_done();
            ++left;
        }
        int entered = 0;
        int left = 0;
    };
    raw_socket listener = raw_socket::listening();
    overriding socket("127.0.0.1", VASK_SOCK_TCP, listener.port(), nullptr);
    ASSERT_TRUE(socket.start_connect());
    raw_socket peer = listener.accept();
    request_owner owner;
    owner.then = [&socket](vask_socket*) {
        EXPECT_EQ(socket.entered, 1);
        EXPECT_EQ(socket.left, 0);
    };
    socket.set_read_request(owner.handler(), 1, 1, 0);
    peer.send("a");
    EXPECT_TRUE(wait_until([&] { return socket.left == 1; }));
    EXPECT_EQ(owner.calls, 1);
}

TEST(read_request, Each_one_leaves_no_source_behind) {
    connected pair;
    const size_t before = resource_count::take().sources.size();
    for (int i = 0; i < 3; ++i) {
        pair.read(1, 1, 10);
        pair.peer.send("a");
        EXPECT_TRUE(pair.wait_for_end_of_request());
    }
    EXPECT_EQ(resource_count::take().sources.size(), before);
}

TEST(read_request, The_callback_of_GLib_is_forwarded_to_the_socket) {
    connected pair;
    pair.read(1, 1);
    pair.peer.send("a");
    EXPECT_FALSE(vask_socket::_watch_read(pair.socket.peer_ch, G_IO_IN, &pair.socket));
    EXPECT_EQ(pair.owner.received, "a");
}

TEST(read_request, A_callback_without_a_pending_request_does_nothing) {
    connected pair;
    EXPECT_FALSE(pair.socket.watch_read(pair.socket.peer_ch, G_IO_IN));
    EXPECT_EQ(pair.owner.calls, 0);
}
