// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <vask_socket.h>

class line_client : public vask_exec {
public:
    line_client(int port, const char* text)
        : m_socket("127.0.0.1", VASK_SOCK_TCP, port, nullptr), m_text(text), m_status(-1) {}

    int run() {
        if (!m_socket.start_connect() || !m_socket.write(m_text.c_str(), -1)) {
            return 1;
        }
        constexpr int timeout_sec = 10;
        m_socket.set_read_request({static_cast<vask_exec_func>(&line_client::show), nullptr, this},
                                  m_text.size(), m_text.size(), timeout_sec);
        while (m_status < 0) {
            g_main_context_iteration(nullptr, TRUE);
        }
        return m_status;
    }

private:
    void show(void*) {
        const vask_sock_read_context& read = m_socket.m_read_context;
        printf("%.*s\n", static_cast<int>(read.received), read.buffer);
        m_status = read.complete ? 0 : 1;
    }

    vask_client_socket m_socket;
    const std::string m_text;
    int m_status;
};

int main(int argc, char** argv) {
    return argc == 3 ? line_client(atoi(argv[1]), argv[2]).run() : 2;
}
