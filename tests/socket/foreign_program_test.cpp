// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Clients and servers that know nothing of the library.

#include "foreign_program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <list>

#include "socket_owners.h"

using namespace vask_test;
using testing::HasSubstr;

namespace {

/** Answers every connection, until the owner of an answer is told to end. */
class answering_server : public vask_exec {
public:
    answering_server() : server(VASK_SOCK_TCP, 0) {
        server.set_accepted_handler(
            {static_cast<vask_exec_func>(&answering_server::accepted), nullptr, this});
        EXPECT_TRUE(server.start_service());
    }
    ~answering_server() override {
        for (vask_socket* connection : m_connections) {
            delete connection;
        }
    }

    std::string port() const { return std::to_string(server.port()); }

    /** Receives what has come; returns whether the connection goes on. */
    std::function<bool(vask_socket& connection, const std::string& data)> answer;

    int ends_of_stream = 0;
    int failures = 0;
    open_server server;

private:
    vask_obj_exec_info handler() {
        return {static_cast<vask_exec_func>(&answering_server::received), nullptr, this};
    }

    void accepted(void* argument) {
        auto* info = static_cast<vask_accepted_info*>(argument);
        if (info->sock != nullptr) {
            m_connections.push_back(info->sock);
            info->sock->set_read_request(handler(), 65536, 1, 30);
        }
    }

    void received(void* argument) {
        auto* connection = static_cast<vask_socket*>(argument);
        const vask_sock_read_context& context = connection->m_read_context;
        ends_of_stream += context.status == 2;
        failures += context.status == 0;
        if (context.complete &&
            answer(*connection, {context.buffer, static_cast<size_t>(context.received)})) {
            connection->set_read_request(handler(), 65536, 1, 30);
            return;
        }
        m_connections.remove(connection);
        delete connection;
    }

    std::list<vask_socket*> m_connections;
};

bool echo(vask_socket& connection, const std::string& data) {
    return connection.write(data.data(), static_cast<gssize>(data.size()));
}

class scratch_file {
public:
    explicit scratch_file(const std::string& content = "") : m_path("/tmp/socket_test_XXXXXX") {
        close(mkstemp(&m_path[0]));
        std::ofstream(m_path) << content;
    }
    ~scratch_file() { unlink(m_path.c_str()); }

