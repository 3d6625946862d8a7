// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Serving connections: each is accepted, has its requests answered, and is closed by its peer.

#include <gio/gio.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

#include "socket_peer.h"
#include "table_row.h"
#include "vask_socket.h"

namespace {

constexpr gsize request_size = connection_request_size;

class library_server : public vask_server_socket {
public:
    library_server() : vask_server_socket(VASK_SOCK_TCP, 0) {
        set_accepted_handler({static_cast<vask_exec_func>(&library_server::serve), nullptr, this});
        start_service();
    }
    ~library_server() override {
        // Not to have GLib's complaint in the output of a benchmark.
        g_log_set_handler(
            "GLib-GObject", G_LOG_LEVEL_CRITICAL, [](auto...) {}, nullptr);
    }
    int port() const { return port_of(m_sock); }
    int ended = 0;

    static void dispatch() { g_main_context_iteration(nullptr, TRUE); }

private:
    void serve(void* argument) { ask(static_cast<vask_accepted_info*>(argument)->sock); }

    void ask(vask_socket* connection) {
        connection->set_read_request(
            {static_cast<vask_exec_func>(&library_server::answer), nullptr, this}, request_size,
            request_size, 0);
    }

    void answer(void* argument) {
        auto* connection = static_cast<vask_socket*>(argument);
        const vask_sock_read_context& request = connection->m_read_context;
        if (!request.complete) {
            delete connection;
            ++ended;
            return;
        }
        connection->write(request.buffer, static_cast<gssize>(request.received));
        ask(connection);
    }
};

class channel_server {
public:
    channel_server() : m_listener(open_listener()), m_channel(g_io_channel_unix_new(m_listener)) {
        m_watch = g_io_add_watch(
            m_channel, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP),
            [](GIOChannel*, GIOCondition, gpointer self) -> gboolean {
                static_cast<channel_server*>(self)->serve();
                return G_SOURCE_CONTINUE;
            },
            this);
    }
    ~channel_server() {
        g_source_remove(m_watch);
        g_io_channel_unref(m_channel);
        close(m_listener);
    }
    int port() const { return port_of(m_listener); }
    int ended = 0;

    static void dispatch() { g_main_context_iteration(nullptr, TRUE); }

private:
    struct connection {
        channel_server* server;
        GIOChannel* channel;
        char* buffer;
    };

    void serve() {
        const int fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        GIOChannel* channel = g_io_channel_unix_new(fd);
        g_io_channel_set_encoding(channel, nullptr, nullptr);
        g_io_channel_set_buffered(channel, FALSE);
        ask(new connection{this, channel, nullptr});
    }

    static void ask(connection* peer) {
        g_free(peer->buffer);
        peer->buffer = static_cast<char*>(g_malloc(request_size));
        g_io_add_watch(
            peer->channel, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP),
            [](GIOChannel*, GIOCondition, gpointer data) -> gboolean {
                answer(static_cast<connection*>(data));
                return G_SOURCE_REMOVE;
            },
            peer);
    }

    static void answer(connection* peer) {
        gsize size = 0;
        if (g_io_channel_read_chars(peer->channel, peer->buffer, request_size, &size, nullptr) !=
            G_IO_STATUS_NORMAL) {
            g_io_channel_shutdown(peer->channel, TRUE, nullptr);
            g_io_channel_unref(peer->channel);
            g_free(peer->buffer);
            ++peer->server->ended;
            delete peer;
            return;
        }
        gsize written = 0;
        g_io_channel_write_chars(peer->channel, peer->buffer, static_cast<gssize>(size), &written,
                                 nullptr);
        ask(peer);
    }

    int m_listener;
    GIOChannel* m_channel;
    guint m_watch;
};

class gio_server {
public:
    gio_server() : m_service(g_socket_service_new()) {
        g_socket_listener_set_backlog(G_SOCKET_LISTENER(m_service), 1);
        m_port =
            g_socket_listener_add_any_inet_port(G_SOCKET_LISTENER(m_service), nullptr, nullptr);
        g_signal_connect(m_service, "incoming", G_CALLBACK(serve), this);
        g_socket_service_start(m_service);
    }
    ~gio_server() {
        g_socket_service_stop(m_service);
        g_socket_listener_close(G_SOCKET_LISTENER(m_service));
        g_object_unref(m_service);
    }
    int port() const { return m_port; }
    int ended = 0;

