// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "socket/socket_channel.h"

#include <errno.h>
#include <sys/socket.h>

namespace {

using socket_call = ssize_t (*)(int fd, void* data, size_t count);

GIOStatus call_socket(socket_call call, GIOChannel* channel, void* data, gsize count, gsize* done,
                      GError** error) {
    const int fd = g_io_channel_unix_get_fd(channel);
    ssize_t result;
    do {
        result = call(fd, data, count);
    } while (result < 0 && errno == EINTR);

    *done = result > 0 ? static_cast<gsize>(result) : 0;
    if (result > 0) {
        return G_IO_STATUS_NORMAL;
    }
    if (result == 0) {
        return count == 0 ? G_IO_STATUS_NORMAL : G_IO_STATUS_EOF;
    }
    if (errno == EAGAIN) {
        return G_IO_STATUS_AGAIN;
    }
    const int code = errno;
    g_set_error_literal(error, G_IO_CHANNEL_ERROR, g_io_channel_error_from_errno(code),
                        g_strerror(code));
    return G_IO_STATUS_ERROR;
}

// The signal that a write to a closed peer raises can be kept away from this thread in two ways: by
// the write itself, or by blocking and taking it, which costs two more system calls for every
// write.
GIOStatus write_without_signal(GIOChannel* channel, const gchar* data, gsize count, gsize* done,
                               GError** error) {
    const auto call = [](int fd, void* bytes, size_t size) {
        return send(fd, bytes, size, MSG_NOSIGNAL);
    };
    return call_socket(call, channel, const_cast<gchar*>(data), count, done, error);
}

// To fill its buffer, a channel reads until it has all that was asked for; and of two sockets that
// watch one connection, the second may find nothing.
GIOStatus read_what_is_there(GIOChannel* channel, gchar* data, gsize count, gsize* done,
                             GError** error) {
    const auto call = [](int fd, void* bytes, size_t size) {
        return recv(fd, bytes, size, MSG_DONTWAIT);
    };
    return call_socket(call, channel, data, count, done, error);
}

}  // namespace

GIOChannel* new_socket_channel(int fd) {
    static GIOFuncs functions;
    GIOChannel* channel = g_io_channel_unix_new(fd);
    if (functions.io_write == nullptr) {
        functions = *channel->funcs;
        functions.io_read = read_what_is_there;
        functions.io_write = write_without_signal;
    }
    channel->funcs = &functions;
    return channel;
}

bool is_socket_channel(const GIOChannel* channel) {
    return channel->funcs->io_write == write_without_signal;
}
