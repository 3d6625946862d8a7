// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <vask_socket.h>

class datagram_server : public vask_server_socket {
public:
    explicit datagram_server(int port) : vask_server_socket(VASK_SOCK_UDP, port) {}

    bool start() { return start_service() && read_next(); }

private:
    bool read_next() {
        return set_read_request(
            {static_cast<vask_exec_func>(&datagram_server::answer), nullptr, this}, 1500, 1, 0);
    }

    void answer(void*) {
        const vask_sock_read_context& read = m_read_context;
        if (read.complete) {
            sendto(peer_sock, read.buffer, read.received, MSG_DONTWAIT,
                   reinterpret_cast<const sockaddr*>(&m_peer_addr), sizeof m_peer_addr);
        }
        read_next();
    }
};

int main(int argc, char** argv) {
    datagram_server server(argc > 1 ? atoi(argv[1]) : 7008);
    if (!server.start()) {
        return 1;
    }
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}
