// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Holds many connections to an echo server, sends a line on each now and then, and measures how
// long it is until it comes back. Some are closed and opened again; all are when the server has
// died.
//
// usage: soak_client PORT CONNECTIONS

#include <glib-unix.h>
#include <signal.h>
#include <stdlib.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "soak_report.h"
#include "vask_socket.h"

namespace {

constexpr unsigned int tick_msec = 50;
constexpr int answer_sec = 20;

class soak_connection : public vask_exec {
public:
    soak_connection(int port, vask_test::soak_report& report) : m_port(port), m_report(report) {}

    bool is_open() const { return m_socket != nullptr; }

    void open() {
        std::unique_ptr<vask_client_socket> socket(
            new vask_client_socket("127.0.0.1", VASK_SOCK_TCP, m_port, nullptr));
        if (socket->start_connect()) {
            m_socket = std::move(socket);
        }
    }

    // Also while an answer is awaited.
    void close() { m_socket.reset(); }

    void send() {
        if (m_socket->m_read_context.reading) {
            return;
        }
        m_line = std::string(20 + m_count++ % 200, 'x') + "\n";
        m_sent = vask_test::soak_report::now();
        const vask_obj_exec_info hear = {static_cast<vask_exec_func>(&soak_connection::hear),
                                         nullptr, this};
        if (!m_socket->write(m_line.data(), static_cast<gssize>(m_line.size())) ||
            !m_socket->set_read_request(hear, m_line.size(), m_line.size(), answer_sec)) {
            close();
        }
    }

private:
    void hear(void*) {
        const vask_sock_read_context& request = m_socket->m_read_context;
        if (!request.complete) {
            // The same status has a connection that was reset because the server was killed.
            if (vask_test::soak_report::now() - m_sent >= answer_sec * G_USEC_PER_SEC) {
                m_report.complain("no echo in 20 s");
            }
            close();
            return;
        }
        m_report.add("echo", m_sent);
        if (m_line.compare(0, m_line.size(), request.buffer, request.received) != 0) {
            m_report.complain("a wrong echo");
        }
    }

    const int m_port;
    vask_test::soak_report& m_report;
    std::unique_ptr<vask_client_socket> m_socket;
    unsigned int m_count = 0;
    std::string m_line;
    gint64 m_sent = 0;
};

class soak_client {
public:
    soak_client(int port, int connections) {
        for (int i = 0; i < connections; ++i) {
            m_connections.emplace_back(new soak_connection(port, m_report));
        }
    }

    int run() {
        g_unix_signal_add(SIGTERM, quit, this);
        g_timeout_add(tick_msec, tick, this);
        g_main_loop_run(m_loop);
        g_main_loop_unref(m_loop);
        return 0;
    }

private:
    static gboolean quit(gpointer user_data) {
        g_main_loop_quit(static_cast<soak_client*>(user_data)->m_loop);
        return G_SOURCE_CONTINUE;
    }

    static gboolean tick(gpointer user_data) {
        auto self = static_cast<soak_client*>(user_data);
        std::uniform_int_distribution<std::size_t> any(0, self->m_connections.size() - 1);
        // Whoever is next, so that all are open soon.
        soak_connection& next = *self->m_connections[self->m_turn++ % self->m_connections.size()];
        if (!next.is_open()) {
            next.open();
        }
        for (int i = 0; i < 2; ++i) {
            soak_connection& chosen = *self->m_connections[any(self->m_dice)];
            if (chosen.is_open()) {
                chosen.send();
            }
        }
        if (self->m_turn % 20 == 0) {
            self->m_connections[any(self->m_dice)]->close();
        }
        return G_SOURCE_CONTINUE;
    }

    GMainLoop* const m_loop = g_main_loop_new(nullptr, FALSE);
    vask_test::soak_report m_report;
    std::mt19937 m_dice{std::random_device{}()};
    std::size_t m_turn = 0;
    std::vector<std::unique_ptr<soak_connection>> m_connections;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: soak_client PORT CONNECTIONS\n");
        return 2;
    }
    return soak_client(atoi(argv[1]), atoi(argv[2])).run();
}
