// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Answering the requests of a peer with the same bytes.

#include <gio/gio.h>
#include <poll.h>
#include <sys/socket.h>
#include <uv.h>

#include <memory>

#include "socket_peer.h"
#include "table_row.h"
#include "vask_socket.h"

namespace {

constexpr gsize request_size = 64;
constexpr int timeout_sec = 30;

class library_echo : public vask_exec {
public:
    library_echo(int fd, int timeout) : m_socket(fd), m_timeout(timeout) { ask(); }
    int echoed = 0;

private:
    class supplied_socket : public vask_socket {
    public:
        explicit supplied_socket(int fd) : vask_socket(VASK_SOCK_TCP, 0, nullptr) {
            peer_sock = fd;
        }
    };

    void ask() {
        m_socket.set_read_request(
            {static_cast<vask_exec_func>(&library_echo::answer), nullptr, this}, request_size,
            request_size, m_timeout);
    }

    void answer(void*) {
        const vask_sock_read_context& request = m_socket.m_read_context;
        m_socket.write(request.buffer, static_cast<gssize>(request.received));
        ++echoed;
        ask();
    }

    supplied_socket m_socket;
    int m_timeout;
};

// Unbuffered, with a fresh watch and buffer for each request.
class channel_echo {
public:
    channel_echo(int fd, int timeout) : m_channel(g_io_channel_unix_new(fd)), m_timeout(timeout) {
        g_io_channel_set_encoding(m_channel, nullptr, nullptr);
        g_io_channel_set_buffered(m_channel, FALSE);
        ask();
    }
    ~channel_echo() {
        g_source_remove(m_watch);
        disarm();
        g_io_channel_shutdown(m_channel, FALSE, nullptr);
        g_io_channel_unref(m_channel);
    }
    int echoed = 0;

private:
    void ask() {
        m_buffer.reset(static_cast<char*>(g_malloc(request_size)));
        m_watch = g_io_add_watch(
            m_channel, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP),
            [](GIOChannel*, GIOCondition, gpointer self) {
                return static_cast<channel_echo*>(self)->answer();
            },
            this);
        if (m_timeout > 0) {
            m_timer = g_timeout_add_full(
                G_PRIORITY_DEFAULT, static_cast<guint>(m_timeout) * 1000,
                [](gpointer) -> gboolean { return G_SOURCE_REMOVE; }, this, nullptr);
        }
    }

    void disarm() {
        if (m_timer != 0) {
            g_source_remove(m_timer);
            m_timer = 0;
        }
    }

    gboolean answer() {
        gsize size = 0;
        g_io_channel_read_chars(m_channel, m_buffer.get(), request_size, &size, nullptr);
        disarm();
        gsize written = 0;
        g_io_channel_write_chars(m_channel, m_buffer.get(), static_cast<gssize>(size), &written,
                                 nullptr);
        ++echoed;
        ask();
        return G_SOURCE_REMOVE;
    }

    struct g_free_it {
        void operator()(char* memory) const { g_free(memory); }
    };

    GIOChannel* m_channel;
    int m_timeout;
    guint m_watch = 0;
    guint m_timer = 0;
    std::unique_ptr<char, g_free_it> m_buffer;
};

class gio_echo {
public:
    gio_echo(int fd, int timeout) {
        GSocket* socket = g_socket_new_from_fd(fd, nullptr);
        g_socket_set_timeout(socket, static_cast<guint>(timeout));
        m_connection = g_socket_connection_factory_create_connection(socket);
        g_object_unref(socket);
        ask();
    }
    ~gio_echo() {
        g_cancellable_cancel(m_cancellable);
        while (!m_over) {
            g_main_context_iteration(nullptr, TRUE);
        }
        g_object_unref(m_cancellable);
        g_object_unref(m_connection);
    }
    int echoed = 0;

private:
    void ask() {
        g_input_stream_read_async(
            g_io_stream_get_input_stream(G_IO_STREAM(m_connection)), m_buffer, sizeof m_buffer,
            G_PRIORITY_DEFAULT, m_cancellable,
            [](GObject* stream, GAsyncResult* result, gpointer self) {
                static_cast<gio_echo*>(self)->answer(G_INPUT_STREAM(stream), result);
            },
            this);
    }

    void answer(GInputStream* stream, GAsyncResult* result) {
        const gssize size = g_input_stream_read_finish(stream, result, nullptr);
        if (size <= 0) {
            m_over = true;
            return;
        }
        gsize written = 0;
        g_output_stream_write_all(g_io_stream_get_output_stream(G_IO_STREAM(m_connection)),
                                  m_buffer, static_cast<gsize>(size), &written, nullptr, nullptr);
        ++echoed;
        ask();
    }

    GSocketConnection* m_connection;
    GCancellable* m_cancellable = g_cancellable_new();
    bool m_over = false;
    char m_buffer[request_size];
};

