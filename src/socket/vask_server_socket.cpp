// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "foundation/c_border.h"
#include "foundation/exec_call.h"
#include "foundation/life_mark.h"
#include "foundation/log_place.h"
#include "foundation/scope_exit.h"
#include "socket/socket_descriptor.h"
#include "socket/socket_inside.h"
#include "socket/source_unit.h"
#include "vask_socket.h"

// How accepting goes on: the acceptor's watch id is that of the one watch on the listening
// socket, as long as GLib has it. m_accept_watch_id is its id as the object is said to know it, and
// is cleared when the watch is dispatched, also when it is kept. A handler may delete the server or
// throw: what comes after the call happens in a guard, which asks a life_mark before it touches
// anything.
//
// How two connections stand side by side: one that comes while a request of the server is pending
// becomes the peer (peer_sock, the address), but the channel stays that of the former one, with the
// request, its answer and those that follow, until one of them ends without completing. Only while
// accepted() runs is the channel that of the new connection, so none.

namespace {

constexpr int backlog = 1;
constexpr int pause_msec = 100;

// A listening socket that somebody has closed is reported whether one waits for it or not.
constexpr auto accept_condition = static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_NVAL);

// These go by with one connection. While any other lasts, the listening socket stays ready.
bool belongs_to_one_connection(int error) {
    switch (error) {
        case EAGAIN:
        case ECONNABORTED:
        case EHOSTDOWN:
        case EHOSTUNREACH:
        case ENETDOWN:
        case ENETUNREACH:
        case ENONET:
        case ENOPROTOOPT:
        case EOPNOTSUPP:
        case EPROTO:
            return true;
        default:
            return false;
    }
}

}  // namespace

// The listening socket at work.
class vask_server_socket::acceptor : public vask_exec {
public:
    explicit acceptor(vask_server_socket& server) : m_server(server) {}

    // From now on this closes the listening socket, until hand_over().
    void own_sock() { m_owns_sock = true; }
    void hand_over() { m_owns_sock = false; }

    void watch();
    gboolean go_on(bool wanted, bool error_may_last);
    void stop_accepting();
    void stop_service();

private:
    void resume_accepting(void* unused);

    vask_server_socket& m_server;

    // The watch on the listening socket as long as GLib has it; else 0.
    unsigned int m_watch_id = 0;

    // Armed while accepting pauses, and there is no watch then; else 0.
    unsigned int m_pause_timer_id = 0;

    bool m_owns_sock = false;
};

vask_server_socket::vask_server_socket(vask_sock_proto proto, int port)
    : vask_socket(proto, port, nullptr),
      m_sock(0),
      sock_ch(nullptr),
      m_server_addr(),
      m_accepted_handler(),
      m_accept_watch_id(0),
      m_acceptor(std::make_unique<acceptor>(*this)) {
    obj_name = "vask_server_socket::vask_server_socket(vask_sock_proto, int)";
}

vask_server_socket::~vask_server_socket() {
    if (sock_ch != nullptr) {
        // What GLib says when the channel, which is no object, is handed to g_object_unref(). The
        // call itself would read the channel's reference count as a pointer.
        g_return_if_fail_warning("GLib-GObject", "g_object_unref", "G_IS_OBJECT (object)");
    }
    m_acceptor->stop_service();
}

void vask_server_socket::acceptor::stop_service() {
    stop_accepting();
    if (m_server.sock_ch != nullptr) {
        g_io_channel_unref(std::exchange(m_server.sock_ch, nullptr));
    }
    if (std::exchange(m_owns_sock, false)) {
        close(m_server.m_sock);
    }
    m_server.m_sock = 0;
}

void vask_server_socket::acceptor::stop_accepting() {
    m_server.m_accept_watch_id = 0;
    if (m_watch_id != 0) {
        g_source_remove(std::exchange(m_watch_id, 0));
    }
    if (m_pause_timer_id != 0) {
        g_source_remove(std::exchange(m_pause_timer_id, 0));
    }
}

void vask_server_socket::set_accepted_handler(vask_obj_exec_info handler) {
    m_accepted_handler = handler;
}

bool vask_server_socket::start_service() {
    const char* const signature = "bool vask_server_socket::start_service()";
    vask_p(VASK_P_DBG, VASK_AT("%s"), signature);
    if (m_proto != VASK_SOCK_TCP && m_proto != VASK_SOCK_UDP) {
        vask_p(VASK_P_BUG, VASK_AT("Unkown proto: %d"), m_proto);
        return false;
    }
    m_acceptor->stop_service();
    const int fd = open_ipv4_socket(m_proto == VASK_SOCK_TCP ? SOCK_STREAM : SOCK_DGRAM);
    if (fd == -1) {
        vask_p(VASK_P_ERR, VASK_AT("%s: Failed to call socket(): %d"), signature, errno);
        return false;
    }
    m_sock = fd;
    m_acceptor->own_sock();
    if (!enable_socket_option(m_sock, SO_REUSEADDR)) {
        vask_p(VASK_P_ERR, VASK_AT("%s: Failed to call setsockopt(): %d"), signature, errno);
        return false;
    }
    m_server_addr = sockaddr_in();
    m_server_addr.sin_family = AF_INET;
    m_server_addr.sin_port = htons(static_cast<in_port_t>(m_port));
    m_server_addr.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(m_sock, reinterpret_cast<sockaddr*>(&m_server_addr), sizeof m_server_addr) != 0) {
        vask_p(VASK_P_ERR, VASK_AT("%s: Failed to call bind(): %d"), signature, errno);
        return false;
    }
    if (m_proto == VASK_SOCK_UDP) {
        m_acceptor->hand_over();
        vask_socket_inside::of(*this).turn_to(m_sock);
        // With the defaults of GLib: kept.
        vask_socket_inside::of(*this).create_channel();
        return true;
    }
    never_wait_for_connections(m_sock);
    if (listen(m_sock, backlog) != 0) {
        vask_p(VASK_P_ERR, VASK_AT("%s: Failed to call listen(): %d"), signature, errno);
        return false;
    }
    sock_ch = g_io_channel_unix_new(m_sock);
    set_watch_accepted();
    return true;
}