    const std::string& path() const { return m_path; }
    std::string content() const {
        std::ifstream file(m_path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string m_path;
};

}  // namespace

TEST(foreign_client, Nc_gets_its_lines_back) {
    answering_server service;
    service.answer = echo;
    foreign_program nc("printf 'one\\ntwo\\n' | nc -N 127.0.0.1 " + service.port());
    EXPECT_EQ(nc.wait_for_end(), 0);
    EXPECT_EQ(nc.output(), "one\ntwo\n");
    EXPECT_TRUE(wait_until([&] { return service.ends_of_stream == 1; }));
}

TEST(foreign_client, Socat_gets_all_byte_values_back) {
    answering_server service;
    service.answer = echo;
    const scratch_file sent(every_byte(1000));
    const scratch_file received;
    foreign_program socat("socat -t 30 - TCP4:127.0.0.1:" + service.port() + " <" + sent.path() +
                          " >" + received.path());
    EXPECT_EQ(socat.wait_for_end(), 0) << socat.output();
    EXPECT_TRUE(received.content() == sent.content());
}

TEST(foreign_client, Curl_gets_an_answer) {
    answering_server service;
    std::string request;
    service.answer = [&request](vask_socket& connection, const std::string& data) {
        request += data;
        if (request.find("\r\n\r\n") == std::string::npos) {
            return true;
        }
        connection.write("HTTP/1.1 200 OK\r\nContent-Length: 6\r\nConnection: close\r\n\r\nhello\n",
                         -1);
        return false;
    };
    foreign_program curl("curl --silent --noproxy '*' --max-time 30 http://127.0.0.1:" +
                         service.port() + "/greeting");
    EXPECT_EQ(curl.wait_for_end(), 0);
    EXPECT_EQ(curl.output(), "hello\n");
    EXPECT_THAT(request, testing::StartsWith("GET /greeting HTTP/1.1\r\n"));
}

TEST(foreign_client, Several_at_once_are_served) {
    answering_server service;
    service.answer = echo;
    // Each waits for its answer before it closes: while the listener's short queue overflows, the
    // kernel may answer an early end of data with a reset.
    foreign_program clients("for i in 1 2 3 4 5; do bash -c 'exec 3<>/dev/tcp/127.0.0.1/" +
                            service.port() + " && echo '$i' >&3 && head -n 1 <&3' & done; wait");
    EXPECT_EQ(clients.wait_for_end(), 0);
    std::string output = clients.output();
    std::sort(output.begin(), output.end());
    EXPECT_EQ(output, "\n\n\n\n\n12345");
}

TEST(foreign_client, A_slow_one_is_waited_for) {
    answering_server service;
    service.answer = echo;
    foreign_program slow("(for i in 1 2 3; do printf $i; sleep 0.2; done) | nc -N 127.0.0.1 " +
                         service.port());
    EXPECT_EQ(slow.wait_for_end(), 0);
    EXPECT_EQ(slow.output(), "123");
}

TEST(foreign_client, One_that_resets_ends_its_connection_and_no_other) {
    answering_server service;
    service.answer = [](vask_socket&, const std::string&) { return true; };
    log_catcher log;
    foreign_program resetting("printf x | socat -u - TCP4:127.0.0.1:" + service.port() +
                              ",linger=0");
    EXPECT_EQ(resetting.wait_for_end(), 0) << resetting.output();
    EXPECT_TRUE(wait_until([&] { return service.failures + service.ends_of_stream == 1; }));

    service.answer = echo;
    foreign_program next("printf y | nc -N 127.0.0.1 " + service.port());
    EXPECT_EQ(next.wait_for_end(), 0);
    EXPECT_EQ(next.output(), "y");
}

TEST(foreign_server, Socat_answers_a_client) {
    foreign_program socat("exec socat -d -d TCP4-LISTEN:0,bind=127.0.0.1 EXEC:cat");
    vask_client_socket client("127.0.0.1", VASK_SOCK_TCP, socat.number_after("127.0.0.1:"),
                              nullptr);
    ASSERT_TRUE(client.start_connect());
    request_owner owner;
    const std::string sent = every_byte();
    ASSERT_TRUE(client.set_read_request(owner.handler(), sent.size(), sent.size(), 30));
    ASSERT_TRUE(client.write(sent.data(), static_cast<gssize>(sent.size())));
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    EXPECT_EQ(owner.received, sent);
}

TEST(foreign_server, Nc_receives_what_a_client_writes_before_it_closes) {
    foreign_program nc("exec nc -n -v -l 127.0.0.1 0");
    const int port = nc.number_after("127.0.0.1 ");
    {
        vask_client_socket client("127.0.0.1", VASK_SOCK_TCP, port, nullptr);
        ASSERT_TRUE(client.start_connect());
        ASSERT_TRUE(client.write("hello\n", -1));
    }
    EXPECT_EQ(nc.wait_for_end(), 0);
    EXPECT_THAT(nc.output(), HasSubstr("\nhello\n"));
}

TEST(foreign_server, Socat_sends_datagrams_back) {
    const int port = unused_port(SOCK_DGRAM);
    foreign_program socat("exec socat UDP4-RECVFROM:" + std::to_string(port) +
                          ",bind=127.0.0.1,fork EXEC:cat");
    vask_client_socket client("127.0.0.1", VASK_SOCK_UDP, port, nullptr);
    ASSERT_TRUE(client.start_connect());
    request_owner owner;
    ASSERT_TRUE(client.set_read_request(owner.handler(), 100, 1, 0));
    // Until it has started, datagrams are refused.
    log_catcher log;
    EXPECT_TRUE(wait_until([&] {
        if (client.write("ping", 4)) {
            return owner.calls > 0;
        }
        return !client.start_connect() || !client.set_read_request(owner.handler(), 100, 1, 0);
    }));
    EXPECT_EQ(owner.received, "ping");
}

TEST(foreign_client, Nc_sends_a_datagram) {
    open_server server(VASK_SOCK_UDP, 0);
    ASSERT_TRUE(server.start_service());
    request_owner owner;
    ASSERT_TRUE(server.set_read_request(owner.handler(), 100, 1, 0));
    foreign_program nc("printf hello | nc -u -q 0 127.0.0.1 " +
                       std::to_string(raw_socket::port_of(server.peer_sock)));
    EXPECT_TRUE(wait_until([&] { return owner.calls == 1; }));
    EXPECT_EQ(owner.received, "hello");
    EXPECT_EQ(nc.wait_for_end(), 0);
}
