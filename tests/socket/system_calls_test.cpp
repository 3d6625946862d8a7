// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// How often an echoed request enters the kernel, beside a channel without the library.

#include "support/system_calls.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "socket_owners.h"

using namespace vask_test;

namespace {

constexpr int requests = 100;
constexpr gsize request_size = 64;
constexpr int no_timeout = 0;
constexpr int timeout_sec = 30;

/** Answers each request of a peer with the same bytes. */
class echo {
public:
    virtual ~echo() = default;
    int echoed = 0;
};

class library_echo : public echo {
public:
    library_echo(vask_socket& socket, int timeout) : m_timeout(timeout) {
        m_owner.then = [this](vask_socket* ready) {
            ready->write(m_owner.received.data(), static_cast<gssize>(m_owner.received.size()));
            ++echoed;
            ask(*ready);
        };
        ask(socket);
    }

private:
    void ask(vask_socket& socket) {
        socket.set_read_request(m_owner.handler(), request_size, request_size, m_timeout);
    }

    int m_timeout;
    request_owner m_owner;
};

/** An unbuffered channel with a fresh watch and buffer for each request. */
class bare_echo : public echo {
public:
    bare_echo(int fd, int timeout) : m_channel(g_io_channel_unix_new(fd)), m_timeout(timeout) {
        g_io_channel_set_encoding(m_channel, nullptr, nullptr);
        g_io_channel_set_buffered(m_channel, FALSE);
        ask();
    }
    ~bare_echo() override {
        g_source_remove(m_watch);
        if (m_timer != 0) {
            g_source_remove(m_timer);
        }
        g_io_channel_unref(m_channel);
    }

private:
    void ask() {
        m_buffer.reset(new char[request_size]);
        m_watch = g_io_add_watch(
            m_channel, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP),
            [](GIOChannel*, GIOCondition, gpointer self) {
                return static_cast<bare_echo*>(self)->answer();
            },
            this);
        if (m_timeout > 0) {
            m_timer = g_timeout_add_full(
                G_PRIORITY_DEFAULT, static_cast<guint>(m_timeout) * 1000,
                [](gpointer) -> gboolean { return G_SOURCE_REMOVE; }, nullptr, nullptr);
        }
    }

    gboolean answer() {
        gsize size = 0;
        g_io_channel_read_chars(m_channel, m_buffer.get(), request_size, &size, nullptr);
        if (m_timer != 0) {
            g_source_remove(m_timer);
        }
        gsize written = 0;
        g_io_channel_write_chars(m_channel, m_buffer.get(), static_cast<gssize>(size), &written,
                                 nullptr);
        ++echoed;
        ask();
        return G_SOURCE_REMOVE;
    }

    GIOChannel* m_channel;
    int m_timeout;
    guint m_watch = 0;
    guint m_timer = 0;
    std::unique_ptr<char[]> m_buffer;
};

/** Asks and waits, so that a request is there before the loop looks. */
void have_echoed(const raw_socket& peer, const echo& answering, int count) {
    const std::string request(request_size, 'x');
    for (int i = 0; i < count; ++i) {
        const int before = answering.echoed;
        peer.send(request);
        while (answering.echoed == before) {
            g_main_context_iteration(nullptr, TRUE);
        }
        peer.receive(request_size);
    }
}

void echo_counted(const raw_socket& peer, const echo& answering) {
    have_echoed(peer, answering, 10);
    system_call_mark::begin();
    have_echoed(peer, answering, requests);
    system_call_mark::end();
}

call_counts calls_of_library(int timeout) {
    return count_system_calls([timeout] {
        connected pair;
        library_echo answering(pair.socket, timeout);
        echo_counted(pair.peer, answering);
    });
}

call_counts calls_of_bare_channel(int timeout) {
    return count_system_calls([timeout] {
        raw_socket listener = raw_socket::listening();
        raw_socket peer = raw_socket::connected_to(listener.port());
        raw_socket served = listener.accept();
        bare_echo answering(served.fd(), timeout);
        echo_counted(peer, answering);
    });
}

class socket_system_calls : public testing::TestWithParam<int> {};

}  // namespace

TEST_P(socket_system_calls, Of_an_echoed_request_are_no_more_than_those_of_a_bare_channel) {
    const call_counts library = calls_of_library(GetParam());
    const call_counts bare = calls_of_bare_channel(GetParam());
    ASSERT_TRUE(library.complete);
    ASSERT_TRUE(bare.complete);
    RecordProperty("library", std::to_string(library.all));
    RecordProperty("bare", std::to_string(bare.all));
    EXPECT_GE(library.all, 2 * requests);
    EXPECT_LE(library.all, bare.all) << "library: " << testing::PrintToString(library)
                                     << "\nbare: " << testing::PrintToString(bare);
}

// The loop's poll, a read and a write; and the peer's write and read in the same process.
TEST_P(socket_system_calls, Of_an_echoed_request_are_three_at_each_end) {
    const call_counts library = calls_of_library(GetParam());
    ASSERT_TRUE(library.complete);
    EXPECT_EQ(library.all, (3 + 2) * requests) << testing::PrintToString(library);
}

INSTANTIATE_TEST_SUITE_P(without_and_with_a_time_out, socket_system_calls,
                         testing::Values(no_timeout, timeout_sec));
