// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Sends the lines of its standard input to an echo server, one after the other, and prints what
// comes back.
//
// usage: echo_client ADDRESS PORT

#include <glib.h>
#include <stdlib.h>
#include <vask_socket.h>

#include <iostream>
#include <string>

class echo_client : public vask_client_socket {
public:
    echo_client(const char* address, int port)
        : vask_client_socket(address, VASK_SOCK_TCP, port, nullptr),
          m_loop(g_main_loop_new(nullptr, FALSE)) {}
    ~echo_client() override { g_main_loop_unref(m_loop); }

    // The exit status.
    int run() {
        if (!start_connect()) {
            return 1;
        }
        add_timer_exec_func(0, static_cast<vask_exec_func>(&echo_client::send_line), nullptr);
        g_main_loop_run(m_loop);
        return m_status;
    }

private:
    void send_line(void*) {
        std::string line;
        if (!std::getline(std::cin, line)) {
            quit(0);
            return;
        }
        line += '\n';
        const vask_obj_exec_info print = {static_cast<vask_exec_func>(&echo_client::print_line),
                                          nullptr, this};
        if (!write(line.data(), static_cast<gssize>(line.size())) ||
            !set_read_request(print, line.size(), line.size(), 10)) {
            quit(1);
        }
    }

    void print_line(void*) {
        if (!m_read_context.complete) {
            std::cerr << "The server has not answered\n";
            quit(1);
            return;
        }
        std::cout.write(m_read_context.buffer,
                        static_cast<std::streamsize>(m_read_context.received));
        send_line(nullptr);
    }

    void quit(int status) {
        m_status = status;
        g_main_loop_quit(m_loop);
    }

    GMainLoop* m_loop;
    int m_status = 0;
};

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: echo_client ADDRESS PORT\n";
        return 2;
    }
    return echo_client(argv[1], atoi(argv[2])).run();
}
