#include "vask_socket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <limits.h>
#include <string.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "foundation/c_border.h"
#include "foundation/exec_call.h"
#include "foundation/glib_handles.h"
#include "foundation/log_place.h"
#include "socket/sigpipe_guard.h"
#include "socket/socket_channel.h"
#include "socket/socket_descriptor.h"
#include "socket/source_unit.h"
#include "socket/text_channel.h"
#include "socket/vask_peer_link.h"

// How a read request ends: its watch and its time-out are gone and their ids cleared before
// anybody is called, because whoever is called may set the next request or delete the socket.
// After read_done() nothing of the object is touched.

namespace {

constexpr int longest_timeout_sec = INT_MAX / 1000;

// Room for any datagram, so that a buffered one leaves in one piece.
constexpr gsize datagram_buffer_size = 1 << 17;

const char* reason_of(const GError* error) {
    return error != nullptr ? error->message : "";
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
      m_saved_data(nullptr) {}

vask_socket::vask_socket(vask_socket& other)
    : vask_exec(),
      m_port(other.m_port),
      m_proto(other.m_proto),
      m_encoding(other.m_encoding),
      peer_sock(other.peer_sock),
      m_peer_addr(other.m_peer_addr),
      m_read_watch_id(0),
      peer_ch(other.serves_former_peer() ? nullptr : other.peer_ch),
      m_read_done_handler(),
      m_saved_data(nullptr) {
    other.join_link();
    m_peer_link = other.m_peer_link;
    if (m_peer_link) {
        m_peer_link->join(this);
    }
}

vask_socket::~vask_socket() {
    remove_timeout_cb();
    forget_request();
    return_to_former_peer();
    if (peer_ch != nullptr) {
        close_peer_sock(TRUE);
    }
    leave_link();
}

void vask_socket::join_link() {
    if (m_peer_link && m_peer_link->fd() != peer_sock) {
        leave_link();
    }
    if (!m_peer_link && peer_sock != 0) {
        m_peer_link = std::make_shared<vask_peer_link>(peer_sock);
        m_peer_link->join(this);
    }
    if (m_peer_link && peer_ch != nullptr && m_peer_link->channel() != peer_ch &&
        !serves_former_peer()) {
        m_peer_link->set_channel(peer_ch);
    }
}

void vask_socket::leave_link() {
    if (m_peer_link) {
        m_peer_link->leave(this);
        if (peer_sock == 0 && m_peer_link.use_count() == 1) {
            // A subclass has taken it.
            m_peer_link->release();
        }
        m_peer_link.reset();
    }
}

// Gives up the present connection, which stays open for those who share it.
void vask_socket::set_peer(int fd) {
    forget_request();
    take_next_peer(fd);
}

// A pending request goes on with the present connection, and comes back to it with
// return_to_former_peer(); else that is given up.
void vask_socket::take_next_peer(int fd) {
    if (!m_read_context.reading) {
        leave_former_peer();
    } else if (!m_former_link) {
        join_link();
        m_former_link = std::move(m_peer_link);
    }
    leave_link();
    peer_ch = nullptr;
    peer_sock = fd;
    join_link();
}

bool vask_socket::serves_former_peer() const {
    return m_former_link && peer_ch != nullptr && peer_ch == m_former_link->channel();
}

void vask_socket::return_to_former_peer() {
    if (m_former_link) {
        // The latest one keeps a channel that it has been given meanwhile.
        join_link();
        peer_ch = m_former_link->channel();
    }
}

void vask_socket::leave_former_peer() {
    if (m_former_link) {
        if (serves_former_peer()) {
            peer_ch = nullptr;
        }
        m_former_link->leave(this);
        m_former_link.reset();
    }
}

// False when another owner of the connection has given it its channel already.
bool vask_socket::create_channel() {
    join_link();
    const bool is_new = m_peer_link->channel() == nullptr;
    if (is_new) {
        m_peer_link->set_channel(new_socket_channel(peer_sock));
    }
    peer_ch = m_peer_link->channel();
    return is_new;
}

void vask_socket::forget_peer(const vask_peer_link& link) {
    const bool is_former = &link == m_former_link.get();
    if (is_former || !m_former_link) {
        peer_ch = nullptr;
        forget_request();
    }
    if (is_former) {
        m_former_link.reset();
    } else {
        peer_sock = 0;
        m_peer_link.reset();
    }
}

void vask_socket::forget_request() {
    if (m_read_watch_id != 0) {
        g_source_remove(std::exchange(m_read_watch_id, 0));
    }
    m_read_context.reading = false;
}

GIOStatus vask_socket::configure_channel(GError** error) {
    const GIOStatus status = g_io_channel_set_encoding(peer_ch, m_encoding, error);
    if (status != G_IO_STATUS_NORMAL) {
        return status;
    }
    if (m_encoding == nullptr) {
        g_io_channel_set_buffered(peer_ch, FALSE);
    } else if (m_proto == VASK_SOCK_UDP) {
        // GLib buffers all that it encodes.
        g_io_channel_set_buffer_size(peer_ch, datagram_buffer_size);
    }
    return status;
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
    if (peer_ch == nullptr && !open_channel(signature)) {
        return false;
    }
    if (!m_read_context.reset(size, least)) {
        vask_p(VASK_P_ERR, VASK_AT("%s: Failed to allocate memory: %d"), signature,
               static_cast<int>(size));
        return false;
    }
    // That of a request which was ended by closing the peer.
    remove_timeout_cb();

    if (m_proto == VASK_SOCK_TCP && g_io_channel_get_buffered(peer_ch)) {
        keep_characters_whole(peer_ch);
    }
    m_read_context.reading = true;
    m_read_done_handler = handler;
    m_saved_data = handler.data;
    m_read_watch_id = g_io_add_watch(peer_ch, read_condition(), _watch_read, this);
    m_read_context.timeout = timeout;
    set_timeout_cb();
    return true;
}

bool vask_socket::open_channel(const char* signature) {
    if (peer_sock == 0) {
        vask_p(VASK_P_BUG, VASK_AT("%s: peer_sock == 0"), signature);
        return false;
    }
    if (!create_channel()) {
        return true;
    }
    GError* error = nullptr;
    const GIOStatus status = configure_channel(&error);
    if (status != G_IO_STATUS_NORMAL) {
        unique_g_error owned(error);
        vask_p(VASK_P_ERR, VASK_AT("%s: Failed to call g_io_channel_set_encoding(): %d: %s"),
               signature, status, reason_of(error));
        return false;
    }
    return true;
}

GIOCondition vask_socket::read_condition() const {
    // A descriptor that somebody has closed is reported whether one waits for it or not, and so is
    // a pending error of a datagram, until it is taken.
    const int condition = G_IO_IN | G_IO_HUP | G_IO_NVAL;
    return static_cast<GIOCondition>(m_proto == VASK_SOCK_UDP ? condition | G_IO_ERR : condition);
}

gboolean vask_socket::_watch_read(GIOChannel* channel, GIOCondition condition, void* data) {
    const auto read = [&] {
        return static_cast<vask_socket*>(data)->watch_read(channel, condition);
    };
    return call_for_c("vask_socket::read_done()", gboolean(FALSE), read);
}

gboolean vask_socket::watch_read(GIOChannel* channel, GIOCondition condition) {
    if (!m_read_context.reading) {
        return FALSE;
    }
    do {
        int status = G_IO_STATUS_NORMAL;
        const read_outcome outcome = receive(channel, condition, status);
        if (outcome == NOTHING_YET) {
            return TRUE;
        }
        if (outcome == FAILED) {
            end_request(status);
            return FALSE;
        }
        if (m_read_context.received >= m_read_context.least_size) {
            m_read_context.complete = true;
            end_request(G_IO_STATUS_NORMAL);
            return FALSE;
        }
    } while (has_read_ahead(channel));
    set_timeout_cb();
    return TRUE;
}

vask_socket::read_outcome vask_socket::receive(GIOChannel* channel, GIOCondition condition,
                                               int& status) {
    const gsize room = m_read_context.read_req_size - m_read_context.received;
    gsize count = 0;
    const read_outcome outcome = m_proto == VASK_SOCK_UDP
                                     ? receive_datagram(condition, room, count, status)
                                     : receive_stream(channel, room, count, status);
    m_read_context.received += count;
    return outcome;
}

vask_socket::read_outcome vask_socket::receive_stream(GIOChannel* channel, gsize room, gsize& count,
                                                      int& status) {
    GError* error = nullptr;
    status = g_io_channel_read_chars(channel, m_read_context.curr_buf_ptr(), room, &count, &error);
    unique_g_error owned(error);
    const bool decoding = g_io_channel_get_buffered(channel);
    if (decoding && status == G_IO_STATUS_AGAIN) {
        // A part of a character.
        set_timeout_cb();
        return NOTHING_YET;
    }
    const bool next_does_not_fit =
        decoding && status == G_IO_STATUS_NORMAL && count == 0 && room > 0;
    if (status == G_IO_STATUS_NORMAL && !next_does_not_fit) {
        return RECEIVED;
    }
    if (status == G_IO_STATUS_ERROR && has_ended_whole(channel)) {
        status = G_IO_STATUS_EOF;
    }
    if (status != G_IO_STATUS_EOF) {
        vask_p(VASK_P_ERR, VASK_AT("Failed to call g_io_channel_read_chars: %d: %d: %s"),
               static_cast<int>(room), status, reason_of(error));
    }
    if (next_does_not_fit) {
        status = G_IO_STATUS_ERROR;
    }
    return FAILED;
}

vask_socket::read_outcome vask_socket::receive_datagram(GIOCondition condition, gsize room,
                                                        gsize& count, int& status) {
    if (condition & G_IO_ERR) {
        log_pending_error(take_pending_error(peer_sock));
        if (!(condition & (G_IO_IN | G_IO_HUP))) {
            return NOTHING_YET;
        }
    }
    // A datagram with a wrong checksum is announced, but not there.
    const ssize_t length =
        receive_from(peer_sock, m_read_context.curr_buf_ptr(), room, m_peer_addr);
    if (length >= 0) {
        count = static_cast<gsize>(length);
        return RECEIVED;
    }
    if (errno == EAGAIN) {
        return NOTHING_YET;
    }
    if (errno == ECONNREFUSED) {
        log_pending_error(errno);
        return NOTHING_YET;
    }
    vask_p(VASK_P_ERR, VASK_AT("Failed to call recvfrom(): %d"), errno);
    status = G_IO_STATUS_ERROR;
    return FAILED;
}

void vask_socket::log_pending_error(int error) const {
    vask_p(VASK_P_DBG, VASK_AT("An earlier datagram has failed: %d"), error);
}

void vask_socket::end_request(int status) {
    m_read_context.status = status;
    forget_request();
    remove_timeout_cb();
    return_to_former_peer();
    read_done();
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
    end_request(G_IO_STATUS_ERROR);
}

bool vask_socket::write(const gchar* buf, gssize count) {
    if (peer_ch == nullptr) {
        vask_p(VASK_P_BUG, VASK_AT("%s: peer_ch == NULL"),
               "bool vask_socket::write(const gchar*, gssize)");
        return false;
    }
    GError* error = nullptr;
    const GIOStatus status = write_all(buf, count, &error);
    if (status == G_IO_STATUS_NORMAL) {
        return true;
    }
    unique_g_error owned(error);
    vask_p(VASK_P_ERR, VASK_AT("Failed to call g_io_channel_write_chars: %d: %d: %s"),
           static_cast<int>(count), status, reason_of(error));
    close_peer_sock(FALSE);
    return false;
}

GIOStatus vask_socket::write_all(const gchar* buf, gssize count, GError** error) {
    gssize rest = count < 0 && buf != nullptr ? static_cast<gssize>(strlen(buf)) : count;
    GIOStatus status = G_IO_STATUS_NORMAL;
    gsize written = 0;
    const sigpipe_guard guard(peer_ch);
    // A signal may cut a write short.
    do {
        status = g_io_channel_write_chars(peer_ch, buf, rest, &written, error);
        buf += written;
        rest -= static_cast<gssize>(written);
    } while (status == G_IO_STATUS_NORMAL && written != 0 && rest > 0);
    if (status == G_IO_STATUS_NORMAL && m_encoding != nullptr) {
        status = g_io_channel_flush(peer_ch, error);
    }
    return status;
}

void vask_socket::close_peer_sock(gboolean flush) {
    vask_p(VASK_P_DBG, VASK_AT("%s"), "void vask_socket::close_peer_sock(gboolean)");
    join_link();
    const std::shared_ptr<vask_peer_link> link = serves_former_peer() ? m_former_link : m_peer_link;
    if (link) {
        link->close(flush);
    }
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

// 0 is somebody else's descriptor.
bool vask_socket::has_peer() const {
    if (peer_sock == 0) {
        errno = EBADF;
    }
    return peer_sock != 0;
}

bool vask_socket::set_broadcast_option() {
    return has_peer() && enable_socket_option(peer_sock, SO_BROADCAST);
}

bool vask_socket::make_connection() {
    if (!has_peer() || !connect_to(peer_sock, m_peer_addr)) {
        return false;
    }
    create_channel();
    return true;
}

void* vask_socket::get_saved_data() const {
    return m_saved_data;
}