// Reading goes on, and an answer is written at once where that does not block.
class uv_echo {
public:
    uv_echo(int fd, int timeout) : m_timeout(timeout) {
        uv_loop_init(&m_loop);
        uv_timer_init(&m_loop, &m_timer);
        uv_tcp_init(&m_loop, &m_connection);
        uv_tcp_open(&m_connection, fd);
        m_connection.data = this;
        uv_read_start(
            stream(),
            [](uv_handle_t* handle, size_t, uv_buf_t* buffer) {
                *buffer = uv_buf_init(static_cast<uv_echo*>(handle->data)->m_buffer, request_size);
            },
            [](uv_stream_t* stream, ssize_t size, const uv_buf_t*) {
                static_cast<uv_echo*>(stream->data)->answer(size);
            });
        arm();
    }
    ~uv_echo() {
        uv_close(reinterpret_cast<uv_handle_t*>(&m_timer), nullptr);
        uv_close(reinterpret_cast<uv_handle_t*>(&m_connection), nullptr);
        uv_run(&m_loop, UV_RUN_DEFAULT);
        uv_loop_close(&m_loop);
    }
    uv_echo(const uv_echo&) = delete;
    uv_echo& operator=(const uv_echo&) = delete;

    void run_once() { uv_run(&m_loop, UV_RUN_ONCE); }
    bool is_cut() const { return m_is_cut; }
    int echoed = 0;

private:
    uv_stream_t* stream() { return reinterpret_cast<uv_stream_t*>(&m_connection); }

    void arm() {
        if (m_timeout > 0) {
            uv_timer_start(
                &m_timer, [](uv_timer_t*) {}, static_cast<uint64_t>(m_timeout) * 1000, 0);
        }
    }

    void answer(ssize_t size) {
        if (size == 0) {
            return;
        }
        const uv_buf_t answer = uv_buf_init(m_buffer, static_cast<unsigned int>(size));
        if (size < 0 || uv_try_write(stream(), &answer, 1) != size) {
            uv_read_stop(stream());
            m_is_cut = true;
            return;
        }
        ++echoed;
        arm();
    }

    uv_loop_t m_loop;
    uv_timer_t m_timer;
    uv_tcp_t m_connection;
    int m_timeout;
    bool m_is_cut = false;
    char m_buffer[request_size];
};

template <typename Echo>
void echo_in_main_loop(benchmark::State& state, int timeout) {
    socket_peer peer = socket_peer::asking(request_size);
    Echo echo(peer.release(), timeout);
    for (auto _ : state) {
        const int before = echo.echoed;
        while (echo.echoed == before) {
            g_main_context_iteration(nullptr, TRUE);
        }
    }
}

template <int Timeout>
void library(benchmark::State& state) {
    echo_in_main_loop<library_echo>(state, Timeout);
    has_ratio_limit(state, "0.90");
}

template <int Timeout>
void bare_channel(benchmark::State& state) {
    echo_in_main_loop<channel_echo>(state, Timeout);
    is_baseline(state);
}

template <int Timeout>
void socket_connection(benchmark::State& state) {
    echo_in_main_loop<gio_echo>(state, Timeout);
}

template <int Timeout>
void libuv(benchmark::State& state) {
    socket_peer peer = socket_peer::asking(request_size);
    uv_echo echo(peer.release(), Timeout);
    for (auto _ : state) {
        const int before = echo.echoed;
        while (echo.echoed == before && !echo.is_cut()) {
            echo.run_once();
        }
        if (echo.is_cut()) {
            state.SkipWithError("The peer is gone");
            break;
        }
    }
}

template <int Timeout>
void poll_loop(benchmark::State& state) {
    const socket_peer peer = socket_peer::asking(request_size);
    char buffer[request_size];
    for (auto _ : state) {
        pollfd readable = {peer.fd(), POLLIN, 0};
        poll(&readable, 1, Timeout > 0 ? Timeout * 1000 : -1);
        const ssize_t size = recv(peer.fd(), buffer, sizeof buffer, 0);
        if (size <= 0 || send(peer.fd(), buffer, static_cast<size_t>(size), MSG_NOSIGNAL) != size) {
            state.SkipWithError("The peer is gone");
        }
    }
}

BENCHMARK(library<0>)->Name("Echo round trip/vask_socket")->UseRealTime();
BENCHMARK(bare_channel<0>)->Name("Echo round trip/bare GIOChannel")->UseRealTime();
BENCHMARK(socket_connection<0>)->Name("Echo round trip/GSocketConnection")->UseRealTime();
BENCHMARK(libuv<0>)->Name("Echo round trip/libuv")->UseRealTime();
BENCHMARK(poll_loop<0>)->Name("Echo round trip/loop of poll")->UseRealTime();
BENCHMARK(library<timeout_sec>)->Name("Echo round trip with a time-out/vask_socket")->UseRealTime();
BENCHMARK(bare_channel<timeout_sec>)
    ->Name("Echo round trip with a time-out/bare GIOChannel")
    ->UseRealTime();
BENCHMARK(socket_connection<timeout_sec>)
    ->Name("Echo round trip with a time-out/GSocketConnection")
    ->UseRealTime();
BENCHMARK(libuv<timeout_sec>)->Name("Echo round trip with a time-out/libuv")->UseRealTime();
BENCHMARK(poll_loop<timeout_sec>)
    ->Name("Echo round trip with a time-out/loop of poll")
    ->UseRealTime();

}  // namespace
