// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Descriptors and channels that a subclass supplies.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

#include "socket_owners.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

/** The near end of a connection, for whoever takes it, and its far end. */
class connection {
public:
    int take_descriptor() const { return fcntl(m_near.fd(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1); }

    raw_socket& peer() { return m_far; }

    /** The next write raises a SIGPIPE. */
    void lose_peer() {
        // What it has not read makes its system reset the connection, and the read takes that
        // error.
        m_near.send("unread");
        m_far.close();
        EXPECT_EQ(m_near.receive(1), "");
    }

    /** Once what was taken is closed. */
    bool is_closed() {
        m_near.close();
        return wait_until([this] { return m_far.peer_is_gone(); });
    }

private:
    raw_socket m_listener = raw_socket::listening();
    raw_socket m_far = raw_socket::connected_to(m_listener.port());
    raw_socket m_near = m_listener.accept();
};

class supplied : public open_socket<vask_socket> {
public:
    explicit supplied(int fd) : open_socket(VASK_SOCK_TCP, 0, nullptr) { peer_sock = fd; }
};

GIOChannel* channel_on(int fd) {
    GIOChannel* channel = g_io_channel_unix_new(fd);
    g_io_channel_set_encoding(channel, nullptr, nullptr);
    g_io_channel_set_buffered(channel, FALSE);
    return channel;
}

/** Keeps a channel alive, and tells whether everybody else has released it. */
class witness {
public:
    explicit witness(GIOChannel* channel) : m_channel(g_io_channel_ref(channel)) {}
    ~witness() { g_io_channel_unref(m_channel); }
    bool is_the_last() const { return m_channel->ref_count == 1; }

private:
    GIOChannel* m_channel;
};

class open_copy : public vask_socket {
public:
    using vask_socket::peer_ch;
    explicit open_copy(vask_socket& other) : vask_socket(other) {}
};

/** From then on the connection knows a channel that was supplied. Its end leaves both alone. */
class discreet_copy : public open_copy {
public:
    explicit discreet_copy(vask_socket& other) : open_copy(other) { peer_ch = nullptr; }
};

/** A socket with a buffered channel of its own, which holds a text for a peer that has gone. */
class late_writer {
public:
    late_writer() : socket(std::make_unique<supplied>(m_connection.take_descriptor())) {
        socket->peer_ch = channel_on(socket->peer_sock);
        g_io_channel_set_buffered(socket->peer_ch, TRUE);
        EXPECT_TRUE(socket->write("late", 4));
        m_connection.lose_peer();
    }

private:
    connection m_connection;

public:
    std::unique_ptr<supplied> socket;
};

/** While it lives, a SIGPIPE ends the process; and a test fails in which one is left behind, or its
 *  mask or disposition changes. */
class deadly_sigpipe {
public:
    deadly_sigpipe() {
        EXPECT_EQ(signal(SIGPIPE, SIG_DFL), SIG_DFL);
        pthread_sigmask(SIG_BLOCK, nullptr, &m_mask);
        EXPECT_EQ(sigismember(&m_mask, SIGPIPE), 0);
    }
    ~deadly_sigpipe() {
        struct sigaction action = {};
        sigaction(SIGPIPE, nullptr, &action);
        EXPECT_EQ(action.sa_handler, SIG_DFL);
        sigset_t mask, pending;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        for (int number = 1; number <= SIGRTMAX; ++number) {
            EXPECT_EQ(sigismember(&mask, number), sigismember(&m_mask, number)) << number;
        }
        sigpending(&pending);
        EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
    }
    deadly_sigpipe(const deadly_sigpipe&) = delete;
    deadly_sigpipe& operator=(const deadly_sigpipe&) = delete;

private:
    sigset_t m_mask;
};

/** What a socket reads when its peer sends four bytes. */
std::string received(vask_socket& socket, const raw_socket& peer, const std::string& four_bytes) {
    request_owner owner;
    EXPECT_TRUE(socket.set_read_request(owner.handler(), 4, 4, 0));
    peer.send(four_bytes);
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    return owner.received;
}

}  // namespace

TEST(supplied_descriptor, Is_read_from_and_closed) {
    connection only;
    {
        supplied socket(only.take_descriptor());
        EXPECT_EQ(received(socket, only.peer(), "ping"), "ping");
    }
    EXPECT_TRUE(only.is_closed());
}

TEST(supplied_descriptor, In_place_of_another_leaves_the_former_connection_to_the_copy) {
    connection former, latter;
    supplied socket(former.take_descriptor());
    vask_socket copy(socket);
    socket.peer_sock = latter.take_descriptor();
    EXPECT_EQ(received(socket, latter.peer(), "ping"), "ping");
    EXPECT_EQ(received(copy, former.peer(), "pong"), "pong");
    socket.close_peer_sock(FALSE);
    EXPECT_TRUE(latter.is_closed());
    EXPECT_TRUE(copy.write("more", 4));
    EXPECT_EQ(former.peer().receive(4), "more");
}

