// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Taking a stream in requests of one size, each into a buffer of its own.

#include <gio/gio.h>
#include <poll.h>
#include <sys/socket.h>
#include <uv.h>

#include <memory>

#include "socket_peer.h"
#include "table_row.h"
#include "vask_socket.h"

namespace {

struct g_free_it {
    void operator()(char* memory) const { g_free(memory); }
};
using g_buffer = std::unique_ptr<char, g_free_it>;

class library_reader : public vask_exec {
public:
    library_reader(int fd, gsize size) : m_socket(fd), m_size(size) { ask(); }
    gsize requests = 0;

private:
    class supplied_socket : public vask_socket {
    public:
        explicit supplied_socket(int fd) : vask_socket(VASK_SOCK_TCP, 0, nullptr) {
            peer_sock = fd;
        }
    };

    void ask() {
        m_socket.set_read_request(
            {static_cast<vask_exec_func>(&library_reader::take), nullptr, this}, m_size, m_size, 0);
    }

    void take(void*) {
        requests += m_socket.m_read_context.complete;
        ask();
    }

    supplied_socket m_socket;
    gsize m_size;
};

class channel_reader {
public:
    channel_reader(int fd, gsize size) : m_channel(g_io_channel_unix_new(fd)), m_size(size) {
        g_io_channel_set_encoding(m_channel, nullptr, nullptr);
        g_io_channel_set_buffered(m_channel, FALSE);
        ask();
    }
    ~channel_reader() {
        g_source_remove(m_watch);
        g_io_channel_shutdown(m_channel, FALSE, nullptr);
        g_io_channel_unref(m_channel);
    }
    gsize requests = 0;

private:
    void ask() {
        m_received = 0;
        m_buffer.reset();
        m_buffer.reset(static_cast<char*>(g_malloc(m_size)));
        m_watch = g_io_add_watch(
            m_channel, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP),
            [](GIOChannel*, GIOCondition, gpointer self) {
                return static_cast<channel_reader*>(self)->take();
            },
            this);
    }

    gboolean take() {
        gsize count = 0;
        g_io_channel_read_chars(m_channel, m_buffer.get() + m_received, m_size - m_received, &count,
                                nullptr);
        m_received += count;
        if (m_received < m_size) {
            return G_SOURCE_CONTINUE;
        }
        ++requests;
        ask();
        return G_SOURCE_REMOVE;
    }

    GIOChannel* m_channel;
    gsize m_size;
    gsize m_received = 0;
    guint m_watch = 0;
    g_buffer m_buffer;
};

class gio_reader {
public:
    gio_reader(int fd, gsize size) : m_size(size) {
        GSocket* socket = g_socket_new_from_fd(fd, nullptr);
        m_connection = g_socket_connection_factory_create_connection(socket);
        g_object_unref(socket);
        ask();
    }
    ~gio_reader() {
        g_cancellable_cancel(m_cancellable);
        while (!m_over) {
            g_main_context_iteration(nullptr, TRUE);
        }
        g_object_unref(m_cancellable);
        g_object_unref(m_connection);
    }
    gsize requests = 0;

private:
    void ask() {
        m_buffer.reset();
        m_buffer.reset(static_cast<char*>(g_malloc(m_size)));
        g_input_stream_read_all_async(
            g_io_stream_get_input_stream(G_IO_STREAM(m_connection)), m_buffer.get(), m_size,
            G_PRIORITY_DEFAULT, m_cancellable,
            [](GObject* stream, GAsyncResult* result, gpointer self) {
                static_cast<gio_reader*>(self)->take(G_INPUT_STREAM(stream), result);
            },
            this);
    }

    void take(GInputStream* stream, GAsyncResult* result) {
        gsize size = 0;
        if (!g_input_stream_read_all_finish(stream, result, &size, nullptr) || size != m_size) {
            m_over = true;
            return;
        }
        ++requests;
        ask();
    }

    gsize m_size;
    GSocketConnection* m_connection;
    GCancellable* m_cancellable = g_cancellable_new();
    bool m_over = false;
    g_buffer m_buffer;
};

class uv_reader {
public:
    uv_reader(int fd, gsize size) : m_size(size) {
        uv_loop_init(&m_loop);
        uv_tcp_init(&m_loop, &m_connection);
        uv_tcp_open(&m_connection, fd);
        m_connection.data = this;
        begin_request();
        uv_read_start(
            stream(),
            [](uv_handle_t* handle, size_t, uv_buf_t* buffer) {
                *buffer = static_cast<uv_reader*>(handle->data)->missing_part();
            },
            [](uv_stream_t* stream, ssize_t count, const uv_buf_t*) {
                static_cast<uv_reader*>(stream->data)->take(count);
            });
    }
    ~uv_reader() {
        uv_close(reinterpret_cast<uv_handle_t*>(&m_connection), nullptr);
        uv_run(&m_loop, UV_RUN_DEFAULT);
        uv_loop_close(&m_loop);
    }
    uv_reader(const uv_reader&) = delete;
    uv_reader& operator=(const uv_reader&) = delete;

