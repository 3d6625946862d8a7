// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SOCKET_H
#define VASK_SOCKET_H

/**
 * @file
 * @brief IPv4 sockets on the GLib main loop: read requests, servers and clients.
 *
 * @since 2.0
 */

#include <glib.h>
#include <netinet/in.h>

#include <cstdint>
#include <memory>
#include <string>

#include "vask_exec.h"
#include "vask_export.h"
#include "vask_object.h"

class vask_socket_inside;

/**
 * The transport of a socket.
 *
 * @since 2.0
 */
enum vask_sock_proto : int {
    VASK_SOCK_TCP = 0, /**< a stream */
    VASK_SOCK_UDP = 1  /**< datagrams */
};

/**
 * State and buffer of a read request. The owner of a socket reads it, and leaves it as it is.
 *
 * @since 2.0
 */
struct VASK_EXPORT vask_sock_read_context {
    std::uint64_t read_req_size; /**< bytes asked for; also the size of the buffer */
    std::uint64_t least_size;    /**< bytes that complete the request; at most read_req_size */
    std::uint64_t received;      /**< bytes received so far */
    char* buffer;                /**< owned; null for a request of size 0 */
    std::uint64_t capacity;      /**< always 0, so that every request gets a fresh buffer */
    bool reading;                /**< a request is pending */
    bool complete;               /**< the last request has reached its least size */

    /** The result of the last request: 1 complete, 2 end of stream, 0 error or time-out, any other
     *  number the GIOStatus of the read that failed. 1 at first. */
    int status;

    int timeout;           /**< seconds without data that end the request; 0 or less for no limit */
    unsigned int timer_id; /**< GLib source of the armed time-out; 0 for none */

    vask_sock_read_context();

    /** Releases the buffer. */
    ~vask_sock_read_context();

    vask_sock_read_context(const vask_sock_read_context&) = delete;
    vask_sock_read_context& operator=(const vask_sock_read_context&) = delete;

    /**
     * Prepares for a new request and replaces the buffer.
     *
     * @param size   bytes asked for; 0 keeps no buffer
     * @param least  bytes that complete the request; more than @p size counts as @p size
     * @return false, without a buffer, when there is no memory
     */
    bool reset(unsigned long size, unsigned long least);

    /** @return where the next bytes go; not to be read from */
    char* curr_buf_ptr();

    /**
     * Copies what has been received.
     *
     * @param dest    room for `received - offset` bytes
     * @param offset  first byte to copy; nothing is copied when fewer bytes have been received, or
     *                when the buffer has been released
     */
    void copy(void* dest, unsigned long offset) const;

    /** Releases the buffer. The counts stay. */
    void delete_buffer();
};

