// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <stdlib.h>
#include <vask_socket.h>

#include <memory>

class line_server : public vask_exec {
public:
    explicit line_server(int port) : m_server(VASK_SOCK_TCP, port) {
        m_server.set_accepted_handler(
            {static_cast<vask_exec_func>(&line_server::serve), nullptr, this});
    }

    bool start() { return m_server.start_service(); }

private:
    void serve(void* data) {
        m_peer.reset(static_cast<vask_accepted_info*>(data)->sock);  // ours from now on
        read_next();
    }

    void read_next() {
        if (m_peer) {
            m_peer->set_read_request(
                {static_cast<vask_exec_func>(&line_server::answer), nullptr, this}, 1024, 1, 0);
        }
    }

    void answer(void*) {
        const vask_sock_read_context& read = m_peer->m_read_context;
        if (!read.complete || !m_peer->write(read.buffer, static_cast<gssize>(read.received))) {
            m_peer.reset();
            return;
        }
        read_next();
    }

    vask_server_socket m_server;
    std::unique_ptr<vask_socket> m_peer;
};

int main(int argc, char** argv) {
    line_server server(argc > 1 ? atoi(argv[1]) : 7007);
    if (!server.start()) {
        return 1;
    }
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}
