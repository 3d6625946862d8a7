// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_socket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <limits.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "foundation/c_border.h"
#include "foundation/exec_call.h"
#include "foundation/glib_handles.h"
#include "foundation/log_place.h"
#include "socket/socket_descriptor.h"
#include "socket/socket_inside.h"
#include "socket/source_unit.h"

namespace {

constexpr int longest_timeout_sec = INT_MAX / 1000;

// 0 is somebody else's descriptor.
bool has_peer(int fd) {
    if (fd == 0) {
        errno = EBADF;
    }
    return fd != 0;
}

}  // namespace

vask_socket::vask_socket(vask_sock_proto proto, int port, const char* encoding)
    : m_port(port),
      m_proto(proto),
      m_encoding(encoding),
      peer_sock(0),
      m_peer_addr(),
      m_read_watch_id(0),
      peer_ch(nullptr),
      m_read_done_handler(),
      m_saved_data(nullptr),
      m_inside(std::make_unique<vask_socket_inside>(*this)) {}

vask_socket::vask_socket(vask_socket& other)
    : vask_exec(),
      m_port(other.m_port),
      m_proto(other.m_proto),
      m_encoding(other.m_encoding),
      peer_sock(other.peer_sock),
      m_peer_addr(other.m_peer_addr),
      m_read_watch_id(0),
      peer_ch(nullptr),
      m_read_done_handler(),
      m_saved_data(nullptr),
      m_inside(std::make_unique<vask_socket_inside>(*this)) {
    m_inside->share(*other.m_inside);
}

vask_socket::~vask_socket() {
    remove_timeout_cb();
    m_inside->forget_request();
    m_inside->return_to_former_peer();
    if (peer_ch != nullptr) {
        close_peer_sock(TRUE);
    }
}

bool vask_socket::set_read_request(vask_obj_exec_info handler, gsize size, gsize least,
                                   int timeout) {
    const char* const signature =
        "bool vask_socket::set_read_request(vask_obj_exec_info, gsize, gsize, int)";
    vask_p(VASK_P_DBG, VASK_AT("%s"), signature);
    if (m_read_context.reading) {
        vask_p(VASK_P_BUG, VASK_AT("%s: read_req_size: %d. Previous request may not be finished."),
               signature, static_cast<int>(m_read_context.read_req_size));
        return false;
    }
    if (peer_ch == nullptr && !m_inside->open_channel(signature)) {
        return false;
    }
    if (!m_read_context.reset(size, least)) {
        vask_p(VASK_P_ERR, VASK_AT("%s: Failed to allocate memory: %d"), signature,
               static_cast<int>(size));
        return false;
    }
    // Disarm the time-out of a request that close_peer_sock() ended.
    remove_timeout_cb();

    m_read_context.reading = true;
    m_read_done_handler = handler;
    m_saved_data = handler.data;
    m_inside->watch();
    m_read_context.timeout = timeout;
    set_timeout_cb();
    return true;
}

gboolean vask_socket::_watch_read(GIOChannel* channel, GIOCondition condition, void* data) {
    const auto read = [&] {
        return static_cast<vask_socket*>(data)->watch_read(channel, condition);
    };
    return call_for_c("vask_socket::read_done()", gboolean(FALSE), read);
}

gboolean vask_socket::watch_read(GIOChannel* channel, GIOCondition condition) {
    return m_inside->receive_all(channel, condition);
}

void vask_socket::read_done() {
    const vask_obj_exec_info handler = m_read_done_handler;
    m_read_done_handler.data = this;
    if (is_callable(handler)) {
        call_member(handler.obj, handler.func, this);
    }
}

void vask_socket::set_timeout_cb() {
    if (m_read_context.timeout <= 0) {
        return;
    }
    remove_timeout_cb();
    const int seconds = std::min(m_read_context.timeout, longest_timeout_sec);
    m_read_context.timer_id = add_timer_exec_func(
        seconds * 1000, static_cast<vask_exec_func>(&vask_socket::cb_timeout), nullptr, this);
}

void vask_socket::remove_timeout_cb() {
    if (m_read_context.timer_id != 0) {
        g_source_remove(std::exchange(m_read_context.timer_id, 0));
    }
}

void vask_socket::cb_timeout(void*) {
    m_inside->end_request(G_IO_STATUS_ERROR);
}

bool vask_socket::write(const gchar* buf, gssize count) {
    if (peer_ch == nullptr) {
        vask_p(VASK_P_BUG, VASK_AT("%s: peer_ch == NULL"),
               "bool vask_socket::write(const gchar*, gssize)");
        return false;
    }
    gerror_holder error;
    const GIOStatus status = m_inside->write_all(buf, count, error.out());
    if (status == G_IO_STATUS_NORMAL) {
        return true;
    }
    vask_p(VASK_P_ERR, VASK_AT("Failed to call g_io_channel_write_chars: %d: %d: %s"),
           static_cast<int>(count), status, reason_of(error));
    close_peer_sock(FALSE);
    return false;
}

void vask_socket::close_peer_sock(gboolean flush) {
    vask_p(VASK_P_DBG, VASK_AT("%s"), "void vask_socket::close_peer_sock(gboolean)");
    m_inside->close(flush);
}

std::string vask_socket::get_peer_ip_addr() {
    if (peer_sock == 0) {
        vask_p(VASK_P_BUG, VASK_AT("%s: peer_sock is not ready"),
               "std::string vask_socket::get_peer_ip_addr()");
        return std::string();
    }
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &m_peer_addr.sin_addr, text, sizeof text);
    return text;
}

int vask_socket::get_peer_port() {
    if (peer_sock == 0) {
        vask_p(VASK_P_BUG, VASK_AT("%s: peer_sock is not ready"),
               "int vask_socket::get_peer_port()");
        return 0;
    }
    return m_peer_addr.sin_port;
}

bool vask_socket::set_broadcast_option() {
    return has_peer(peer_sock) && enable_socket_option(peer_sock, SO_BROADCAST);
}

bool vask_socket::make_connection() {
    if (!has_peer(peer_sock) || !connect_to(peer_sock, m_peer_addr)) {
        return false;
    }
    m_inside->create_channel();
    return true;
}

void* vask_socket::get_saved_data() const {
    return m_saved_data;
}