/**
 * @brief A TCP or UDP endpoint that reads asynchronously and writes synchronously.
 *
 * It is idle or has one pending read request. A request ends in one call of read_done(), and with
 * it of the owner's handler: when enough bytes have come, at the end of the stream, after a failed
 * read, or when no data has come for the time-out. close_peer_sock() ends it without a call.
 *
 * The handler may set the next request, may delete the socket, and may run a main loop. What it
 * throws is logged at ERR when the main loop has called it: "vask_socket::read_done(): An exception
 * was thrown: WHAT", for a time-out with "vask_exec::_timer_callback()". The request has ended
 * then.
 *
 * A connection may be shared by several objects: a server and the socket that it hands out, a
 * socket and its copy. The descriptor is closed when one of them closes it, or when one that has a
 * channel is deleted, and all of them are without a peer then; or else with the last of them.
 *
 * Log lines begin with "<vask_socket:LINE>". Threads: everything happens on the thread of the
 * default main context; nothing is locked.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_socket : public vask_exec, public virtual vask_object {
public:
    /**
     * @param proto     TCP or UDP
     * @param port      in host byte order; a client's is the peer's port. The lowest 16 bits count
     * @param encoding  of the data on the wire, as g_io_channel_set_encoding() takes it; the
     *                  program's side is UTF-8 then. Null for raw bytes. Not copied, must outlive
     *                  the object and its copies. Datagrams are never decoded
     */
    vask_socket(vask_sock_proto proto, int port, const char* encoding);

    /**
     * Shares the connection of another socket, but none of its requests. The name in diagnostics is
     * that of a socket without one.
     *
     * @param other  the connection's other owner from now on
     */
    vask_socket(vask_socket& other);

    /** Ends a pending request without a call, and closes the connection when it has a channel. */
    ~vask_socket() override;

    /**
     * The owner's handler is called with this socket as its argument, as a pointer to vask_socket.
     * Overrides run before and after the call; the socket may have been deleted by then.
     */
    virtual void read_done();

    /**
     * Asks for data. Does not block.
     *
     * @param handler  called once, when the request has ended; may be without object or function
     * @param size     bytes asked for. A datagram that is longer than what is still missing is cut
     * @param least    bytes that complete the request; more than @p size counts as @p size
     * @param timeout  seconds without data after which the request ends; 0 or less for no limit,
     *                 more than 2147483 (24 days) counts as 2147483
     * @return true when the request is pending; false after one of
     *         "SIGNATURE: read_req_size: N. Previous request may not be finished." at BUG, with the
     *         pending request as it was; "SIGNATURE: peer_sock == 0" at BUG; "SIGNATURE: Failed to
     *         call g_io_channel_set_encoding(): STATUS: REASON" at ERR; "SIGNATURE: Failed to
     *         allocate memory: N" at ERR
     *
     * With an encoding the counts are of UTF-8 bytes, and a character is never cut: one that comes
     * in pieces is waited for, and a request that has no room for the next one ends as a failed
     * read. So does one that comes to bytes which are no text in the encoding, U+0000 in UTF-8
     * among them, or to the end of the stream inside a character.
     */
    bool set_read_request(vask_obj_exec_info handler, gsize size, gsize least, int timeout);

    /**
     * The pending request's channel is ready.
     *
     * @param channel    the connection's channel
     * @param condition  what it is ready for
     * @return TRUE to keep the watch, FALSE when the request has ended. A failed read is logged at
     *         ERR: "Failed to call g_io_channel_read_chars: ROOM: STATUS: REASON" or "Failed to
     *         call recvfrom(): ERRNO"
     *
     * That an UDP peer has refused a datagram is logged at DBG and does not end the request.
     */
    gboolean watch_read(GIOChannel* channel, GIOCondition condition);

    /**
     * Forwards GLib's watch to watch_read().
     *
     * @param channel    the connection's channel
     * @param condition  what it is ready for
     * @param data       a vask_socket
     * @return as watch_read(); FALSE when what it calls throws, which is logged at ERR
     */
    static gboolean _watch_read(GIOChannel* channel, GIOCondition condition, void* data);

    /**
     * Writes to the peer. Blocks until everything is in the system's hands: a peer that does not
     * read holds the main loop up.
     *
     * A socket can write when it has a channel: after its first read request, or after connecting.
     * An UDP server must not write: what it writes is never sent, and when its channel is full the
     * write fails and closes the port.
     *
     * @param buf    the bytes; UTF-8 text when the socket has an encoding; null only for none
     * @param count  number of bytes; -1 for a text up to its terminating zero
     * @return true when everything was written; false after "SIGNATURE: peer_ch == NULL" at BUG, or
     *         after "Failed to call g_io_channel_write_chars: COUNT: STATUS: REASON" at ERR, and
     *         the peer is closed then. A closed peer raises no SIGPIPE
     */
    bool write(const gchar* buf, gssize count);

    /**
     * Closes the connection, also for all others that share it, and ends a pending request without
     * a call. Of the two connections of a server it closes the one that is read from. An armed
     * time-out stays and calls read_done() when it is over, unless a new request has been set by
     * then.
     *
     * @param flush  whether what the channel has buffered is written first, which may block
     */
    void close_peer_sock(gboolean flush);

    /** @return the peer's address in dotted form; the empty string without a peer, after
     *          "SIGNATURE: peer_sock is not ready" at BUG */
    std::string get_peer_ip_addr();

    /** @return the peer's port **in network byte order**, for ntohs(); 0 without a peer, after
     *          "SIGNATURE: peer_sock is not ready" at BUG */
    int get_peer_port();

    /** Lets datagrams be sent to broadcast addresses.
     *  @return false, with errno, when setsockopt() fails. Not logged */
    bool set_broadcast_option();

    /**
     * Connects peer_sock to the peer's address and gives it a channel. Blocks until the peer has
     * answered.
     *
     * @return false, with errno, when connect() fails or there is no descriptor. Not logged
     */
    bool make_connection();

    /** Arms the pending request's time-out anew, if it has one. */
    void set_timeout_cb();

    /** Disarms the time-out, if it is armed. */
    void remove_timeout_cb();

    /** The time-out is over: ends the request with status 0. @param unused not looked at */
    void cb_timeout(void* unused);

    /** @return the data pointer of the handler of the latest request */
    void* get_saved_data() const;

