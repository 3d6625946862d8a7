// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "socket_faults.h"
#include "socket_owners.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

struct failure {
    const char* function;
    vask_sock_proto proto;
};

void PrintTo(const failure& shown, std::ostream* out) {
    *out << shown.function << (shown.proto == VASK_SOCK_TCP ? " TCP" : " UDP");
}

class failed_start : public testing::TestWithParam<failure> {};

}  // namespace

TEST_P(failed_start, Names_the_function_and_its_error) {
    open_server server(GetParam().proto, 0);
    socket_fault fault(GetParam().function, ENOMEM);
    log_catcher log;
    EXPECT_FALSE(server.start_service());
    EXPECT_THAT(log.lines(),
                ElementsAre(socket_line(
                    "ERR", server_name,
                    "bool vask_server_socket::start_service(): Failed to call " +
                        std::string(GetParam().function) + "(): " + std::to_string(ENOMEM))));
    EXPECT_EQ(server.sock_ch, nullptr);
    EXPECT_EQ(server.peer_ch, nullptr);
}

TEST_P(failed_start, Can_be_repeated) {
    open_server server(GetParam().proto, 0);
    socket_fault fault(GetParam().function, ENOMEM);
    log_catcher log;
    EXPECT_FALSE(server.start_service());
    EXPECT_TRUE(server.start_service());
}

INSTANTIATE_TEST_SUITE_P(
    server, failed_start,
    testing::Values(failure{"socket", VASK_SOCK_TCP}, failure{"setsockopt", VASK_SOCK_TCP},
                    failure{"bind", VASK_SOCK_TCP}, failure{"listen", VASK_SOCK_TCP},
                    failure{"socket", VASK_SOCK_UDP}, failure{"setsockopt", VASK_SOCK_UDP},
                    failure{"bind", VASK_SOCK_UDP}));

TEST(failed_start, Leaves_what_was_opened_until_the_end_of_the_server) {
    open_server server(VASK_SOCK_TCP, 0);
    socket_fault fault("bind", EACCES);
    log_catcher log;
    EXPECT_FALSE(server.start_service());
    EXPECT_GT(server.m_sock, 0);
}

TEST(failed_start, Without_a_socket_leaves_none_of_the_former_start) {
    open_server server(VASK_SOCK_TCP, 0);
    ASSERT_TRUE(server.start_service());
    socket_fault fault("socket", EMFILE);
    log_catcher log;
    EXPECT_FALSE(server.start_service());
    EXPECT_EQ(server.m_sock, 0);
}
