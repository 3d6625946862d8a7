// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Announces something every second, to all who listen on a port of the network.
//
// usage: announcer PORT TEXT [TIMES [ADDRESS]]
//        TIMES: 0 for as long as it runs; ADDRESS: 255.255.255.255 if none is given

#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <vask_socket.h>

#include <string>

class announcer : public vask_client_socket {
public:
    announcer(const char* address, int port, const char* text, int times)
        : vask_client_socket(address, VASK_SOCK_UDP, port, nullptr),
          m_text(text),
          m_times_left(times),
          m_loop(g_main_loop_new(nullptr, FALSE)) {}
    ~announcer() override { g_main_loop_unref(m_loop); }

    // The exit status.
    int run() {
        if (!start_connect()) {
            return 1;
        }
        announce(nullptr);
        g_main_loop_run(m_loop);
        return 0;
    }

private:
    void announce(void*) {
        // A machine where nobody listens refuses. Somebody may do so later.
        if (!write(m_text.data(), static_cast<gssize>(m_text.size()))) {
            start_connect();
        }
        // A timer for the end as well: the loop may not have been started yet.
        const bool last = m_times_left > 0 && --m_times_left == 0;
        add_timer_exec_func(
            last ? 0 : 1000,
            static_cast<vask_exec_func>(last ? &announcer::quit : &announcer::announce), nullptr);
    }

    void quit(void*) { g_main_loop_quit(m_loop); }

    std::string m_text;
    int m_times_left;
    GMainLoop* m_loop;
};

int main(int argc, char** argv) {
    if (argc < 3) {
        fputs("usage: announcer PORT TEXT [TIMES [ADDRESS]]\n", stderr);
        return 2;
    }
    const int times = argc > 3 ? atoi(argv[3]) : 0;
    const char* address = argc > 4 ? argv[4] : "255.255.255.255";
    return announcer(address, atoi(argv[1]), argv[2], times).run();
}