protected:
    /** The port, in host byte order. */
    int m_port;

    /** The transport. */
    vask_sock_proto m_proto;

    /** Encoding of the data on the wire, not owned; null for raw bytes. */
    const char* m_encoding;

    /** Descriptor of the connection; 0 for none. A subclass may supply one of its own, which is
     *  this object's from the first operation on, and may set it to 0 while there is no channel:
     *  then the descriptor is the subclass's to close, unless others share the connection. */
    int peer_sock;

    /** Address of the peer, in network byte order. */
    struct sockaddr_in m_peer_addr;

    /** GLib source of the pending request's watch; 0 for none. */
    unsigned int m_read_watch_id;

    /** Channel on peer_sock; null for none. */
    GIOChannel* peer_ch;

    /** The handler that read_done() calls. Its data pointer is this socket from the call on. */
    vask_obj_exec_info m_read_done_handler;

public:
    /** The latest request. */
    vask_sock_read_context m_read_context;

protected:
    /** What get_saved_data() returns; not owned. */
    void* m_saved_data;

private:
    friend class vask_socket_inside;

    // What the library alone does with the members above. Never null, and not shared with a copy.
    std::unique_ptr<vask_socket_inside> m_inside;
};

/** What the handler of a server receives for each connection, as its `void*` argument. It is gone
 *  when the handler returns.
 *
 * @since 2.0
 */
struct vask_accepted_info {
    vask_socket* sock;   /**< the connection, for the handler to delete; null if accepting failed */
    bool keep_accepting; /**< true; set to false by a handler that wants no more connections */
};

/**
 * @brief Accepts TCP connections, or receives datagrams, on a port of all local addresses.
 *
 * Every connection is handed to the owner as a socket of its own. The server also keeps the latest
 * one as its own peer, and can serve it through its own read requests, for instance when the
 * handler has deleted the socket without using it. A request that is pending when the next
 * connection comes goes on with its own connection. The address is that of the latest one from then
 * on, but requests and what is written stay with the earlier one until a request ends without
 * completing and its handler sets no other, or until close_peer_sock().
 *
 * The accepted handler may delete the server and may run a main loop, in which nobody is accepted.
 * What it throws is logged at ERR, "vask_server_socket::accepted(): An exception was thrown: WHAT",
 * and accepting goes on. The connection stays its own to delete.
 *
 * Deleting a TCP server that has been started makes GLib report one critical, "g_object_unref:
 * assertion 'G_IS_OBJECT (object)' failed".
 *
 * @since 2.0
 */
class VASK_EXPORT vask_server_socket : public vask_socket {
public:
    /**
     * @param proto  TCP or UDP
     * @param port   in host byte order, of which the lowest 16 bits count; 0 lets the system choose
     *               one
     */
    vask_server_socket(vask_sock_proto proto, int port);

    /** Stops accepting. Connections that were handed out stay. */
    ~vask_server_socket() override;

    /** Accepts again when a request of the server itself has ended without completing. */
    void read_done() override;