void vask_server_socket::set_watch_accepted() {
    if (sock_ch == nullptr) {
        vask_p(VASK_P_BUG, VASK_AT("%s: sock_ch == NULL"),
               "void vask_server_socket::set_watch_accepted()");
        return;
    }
    m_acceptor->watch();
}

void vask_server_socket::acceptor::watch() {
    if (m_watch_id == 0) {
        stop_accepting();
        m_watch_id = g_io_add_watch(m_server.sock_ch, accept_condition, _watch_accepted, &m_server);
    }
    m_server.m_accept_watch_id = m_watch_id;
}

void vask_server_socket::acceptor::resume_accepting(void*) {
    m_pause_timer_id = 0;
    m_server.set_watch_accepted();
}

gboolean vask_server_socket::_watch_accepted(GIOChannel* channel, GIOCondition condition,
                                             void* data) {
    const auto accept = [&] {
        return static_cast<vask_server_socket*>(data)->watch_accepted(channel, condition);
    };
    // Where accepting does not go on, the watch has been removed.
    return call_for_c("vask_server_socket::accepted()", gboolean(TRUE), accept);
}

gboolean vask_server_socket::watch_accepted(GIOChannel* channel, GIOCondition condition) {
    const char* const signature =
        "gboolean vask_server_socket::watch_accepted(GIOChannel*, GIOCondition)";
    vask_p(VASK_P_DBG, VASK_AT("%s"), signature);
    m_accept_watch_id = 0;

    sockaddr_in peer = {};
    const int fd = accept_connection(m_sock, peer);
    const bool ok = fd != -1;
    const bool error_may_last = !ok && !belongs_to_one_connection(errno);
    if (ok) {
        m_peer_addr = peer;
        vask_socket_inside& inside = vask_socket_inside::of(*this);
        inside.turn_to_next(fd);
        // An override of accepted() may keep it for itself.
        inside.link()->offer();
    } else {
        vask_p(VASK_P_ERR, VASK_AT("%s: Failed to call accept(): %d"), signature, errno);
    }

    const life_mark life(*this);
    // A handler that throws has not asked for an end.
    bool wanted = true;
    gboolean goes_on = FALSE;
    {
        const scope_exit settle([&] {
            if (!life.is_over()) {
                goes_on = m_acceptor->go_on(wanted, error_may_last);
            }
        });
        wanted = accepted(channel, condition, ok);
    }
    return goes_on;
}

gboolean vask_server_socket::acceptor::go_on(bool wanted, bool error_may_last) {
    vask_socket_inside::of(m_server).return_to_former_peer();
    // A request of the server may have ended meanwhile, and asked for the watch again.
    if (!wanted && m_server.m_accept_watch_id == 0) {
        stop_accepting();
        return FALSE;
    }
    if (error_may_last) {
        stop_accepting();
        m_pause_timer_id = add_timer_exec_func(
            pause_msec, static_cast<vask_exec_func>(&acceptor::resume_accepting), nullptr);
        return FALSE;
    }
    return TRUE;
}

gboolean vask_server_socket::accepted(GIOChannel*, GIOCondition, bool ok) {
    peer_link* const link = vask_socket_inside::of(*this).link();
    if (ok && link != nullptr) {
        link->claim();
    }
    // Each complains when there is no peer, and in this order.
    const std::string ip_addr = get_peer_ip_addr();
    const int port = get_peer_port();
    vask_p(VASK_P_DBG, VASK_AT("%s: IP: %s, port: %d"),
           "virtual gboolean vask_server_socket::accepted(GIOChannel*, GIOCondition, bool)",
           ip_addr.c_str(), port);
    if (!is_callable(m_accepted_handler)) {
        vask_p(VASK_P_BUG, VASK_AT("accepted_cb is invalid"));
        return FALSE;
    }
    vask_accepted_info info = {ok ? new vask_socket(*this) : nullptr, true};
    m_accepted_handler.data = &info;
    const vask_obj_exec_info handler = m_accepted_handler;
    const life_mark life(*this);
    const scope_exit forget_info([&] {
        // It may have set another handler.
        if (!life.is_over() && m_accepted_handler.data == &info) {
            m_accepted_handler.data = nullptr;
        }
    });
    call_member(handler.obj, handler.func, handler.data);
    return info.keep_accepting;
}

void vask_server_socket::read_done() {
    const bool complete = m_read_context.complete;
    const life_mark life(*this);
    const scope_exit accept_again([&] {
        if (complete || life.is_over()) {
            return;
        }
        set_watch_accepted();
        if (!m_read_context.reading) {
            vask_socket_inside::of(*this).leave_former_peer();
        }
    });
    vask_socket::read_done();
}