    static void dispatch() { g_main_context_iteration(nullptr, TRUE); }

private:
    struct connection {
        gio_server* server;
        GSocketConnection* stream;
        char buffer[request_size];
    };

    static gboolean serve(GSocketService*, GSocketConnection* stream, GObject*, gpointer self) {
        g_object_ref(stream);
        ask(new connection{static_cast<gio_server*>(self), stream, {}});
        return TRUE;
    }

    static void ask(connection* peer) {
        g_input_stream_read_async(
            g_io_stream_get_input_stream(G_IO_STREAM(peer->stream)), peer->buffer, request_size,
            G_PRIORITY_DEFAULT, nullptr,
            [](GObject* stream, GAsyncResult* result, gpointer data) {
                answer(static_cast<connection*>(data),
                       g_input_stream_read_finish(G_INPUT_STREAM(stream), result, nullptr));
            },
            peer);
    }

    static void answer(connection* peer, gssize size) {
        if (size <= 0) {
            g_io_stream_close(G_IO_STREAM(peer->stream), nullptr, nullptr);
            g_object_unref(peer->stream);
            ++peer->server->ended;
            delete peer;
            return;
        }
        gsize written = 0;
        g_output_stream_write_all(g_io_stream_get_output_stream(G_IO_STREAM(peer->stream)),
                                  peer->buffer, static_cast<gsize>(size), &written, nullptr,
                                  nullptr);
        ask(peer);
    }

    GSocketService* m_service;
    int m_port;
};

class poll_server {
public:
    poll_server() : m_watched{{open_listener(), POLLIN, 0}} {}
    ~poll_server() {
        for (const pollfd& watched : m_watched) {
            close(watched.fd);
        }
    }
    int port() const { return port_of(m_watched.front().fd); }
    int ended = 0;

    void dispatch() {
        poll(m_watched.data(), m_watched.size(), -1);
        for (size_t i = m_watched.size(); i-- > 1;) {
            if (m_watched[i].revents != 0 && !answer(m_watched[i].fd)) {
                close(m_watched[i].fd);
                m_watched[i] = m_watched.back();
                m_watched.pop_back();
                ++ended;
            }
        }
        if (m_watched.front().revents != 0) {
            const int fd = accept4(m_watched.front().fd, nullptr, nullptr, SOCK_CLOEXEC);
            m_watched.push_back({fd, POLLIN, 0});
        }
    }

private:
    static bool answer(int fd) {
        char buffer[request_size];
        const ssize_t size = recv(fd, buffer, sizeof buffer, 0);
        return size > 0 && send(fd, buffer, static_cast<size_t>(size), MSG_NOSIGNAL) == size;
    }

    std::vector<pollfd> m_watched;
};

template <typename Server>
void one_after_the_other(benchmark::State& state) {
    Server server;
    connecting_peer peer(server.port());
    for (auto _ : state) {
        server.ended = 0;
        peer.connect_one_after_the_other(1000);
        while (server.ended < 1000) {
            server.dispatch();
        }
    }
}

template <typename Server>
void at_once(benchmark::State& state) {
    Server server;
    connecting_peer peer(server.port());
    for (auto _ : state) {
        server.ended = 0;
        peer.connect_at_once(200);
        while (server.ended < 200) {
            server.dispatch();
        }
    }
}

template <void (*Work)(benchmark::State&)>
void baseline(benchmark::State& state) {
    Work(state);
    is_baseline(state);
}

BENCHMARK(one_after_the_other<library_server>)
    ->Name("1000 connections one after the other/vask_server_socket")
    ->UseRealTime();
BENCHMARK(baseline<one_after_the_other<channel_server>>)
    ->Name("1000 connections one after the other/bare GIOChannel")
    ->UseRealTime();
BENCHMARK(one_after_the_other<gio_server>)
    ->Name("1000 connections one after the other/GSocketService")
    ->UseRealTime();
BENCHMARK(one_after_the_other<poll_server>)
    ->Name("1000 connections one after the other/loop of poll")
    ->UseRealTime();
BENCHMARK(at_once<library_server>)
    ->Name("200 connections at once/vask_server_socket")
    ->UseRealTime();
BENCHMARK(baseline<at_once<channel_server>>)
    ->Name("200 connections at once/bare GIOChannel")
    ->UseRealTime();
BENCHMARK(at_once<gio_server>)->Name("200 connections at once/GSocketService")->UseRealTime();
BENCHMARK(at_once<poll_server>)->Name("200 connections at once/loop of poll")->UseRealTime();

}  // namespace