    /**
     * Calls the accepted handler. A subclass can take over: a connection for which it does not call
     * this is its own to close, by the descriptor in peer_sock, also when another connection has
     * replaced it or the server has ended. It is the server's when the server has given it a
     * channel or a copy of the server shares it.
     *
     * @param channel    the listening socket's channel
     * @param condition  what it is ready for
     * @param ok         whether there is a new connection
     * @return TRUE to go on accepting; FALSE when the handler wants no more, and, after
     *         "accepted_cb is invalid" at BUG, when there is none
     */
    virtual gboolean accepted(GIOChannel* channel, GIOCondition condition, bool ok);

    /** @param handler  receives a vask_accepted_info; to be set before start_service() */
    void set_accepted_handler(vask_obj_exec_info handler);

    /**
     * Binds the port; accepts connections (TCP), or is ready for read requests from any sender, who
     * becomes the peer (UDP).
     *
     * @return false after "Unkown proto: N" at BUG or "SIGNATURE: Failed to call FUNCTION: ERRNO"
     *         at ERR, where FUNCTION is socket(), setsockopt(), bind() or listen(). What has been
     *         opened stays open, until the next attempt or the object's end
     */
    bool start_service();

    /** Accepts connections, unless it does already. Without a listening channel it logs
     *  "SIGNATURE: sock_ch == NULL" at BUG. */
    void set_watch_accepted();

    /**
     * Accepts one connection.
     *
     * While an error lasts that goes by with no connection, such as a lack of descriptors or
     * memory, accepting pauses for 100 ms after each attempt.
     *
     * @param channel    the listening socket's channel
     * @param condition  what it is ready for
     * @return TRUE to keep the watch. A failure is logged at ERR, "SIGNATURE: Failed to call
     *         accept(): ERRNO", and handed to accepted()
     */
    gboolean watch_accepted(GIOChannel* channel, GIOCondition condition);

    /**
     * Forwards GLib's watch to watch_accepted().
     *
     * @param channel    the listening socket's channel
     * @param condition  what it is ready for
     * @param data       a vask_server_socket
     * @return as watch_accepted(); TRUE when what it calls throws, which is logged at ERR
     */
    static gboolean _watch_accepted(GIOChannel* channel, GIOCondition condition, void* data);

protected:
    /** The listening socket; 0 for none. */
    int m_sock;

    /** Channel on the listening socket; null for none. */
    GIOChannel* sock_ch;

    /** The address that start_service() has asked for, in network byte order. Port 0 stays 0:
     *  getsockname() on m_sock tells the one that the system has chosen. */
    struct sockaddr_in m_server_addr;

    /** The handler that accepted() calls. Its data pointer is the vask_accepted_info in the call
     *  and null after it. */
    vask_obj_exec_info m_accepted_handler;

    /** The accept watch, from set_watch_accepted() until it is dispatched; else 0. */
    unsigned int m_accept_watch_id;

private:
    // Watches the listening socket, pauses, and closes it in the end. Never null.
    class acceptor;
    std::unique_ptr<acceptor> m_acceptor;
};

/**
 * @brief Connects to an IPv4 address and port, or to the broadcast address for UDP.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_client_socket : public vask_socket {
public:
    /**
     * @param addr      the peer's address in dotted form; copied. An invalid one, or null, counts
     *                  as 255.255.255.255, without its right to broadcast
     * @param proto     TCP or UDP
     * @param port      the peer's port, in host byte order
     * @param encoding  see vask_socket::vask_socket()
     */
    vask_client_socket(const char* addr, vask_sock_proto proto, int port, const char* encoding);

    ~vask_client_socket() override;

    /**
     * Connects. Blocks until the peer has answered (TCP). A connection that is left from before is
     * given up first.
     *
     * @return false after "Unkown proto: N" at BUG, or at ERR "SIGNATURE: Failed to call
     *         FUNCTION: ERRNO" for socket() and connect(), "Failed to call setsockopt(): ERRNO" and
     *         "Failed to call g_io_channel_set_encoding(): STATUS: REASON". What has been opened
     *         stays open, until the next attempt or the object's end
     */
    bool start_connect();

protected:
    /** The peer's address in dotted form, as it was given. */
    std::string m_peer_addr_text;
};

#endif
