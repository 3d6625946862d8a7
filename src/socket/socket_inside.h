// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SOCKET_INSIDE_H
#define VASK_SOCKET_INSIDE_H

#include <glib.h>

#include <memory>

#include "foundation/glib_handles.h"
#include "socket/peer_link.h"
#include "socket/read_watch.h"
#include "vask_socket.h"

// Empty where GLib has given no reason.
inline const char* reason_of(const gerror_holder& error) {
    return error ? error->message : "";
}

// What a socket does with its members beneath the public interface: on which connection it stands,
// and how its pending request is watched, received and ended.
//
// Subclasses may write peer_sock and peer_ch at any time. follow_members() finds that out, and is
// called before the connection is used or shared.
//
//                    turn_to(fd)               turn_to_next(next), no request pending
//     no peer ───────────────────────► on fd ──────────────────────────────────────► on next
//                                        │                                             ▲
//                                        │ turn_to_next(next), a request pending       │
//                                        ▼                                             │
//     peer_sock and the address are those of next, the channel with the requests ──────┘
//     is that of the former peer, fd                              leave_former_peer()
//
// All of these, and the end of the socket, are one operation on the link: stand_on().
class vask_socket_inside {
public:
    explicit vask_socket_inside(vask_socket& socket);
    ~vask_socket_inside();
    vask_socket_inside(const vask_socket_inside&) = delete;
    vask_socket_inside& operator=(const vask_socket_inside&) = delete;

    static vask_socket_inside& of(vask_socket& socket) { return *socket.m_inside; }

    // @name The connection

    // Gives up the present connection, which stays open for those who share it, and the pending
    // request.
    void turn_to(int fd);

    // The same, but a pending request goes on with the present connection, until
    // leave_former_peer().
    void turn_to_next(int fd);

    // Whether the channel, and with it what is read and written, is that of the former peer.
    bool serves_former_peer() const;

    // Gives the socket the former peer's channel again, which it has not while accepted() runs. The
    // latest peer keeps a channel that it has been given meanwhile.
    void return_to_former_peer();
    void leave_former_peer();

    // Stands on the peer of another socket, too, with its channel.
    void share(vask_socket_inside& other);

    // The peer, for offer() and claim(); null for none.
    peer_link* link() const { return m_link.get(); }

    // Closes the connection that is read from.
    void close(bool flush);

    // False when another owner of the connection has given it its channel already.
    bool create_channel();

    // Sets the socket's encoding, and buffers only what has to be.
    GIOStatus configure_channel(GError** error);

    // @name For the link

    void replace_channel(GIOChannel* former, GIOChannel* latter);
    void forget_peer(const peer_link& link);

    // @name The request

    // Gives a socket without a channel one. False after a line.
    bool open_channel(const char* signature);

    void watch();
    gboolean receive_all(GIOChannel* channel, GIOCondition condition);
    void end_request(int status);

    // Ends it without a call.
    void forget_request();

    GIOStatus write_all(const gchar* buf, gssize count, GError** error);

private:
    enum class outcome { received, nothing_yet, failed };

    void stand_on(std::shared_ptr<peer_link> next);
    void follow_members();

    outcome receive(GIOChannel* channel, GIOCondition condition, int& status);
    outcome receive_stream(GIOChannel* channel, gsize room, gsize& count, int& status);
    outcome receive_datagram(GIOCondition condition, gsize room, gsize& count, int& status);

    vask_socket& m_socket;

    // The connection of peer_sock, as it was when follow_members() looked.
    std::shared_ptr<peer_link> m_link;

    // The one that requests stay with although peer_sock is another; else null.
    std::shared_ptr<peer_link> m_former_link;

    // Of the latest request whose channel is the library's and has no buffer.
    read_watch m_watch;
};

#endif