    void run_once() { uv_run(&m_loop, UV_RUN_ONCE); }
    bool is_cut() const { return m_is_cut; }
    gsize requests = 0;

private:
    uv_stream_t* stream() { return reinterpret_cast<uv_stream_t*>(&m_connection); }

    void begin_request() {
        m_received = 0;
        m_buffer.reset();
        m_buffer.reset(static_cast<char*>(g_malloc(m_size)));
    }

    uv_buf_t missing_part() {
        return uv_buf_init(m_buffer.get() + m_received,
                           static_cast<unsigned int>(m_size - m_received));
    }

    void take(ssize_t count) {
        if (count < 0) {
            uv_read_stop(stream());
            m_is_cut = true;
            return;
        }
        m_received += static_cast<gsize>(count);
        if (m_received == m_size) {
            ++requests;
            begin_request();
        }
    }

    uv_loop_t m_loop;
    uv_tcp_t m_connection;
    gsize m_size;
    gsize m_received = 0;
    bool m_is_cut = false;
    g_buffer m_buffer;
};

template <typename Reader>
void read_in_main_loop(benchmark::State& state, gsize size) {
    socket_peer peer = socket_peer::streaming();
    Reader reader(peer.release(), size);
    for (auto _ : state) {
        const gsize before = reader.requests;
        while (reader.requests == before) {
            g_main_context_iteration(nullptr, TRUE);
        }
    }
}

template <gsize Size>
void library(benchmark::State& state) {
    read_in_main_loop<library_reader>(state, Size);
    has_ratio_limit(state, Size == 64 << 10 ? "0.95" : "1.08");
}

template <gsize Size>
void bare_channel(benchmark::State& state) {
    read_in_main_loop<channel_reader>(state, Size);
    is_baseline(state);
}

template <gsize Size>
void socket_connection(benchmark::State& state) {
    read_in_main_loop<gio_reader>(state, Size);
}

template <gsize Size>
void libuv(benchmark::State& state) {
    socket_peer peer = socket_peer::streaming();
    uv_reader reader(peer.release(), Size);
    gsize wanted = 0;
    for (auto _ : state) {
        // One turn of its loop may have taken many.
        ++wanted;
        while (reader.requests < wanted && !reader.is_cut()) {
            reader.run_once();
        }
        if (reader.is_cut()) {
            state.SkipWithError("The peer is gone");
            break;
        }
    }
}

template <gsize Size>
void poll_loop(benchmark::State& state) {
    const socket_peer peer = socket_peer::streaming();
    for (auto _ : state) {
        const g_buffer buffer(static_cast<char*>(g_malloc(Size)));
        for (gsize received = 0; received < Size;) {
            pollfd readable = {peer.fd(), POLLIN, 0};
            poll(&readable, 1, -1);
            const ssize_t count = recv(peer.fd(), buffer.get() + received, Size - received, 0);
            if (count <= 0) {
                state.SkipWithError("The peer is gone");
                break;
            }
            received += static_cast<gsize>(count);
        }
    }
}

constexpr gsize small = 64 << 10;
constexpr gsize large = 1 << 20;

BENCHMARK(library<small>)->Name("Stream in requests of 64 KiB/vask_socket")->UseRealTime();
BENCHMARK(bare_channel<small>)->Name("Stream in requests of 64 KiB/bare GIOChannel")->UseRealTime();
BENCHMARK(socket_connection<small>)
    ->Name("Stream in requests of 64 KiB/GSocketConnection")
    ->UseRealTime();
BENCHMARK(libuv<small>)->Name("Stream in requests of 64 KiB/libuv")->UseRealTime();
BENCHMARK(poll_loop<small>)->Name("Stream in requests of 64 KiB/loop of poll")->UseRealTime();
BENCHMARK(library<large>)->Name("Stream in requests of 1 MiB/vask_socket")->UseRealTime();
BENCHMARK(bare_channel<large>)->Name("Stream in requests of 1 MiB/bare GIOChannel")->UseRealTime();
BENCHMARK(socket_connection<large>)
    ->Name("Stream in requests of 1 MiB/GSocketConnection")
    ->UseRealTime();
BENCHMARK(libuv<large>)->Name("Stream in requests of 1 MiB/libuv")->UseRealTime();
BENCHMARK(poll_loop<large>)->Name("Stream in requests of 1 MiB/loop of poll")->UseRealTime();

}  // namespace
