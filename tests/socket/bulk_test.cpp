// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Much data from and to a program that does nothing else.

#include <gtest/gtest.h>

#include "foreign_program.h"
#include "socket_owners.h"

using namespace vask_test;

namespace {

constexpr long bytes = 64L * 1024 * 1024 + 7;
constexpr long period = 251;

std::string bulk_program(const std::string& direction, int port) {
    return "exec " VASK_TEST_PROGRAM_DIR "/socket_bulk " + direction + " " + std::to_string(port) +
           " " + std::to_string(bytes);
}

/** Reads to the end of the stream and checks every byte. */
class checking_reader {
public:
    checking_reader(vask_socket& socket, gsize size, gsize least) : m_size(size), m_least(least) {
        m_owner.then = [this](vask_socket* ready) { take(*ready); };
        ask(socket);
    }

    long received = 0;
    bool is_right = true;
    bool ended = false;
    int status = -1;

private:
    void ask(vask_socket& socket) {
        socket.set_read_request(m_owner.handler(), m_size, m_least, 30);
    }

    void take(vask_socket& socket) {
        for (const char byte : m_owner.received) {
            is_right = is_right && byte == static_cast<char>(received++ % period);
        }
        if (m_owner.complete) {
            ask(socket);
            return;
        }
        ended = true;
        status = m_owner.status;
    }

    gsize m_size;
    gsize m_least;
    request_owner m_owner;
};

class bulk : public testing::TestWithParam<std::pair<gsize, gsize>> {};

}  // namespace

TEST_P(bulk, Data_arrives_whole_and_in_order) {
    served service;
    foreign_program sender(bulk_program("send", service.server.port()));
    ASSERT_TRUE(wait_until([&] { return service.owner.calls == 1; }));
    checking_reader reader(*service.owner.sockets.front(), GetParam().first, GetParam().second);
    EXPECT_TRUE(wait_until([&] { return reader.ended; }, 60000));
    EXPECT_EQ(reader.status, 2);
    EXPECT_EQ(reader.received, bytes);
    EXPECT_TRUE(reader.is_right);
    EXPECT_EQ(sender.wait_for_end(), 0);
}

// Size of a request and its least size.
INSTANTIATE_TEST_SUITE_P(to_a_server, bulk,
                         testing::Values(std::make_pair(65536, 65536), std::make_pair(1 << 20, 1),
                                         std::make_pair(1 << 20, 1 << 20)));

TEST(bulk, Data_of_a_connection_is_taken_whole_and_in_order) {
    served service;
    foreign_program receiver(bulk_program("receive", service.server.port()));
    ASSERT_TRUE(wait_until([&] { return service.owner.calls == 1; }));
    vask_socket& connection = *service.owner.sockets.front();
    ASSERT_TRUE(connection.set_read_request({}, 1, 1, 0));
    std::string data(static_cast<size_t>(bytes), '\0');
    for (long i = 0; i < bytes; ++i) {
        data[static_cast<size_t>(i)] = static_cast<char>(i % period);
    }
    EXPECT_TRUE(connection.write(data.data(), bytes));
    EXPECT_EQ(receiver.wait_for_end(), 0);
}