TEST(supplied_descriptor, In_place_of_another_that_was_read_from_leaves_its_channel) {
    connection former, latter;
    supplied socket(former.take_descriptor());
    EXPECT_EQ(received(socket, former.peer(), "ping"), "ping");
    socket.peer_sock = latter.take_descriptor();
    vask_socket copy(socket);
    EXPECT_TRUE(former.is_closed());
    EXPECT_EQ(received(copy, latter.peer(), "pong"), "pong");
    EXPECT_EQ(received(socket, latter.peer(), "ping"), "ping");
    socket.close_peer_sock(TRUE);
    EXPECT_TRUE(latter.is_closed());
}

TEST(supplied_descriptor, That_is_taken_back_stays_with_the_copy) {
    connection only;
    {
        auto socket = std::make_unique<supplied>(only.take_descriptor());
        vask_socket copy(*socket);
        socket->peer_sock = 0;
        socket.reset();
        EXPECT_EQ(received(copy, only.peer(), "ping"), "ping");
    }
    EXPECT_TRUE(only.is_closed());
}

TEST(supplied_channel, Is_read_from_and_closed_and_released) {
    connection only;
    supplied socket(only.take_descriptor());
    socket.peer_ch = channel_on(socket.peer_sock);
    const witness channel(socket.peer_ch);
    EXPECT_EQ(received(socket, only.peer(), "ping"), "ping");
    socket.close_peer_sock(FALSE);
    EXPECT_EQ(socket.peer_ch, nullptr);
    EXPECT_TRUE(only.is_closed());
    EXPECT_TRUE(channel.is_the_last());
}

TEST(supplied_channel, In_place_of_that_of_the_library_releases_both) {
    connected pair;
    const witness former(pair.socket.peer_ch);
    pair.socket.peer_ch = channel_on(pair.socket.peer_sock);
    const witness latter(pair.socket.peer_ch);
    EXPECT_EQ(received(pair.socket, pair.peer, "ping"), "ping");
    pair.socket.close_peer_sock(FALSE);
    EXPECT_TRUE(wait_until([&] { return pair.peer.peer_is_gone(); }));
    EXPECT_TRUE(former.is_the_last());
    EXPECT_TRUE(latter.is_the_last());
}

TEST(supplied_channel, In_place_of_a_shared_one_serves_those_who_share_it) {
    connected pair;
    open_copy copy(pair.socket);
    const witness former(pair.socket.peer_ch);
    ASSERT_EQ(copy.peer_ch, pair.socket.peer_ch);
    GIOChannel* const latter = channel_on(pair.socket.peer_sock);
    pair.socket.peer_ch = latter;
    { discreet_copy another(pair.socket); }
    EXPECT_EQ(copy.peer_ch, latter);
    EXPECT_TRUE(former.is_the_last());
    EXPECT_EQ(received(copy, pair.peer, "ping"), "ping");
    EXPECT_EQ(pair.socket.peer_ch, latter);
}

TEST(supplied_channel, Whose_peer_has_gone_fails_to_write_without_a_signal) {
    deadly_sigpipe signals;
    connection only;
    supplied socket(only.take_descriptor());
    socket.peer_ch = channel_on(socket.peer_sock);
    only.lose_peer();
    log_catcher log;
    EXPECT_FALSE(socket.write("hello", 5));
    EXPECT_THAT(log.lines(), ElementsAre(socket_line("ERR", no_name,
                                                     "Failed to call g_io_channel_write_chars: 5: "
                                                     "0: Broken pipe")));
}

TEST(supplied_channel, Whose_peer_has_gone_is_flushed_by_closing_without_a_signal) {
    deadly_sigpipe signals;
    late_writer writer;
    writer.socket->close_peer_sock(TRUE);
    EXPECT_EQ(writer.socket->peer_ch, nullptr);
}

TEST(supplied_channel, Whose_peer_has_gone_is_flushed_by_the_end_of_the_socket_without_a_signal) {
    deadly_sigpipe signals;
    late_writer writer;
    writer.socket.reset();
}

TEST(supplied_channel, That_flushes_with_its_last_reference_is_released_without_a_signal) {
    deadly_sigpipe signals;
    connected pair;
    pair.socket.peer_ch = channel_on(pair.socket.peer_sock);
    g_io_channel_set_buffered(pair.socket.peer_ch, TRUE);
    g_io_channel_set_close_on_unref(pair.socket.peer_ch, TRUE);
    EXPECT_TRUE(pair.socket.write("late", 4));
    shutdown(pair.socket.peer_sock, SHUT_WR);
    { discreet_copy copy(pair.socket); }
    EXPECT_TRUE(pair.socket.start_connect());
    EXPECT_TRUE(wait_until([&] { return pair.peer.peer_is_gone(); }));
}

TEST(supplied_channel, A_SIGPIPE_of_somebody_else_stays_pending) {
    deadly_sigpipe signals;
    sigset_t only_pipe, former, pending;
    sigemptyset(&only_pipe);
    sigaddset(&only_pipe, SIGPIPE);
    late_writer writer;
    pthread_sigmask(SIG_BLOCK, &only_pipe, &former);
    pthread_kill(pthread_self(), SIGPIPE);

    writer.socket->close_peer_sock(TRUE);

    sigpending(&pending);
    ASSERT_EQ(sigismember(&pending, SIGPIPE), 1);
    int taken = 0;
    sigwait(&only_pipe, &taken);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
}
