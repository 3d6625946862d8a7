// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "socket/peer_link.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "socket/sigpipe_guard.h"
#include "socket/socket_inside.h"

namespace {

// The last reference may flush as well.
void release_channel(GIOChannel* channel) {
    const sigpipe_guard guard(channel);
    g_io_channel_unref(channel);
}

}  // namespace

peer_link::peer_link(int fd) : m_fd(fd), m_channel(nullptr), m_is_claimed(true) {}

peer_link::~peer_link() {
    if (m_channel != nullptr) {
        // Then the descriptor ends with the channel.
        m_is_claimed = m_is_claimed && !g_io_channel_get_close_on_unref(m_channel);
        release_channel(m_channel);
    }
    if (m_is_claimed) {
        ::close(m_fd);
    }
}

void peer_link::set_channel(GIOChannel* channel) {
    GIOChannel* const former = std::exchange(m_channel, channel);
    claim();
    if (former == nullptr) {
        return;
    }
    for (vask_socket_inside* socket : m_sockets) {
        socket->replace_channel(former, channel);
    }
    release_channel(former);
}

void peer_link::join(vask_socket_inside& socket) {
    if (!m_sockets.empty()) {
        claim();
    }
    m_sockets.push_back(&socket);
}

void peer_link::leave(vask_socket_inside& socket) {
    m_sockets.erase(std::remove(m_sockets.begin(), m_sockets.end(), &socket), m_sockets.end());
}

void peer_link::offer() {
    if (m_channel == nullptr && m_sockets.size() <= 1) {
        m_is_claimed = false;
    }
}

void peer_link::close(bool flush) {
    m_is_claimed = false;
    if (m_channel != nullptr) {
        const sigpipe_guard guard(m_channel);
        // This closes the descriptor, whatever becomes of the flush.
        g_io_channel_shutdown(m_channel, flush, nullptr);
    } else {
        ::close(m_fd);
    }
    const std::vector<vask_socket_inside*> sockets = std::move(m_sockets);
    m_sockets.clear();
    for (vask_socket_inside* socket : sockets) {
        socket->forget_peer(*this);
    }
}
