// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <arpa/inet.h>
#include <errno.h>
#include <sys/socket.h>

#include "foundation/log_place.h"
#include "socket/socket_descriptor.h"
#include "socket/socket_inside.h"
#include "socket/source_unit.h"
#include "vask_socket.h"

namespace {

const char broadcast_address[] = "255.255.255.255";

}  // namespace

vask_client_socket::vask_client_socket(const char* addr, vask_sock_proto proto, int port,
                                       const char* encoding)
    : vask_socket(proto, port, encoding), m_peer_addr_text(addr != nullptr ? addr : "") {
    obj_name =
        "vask_client_socket::vask_client_socket(const char*, vask_sock_proto, int, const gchar*)";
}

vask_client_socket::~vask_client_socket() {}

bool vask_client_socket::start_connect() {
    const char* const signature = "bool vask_client_socket::start_connect()";
    if (m_proto != VASK_SOCK_TCP && m_proto != VASK_SOCK_UDP) {
        vask_p(VASK_P_BUG, VASK_AT("Unkown proto: %d"), m_proto);
        return false;
    }
    const int fd = open_ipv4_socket(m_proto == VASK_SOCK_TCP ? SOCK_STREAM : SOCK_DGRAM);
    if (fd == -1) {
        vask_p(VASK_P_ERR, VASK_AT("%s: Failed to call socket(): %d"), signature, errno);
        return false;
    }
    vask_socket_inside& inside = vask_socket_inside::of(*this);
    inside.turn_to(fd);
    m_peer_addr = sockaddr_in();
    m_peer_addr.sin_family = AF_INET;
    m_peer_addr.sin_port = htons(static_cast<in_port_t>(m_port));
    m_peer_addr.sin_addr.s_addr = inet_addr(m_peer_addr_text.c_str());

    if (m_peer_addr_text == broadcast_address && !set_broadcast_option()) {
        vask_p(VASK_P_ERR, VASK_AT("Failed to call setsockopt(): %d"), errno);
        return false;
    }
    if (!make_connection()) {
        vask_p(VASK_P_ERR, VASK_AT("%s: Failed to call connect(): %d"), signature, errno);
        return false;
    }
    gerror_holder error;
    const GIOStatus status = inside.configure_channel(error.out());
    if (status != G_IO_STATUS_NORMAL) {
        vask_p(VASK_P_ERR, VASK_AT("Failed to call g_io_channel_set_encoding(): %d: %s"), status,
               reason_of(error));
        return false;
    }
    return true;
}
