// Descriptors and channels that a subclass supplies.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "socket_owners.h"

using namespace vask_test;

namespace {

/** The near end of a connection, for whoever takes it, and its far end. */
class connection {
public:
    int take_descriptor() const { return fcntl(m_near.fd(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1); }

    raw_socket& peer() { return m_far; }

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
