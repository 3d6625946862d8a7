#include "socket/vask_peer_link.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "socket/sigpipe_guard.h"
#include "vask_socket.h"

namespace {

// The last reference may flush as well.
void release_channel(GIOChannel* channel) {
    const sigpipe_guard guard(channel);
    g_io_channel_unref(channel);
}

}  // namespace

vask_peer_link::vask_peer_link(int fd) : m_fd(fd), m_channel(nullptr), m_is_ours(true) {}

vask_peer_link::~vask_peer_link() {
    if (m_channel != nullptr) {
        // Then the descriptor ends with the channel.
        m_is_ours = m_is_ours && !g_io_channel_get_close_on_unref(m_channel);
        release_channel(m_channel);
    }
    if (m_is_ours) {
        ::close(m_fd);
    }
}

void vask_peer_link::set_channel(GIOChannel* channel) {
    GIOChannel* const former = std::exchange(m_channel, channel);
    use();
    if (former == nullptr) {
        return;
    }
    for (vask_socket* socket : m_sockets) {
        if (socket->peer_ch == former) {
            socket->peer_ch = channel;
        }
    }
    release_channel(former);
}

void vask_peer_link::join(vask_socket* socket) {
    if (!m_sockets.empty()) {
        use();
    }
    m_sockets.push_back(socket);
}

void vask_peer_link::leave(vask_socket* socket) {
    m_sockets.erase(std::remove(m_sockets.begin(), m_sockets.end(), socket), m_sockets.end());
}

void vask_peer_link::close(bool flush) {
    m_is_ours = false;
    if (m_channel != nullptr) {
        const sigpipe_guard guard(m_channel);
        // This closes the descriptor, whatever becomes of the flush.
        g_io_channel_shutdown(m_channel, flush, nullptr);
    } else {
        ::close(m_fd);
    }
    const std::vector<vask_socket*> sockets = std::move(m_sockets);
    m_sockets.clear();
    for (vask_socket* socket : sockets) {
        socket->forget_peer(*this);
    }
}
