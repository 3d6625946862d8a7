// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Prints the announcements that come to a port, and who made them.
//
// usage: listener [PORT [TIMES]]
//        TIMES: announcements after which it ends; 0 for as long as it runs

#include <arpa/inet.h>
#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <vask_socket.h>

class listener : public vask_server_socket {
public:
    listener(int port, int times)
        : vask_server_socket(VASK_SOCK_UDP, port),
          m_times_left(times),
          m_loop(g_main_loop_new(nullptr, FALSE)) {}
    ~listener() override { g_main_loop_unref(m_loop); }

    // The exit status.
    int run() {
        if (!start_service()) {
            return 1;
        }
        printf("listening on port %d\n", own_port());
        listen_on();
        g_main_loop_run(m_loop);
        return 0;
    }

private:
    int own_port() const {
        sockaddr_in address = {};
        socklen_t length = sizeof address;
        getsockname(peer_sock, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

    void listen_on() {
        set_read_request({static_cast<vask_exec_func>(&listener::heard), nullptr, this}, 1500, 1,
                         0);
    }

    void heard(void*) {
        const auto port = static_cast<in_port_t>(get_peer_port());
        printf("%s:%d says: %.*s\n", get_peer_ip_addr().c_str(), ntohs(port),
               static_cast<int>(m_read_context.received), m_read_context.buffer);
        if (m_times_left > 0 && --m_times_left == 0) {
            g_main_loop_quit(m_loop);
            return;
        }
        listen_on();
    }

    int m_times_left;
    GMainLoop* m_loop;
};

int main(int argc, char** argv) {
    // A line at a time, wherever it goes.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    return listener(argc > 1 ? atoi(argv[1]) : 0, argc > 2 ? atoi(argv[2]) : 0).run();
}
