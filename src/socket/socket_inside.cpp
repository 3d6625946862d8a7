// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "socket/socket_inside.h"

#include <string.h>

#include <utility>

#include "socket/sigpipe_guard.h"
#include "socket/socket_channel.h"

namespace {

// Room for any datagram, so that a buffered one leaves in one piece.
constexpr gsize datagram_buffer_size = 1 << 17;

}  // namespace

vask_socket_inside::vask_socket_inside(vask_socket& socket) : m_socket(socket), m_watch(socket) {}

vask_socket_inside::~vask_socket_inside() {
    leave_former_peer();
    stand_on(nullptr);
}

void vask_socket_inside::stand_on(std::shared_ptr<peer_link> next) {
    if (m_link) {
        m_link->leave(*this);
        if (m_socket.peer_sock == 0 && m_link.use_count() == 1) {
            m_link->give_away();
        }
    }
    m_link = std::move(next);
    if (m_link) {
        m_link->join(*this);
    }
}

void vask_socket_inside::follow_members() {
    const int fd = m_socket.peer_sock;
    if (m_link ? m_link->fd() != fd : fd != 0) {
        // The channel of the former descriptor may end with the link.
        if (m_link && m_socket.peer_ch == m_link->channel()) {
            m_socket.peer_ch = nullptr;
        }
        stand_on(fd != 0 ? std::make_shared<peer_link>(fd) : nullptr);
    }
    GIOChannel* const channel = m_socket.peer_ch;
    if (m_link && channel != nullptr && m_link->channel() != channel && !serves_former_peer()) {
        m_link->set_channel(channel);
    }
}

void vask_socket_inside::turn_to(int fd) {
    forget_request();
    turn_to_next(fd);
}

void vask_socket_inside::turn_to_next(int fd) {
    if (!m_socket.m_read_context.reading) {
        leave_former_peer();
    } else if (!m_former_link) {
        follow_members();
        m_former_link = std::move(m_link);
    }
    stand_on(nullptr);
    m_socket.peer_ch = nullptr;
    m_socket.peer_sock = fd;
    follow_members();
}

bool vask_socket_inside::serves_former_peer() const {
    return m_former_link && m_socket.peer_ch != nullptr &&
           m_socket.peer_ch == m_former_link->channel();
}

void vask_socket_inside::return_to_former_peer() {
    if (m_former_link) {
        follow_members();
        m_socket.peer_ch = m_former_link->channel();
    }
}

void vask_socket_inside::leave_former_peer() {
    if (m_former_link) {
        if (serves_former_peer()) {
            m_socket.peer_ch = nullptr;
        }
        m_former_link->leave(*this);
        m_former_link.reset();
    }
}

void vask_socket_inside::share(vask_socket_inside& other) {
    other.follow_members();
    m_socket.peer_ch = other.serves_former_peer() ? nullptr : other.m_socket.peer_ch;
    stand_on(other.m_link);
}

void vask_socket_inside::close(bool flush) {
    follow_members();
    const std::shared_ptr<peer_link> closed = serves_former_peer() ? m_former_link : m_link;
    if (closed) {
        closed->close(flush);
    }
}

bool vask_socket_inside::create_channel() {
    follow_members();
    const bool is_new = m_link->channel() == nullptr;
    if (is_new) {
        m_link->set_channel(new_socket_channel(m_socket.peer_sock));
    }
    m_socket.peer_ch = m_link->channel();
    return is_new;
}

GIOStatus vask_socket_inside::configure_channel(GError** error) {
    GIOChannel* const channel = m_socket.peer_ch;
    const GIOStatus status = g_io_channel_set_encoding(channel, m_socket.m_encoding, error);
    if (status != G_IO_STATUS_NORMAL) {
        return status;
    }
    if (m_socket.m_encoding == nullptr) {
        g_io_channel_set_buffered(channel, FALSE);
    } else if (m_socket.m_proto == VASK_SOCK_UDP) {
        // GLib buffers all that it encodes.
        g_io_channel_set_buffer_size(channel, datagram_buffer_size);
    }
    return status;
}

GIOStatus vask_socket_inside::write_all(const gchar* buf, gssize count, GError** error) {
    gssize rest = count < 0 && buf != nullptr ? static_cast<gssize>(strlen(buf)) : count;
    GIOStatus status = G_IO_STATUS_NORMAL;
    gsize written = 0;
    const sigpipe_guard guard(m_socket.peer_ch);
    // A signal may cut a write short.
    do {
        status = g_io_channel_write_chars(m_socket.peer_ch, buf, rest, &written, error);
        buf += written;
        rest -= static_cast<gssize>(written);
    } while (status == G_IO_STATUS_NORMAL && written != 0 && rest > 0);
    if (status == G_IO_STATUS_NORMAL && m_socket.m_encoding != nullptr) {
        status = g_io_channel_flush(m_socket.peer_ch, error);
    }
    return status;
}

void vask_socket_inside::replace_channel(GIOChannel* former, GIOChannel* latter) {
    if (m_socket.peer_ch == former) {
        m_socket.peer_ch = latter;
    }
}

void vask_socket_inside::forget_peer(const peer_link& link) {
    const bool is_former = &link == m_former_link.get();
    // While accepted() runs, peer_ch may be that of the connection without the request.
    const peer_link* const kept = is_former ? m_link.get() : m_former_link.get();
    if (kept == nullptr || m_socket.peer_ch != kept->channel()) {
        m_socket.peer_ch = nullptr;
    }
    if (is_former || !m_former_link) {
        forget_request();
        m_watch.remove();
    }
    if (is_former) {
        m_former_link.reset();
    } else {
        m_socket.peer_sock = 0;
        m_link.reset();
    }
}
