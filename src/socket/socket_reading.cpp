// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// How a read request ends: the watch no longer serves it, its time-out is gone and their ids are
// cleared before the handler is called, because the handler may set the next request or delete the
// socket. After read_done() nothing of the object is touched.

#include <errno.h>

#include <utility>

#include "foundation/log_place.h"
#include "socket/socket_descriptor.h"
#include "socket/socket_inside.h"
#include "socket/source_unit.h"
#include "socket/text_channel.h"

namespace {

void log_pending_error(const vask_socket& socket, int error) {
    socket.vask_p(VASK_P_DBG, VASK_AT("An earlier datagram has failed: %d"), error);
}

// A descriptor that somebody has closed is reported whether one waits for it or not, and so is a
// pending error of a datagram, until it is taken.
GIOCondition read_condition(vask_sock_proto proto) {
    const int condition = G_IO_IN | G_IO_HUP | G_IO_NVAL;
    return static_cast<GIOCondition>(proto == VASK_SOCK_UDP ? condition | G_IO_ERR : condition);
}

}  // namespace

bool vask_socket_inside::open_channel(const char* signature) {
    if (m_socket.peer_sock == 0) {
        m_socket.vask_p(VASK_P_BUG, VASK_AT("%s: peer_sock == 0"), signature);
        return false;
    }
    if (!create_channel()) {
        return true;
    }
    gerror_holder error;
    const GIOStatus status = configure_channel(error.out());
    if (status != G_IO_STATUS_NORMAL) {
        m_socket.vask_p(VASK_P_ERR,
                        VASK_AT("%s: Failed to call g_io_channel_set_encoding(): %d: %s"),
                        signature, status, reason_of(error));
        return false;
    }
    return true;
}

void vask_socket_inside::watch() {
    GIOChannel* const channel = m_socket.peer_ch;
    if (m_socket.m_proto == VASK_SOCK_TCP && g_io_channel_get_buffered(channel)) {
        keep_characters_whole(channel);
    }
    const GIOCondition condition = read_condition(m_socket.m_proto);
    m_socket.m_read_watch_id =
        read_watch::suits(channel)
            ? m_watch.add(channel, condition)
            : g_io_add_watch(channel, condition, vask_socket::_watch_read, &m_socket);
}

gboolean vask_socket_inside::receive_all(GIOChannel* channel, GIOCondition condition) {
    vask_sock_read_context& request = m_socket.m_read_context;
    if (!request.reading) {
        return FALSE;
    }
    do {
        int status = G_IO_STATUS_NORMAL;
        const outcome result = receive(channel, condition, status);
        if (result == outcome::nothing_yet) {
            return TRUE;
        }
        if (result == outcome::failed) {
            end_request(status);
            return FALSE;
        }
        if (request.received >= request.least_size) {
            request.complete = true;
            end_request(G_IO_STATUS_NORMAL);
            return FALSE;
        }
    } while (has_read_ahead(channel));
    m_socket.set_timeout_cb();
    return TRUE;
}

vask_socket_inside::outcome vask_socket_inside::receive(GIOChannel* channel, GIOCondition condition,
                                                        int& status) {
    vask_sock_read_context& request = m_socket.m_read_context;
    const gsize room = request.read_req_size - request.received;
    gsize count = 0;
    const outcome result = m_socket.m_proto == VASK_SOCK_UDP
                               ? receive_datagram(condition, room, count, status)
                               : receive_stream(channel, room, count, status);
    request.received += count;
    return result;
}

vask_socket_inside::outcome vask_socket_inside::receive_stream(GIOChannel* channel, gsize room,
                                                               gsize& count, int& status) {
    gerror_holder error;
    char* const buffer = m_socket.m_read_context.curr_buf_ptr();
    status = g_io_channel_read_chars(channel, buffer, room, &count, error.out());
    const bool decoding = g_io_channel_get_buffered(channel);
    if (decoding && status == G_IO_STATUS_AGAIN) {
        // A part of a character.
        m_socket.set_timeout_cb();
        return outcome::nothing_yet;
    }
    const bool next_does_not_fit =
        decoding && status == G_IO_STATUS_NORMAL && count == 0 && room > 0;
    if (status == G_IO_STATUS_NORMAL && !next_does_not_fit) {
        return outcome::received;
    }
    if (status == G_IO_STATUS_ERROR && has_ended_whole(channel)) {
        status = G_IO_STATUS_EOF;
    }
    if (status != G_IO_STATUS_EOF) {
        m_socket.vask_p(VASK_P_ERR, VASK_AT("Failed to call g_io_channel_read_chars: %d: %d: %s"),
                        static_cast<int>(room), status, reason_of(error));
    }
    if (next_does_not_fit) {
        status = G_IO_STATUS_ERROR;
    }
    return outcome::failed;
}

vask_socket_inside::outcome vask_socket_inside::receive_datagram(GIOCondition condition, gsize room,
                                                                 gsize& count, int& status) {
    if (condition & G_IO_ERR) {
        log_pending_error(m_socket, take_pending_error(m_socket.peer_sock));
        if (!(condition & (G_IO_IN | G_IO_HUP))) {
            return outcome::nothing_yet;
        }
    }
    // A datagram with a wrong checksum is announced, but not there.
    char* const buffer = m_socket.m_read_context.curr_buf_ptr();
    const ssize_t length = receive_from(m_socket.peer_sock, buffer, room, m_socket.m_peer_addr);
    if (length >= 0) {
        count = static_cast<gsize>(length);
        return outcome::received;
    }
    if (errno == EAGAIN) {
        return outcome::nothing_yet;
    }
    if (errno == ECONNREFUSED) {
        log_pending_error(m_socket, errno);
        return outcome::nothing_yet;
    }
    m_socket.vask_p(VASK_P_ERR, VASK_AT("Failed to call recvfrom(): %d"), errno);
    status = G_IO_STATUS_ERROR;
    return outcome::failed;
}

void vask_socket_inside::end_request(int status) {
    m_socket.m_read_context.status = status;
    forget_request();
    m_socket.remove_timeout_cb();
    return_to_former_peer();
    m_socket.read_done();
}

void vask_socket_inside::forget_request() {
    const guint id = std::exchange(m_socket.m_read_watch_id, 0);
    if (id != 0 && !m_watch.release(id)) {
        g_source_remove(id);
    }
    m_socket.m_read_context.reading = false;
}
