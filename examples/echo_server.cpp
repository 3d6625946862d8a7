// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Sends every line back to whoever it came from.
//
// usage: echo_server [PORT]

#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <vask_socket.h>

#include <list>
#include <memory>

// One connection. It asks for more until the peer is gone.
class echo_session : public vask_exec {
public:
    explicit echo_session(vask_socket* connection) : m_connection(connection) {}

    bool is_over() const { return m_over; }

    void ask() {
        const vask_obj_exec_info answer = {static_cast<vask_exec_func>(&echo_session::answer),
                                           nullptr, this};
        // Up to 4096 bytes, whatever has come, from a peer that is silent for 5 minutes at most.
        m_over = !m_connection->set_read_request(answer, 4096, 1, 300);
    }

private:
    void answer(void*) {
        const vask_sock_read_context& request = m_connection->m_read_context;
        if (!request.complete) {
            // The handler of a request may delete the socket; here its owner does so later.
            m_connection->close_peer_sock(FALSE);
            m_over = true;
            return;
        }
        m_lines.append(request.buffer, request.received);
        const size_t end = m_lines.rfind('\n');
        if (end != std::string::npos) {
            m_connection->write(m_lines.data(), static_cast<gssize>(end + 1));
            m_lines.erase(0, end + 1);
        }
        ask();
    }

    std::unique_ptr<vask_socket> m_connection;
    std::string m_lines;
    bool m_over = false;
};

class echo_server : public vask_server_socket {
public:
    explicit echo_server(int port) : vask_server_socket(VASK_SOCK_TCP, port) {
        set_accepted_handler({static_cast<vask_exec_func>(&echo_server::serve), nullptr, this});
    }

    int port() const {
        sockaddr_in address = {};
        socklen_t length = sizeof address;
        getsockname(m_sock, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

private:
    void serve(void* argument) {
        m_sessions.remove_if([](const echo_session& session) { return session.is_over(); });
        vask_socket* connection = static_cast<vask_accepted_info*>(argument)->sock;
        if (connection != nullptr) {
            m_sessions.emplace_back(connection);
            m_sessions.back().ask();
        }
    }

    std::list<echo_session> m_sessions;
};

int main(int argc, char** argv) {
    echo_server server(argc > 1 ? atoi(argv[1]) : 0);
    if (!server.start_service()) {
        return 1;
    }
    printf("listening on port %d\n", server.port());
    fflush(stdout);
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_main_loop_run(loop);
    return 0;
}
