// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_PEER_LINK_H
#define VASK_PEER_LINK_H

#include <glib.h>

#include <vector>

class vask_socket_inside;

// A connection: its descriptor and the channel on it. A server and the socket that it hands out
// stand on the same connection, and so do a socket and its copy. Closing it takes it away from all
// of them, so that nobody reads or closes a descriptor that may be a stranger's by then.
//
// Invariant: a claimed descriptor is the link's to close, and one that is offered or given away is
// not. It is claimed at first.
class peer_link {
public:
    explicit peer_link(int fd);
    ~peer_link();
    peer_link(const peer_link&) = delete;
    peer_link& operator=(const peer_link&) = delete;

    int fd() const { return m_fd; }

    // Null until there is one; owned. A further one takes the place of the former for all sockets.
    // Setting one claims the descriptor.
    GIOChannel* channel() const { return m_channel; }
    void set_channel(GIOChannel* channel);

    // A second socket claims the descriptor.
    void join(vask_socket_inside& socket);
    void leave(vask_socket_inside& socket);

    // Lets a subclass keep the descriptor for itself. Does nothing where our sockets use it
    // already: where it has a channel or more than one socket.
    void offer();

    // Takes it back.
    void claim() { m_is_claimed = true; }

    // A subclass has taken the descriptor from the only socket.
    void give_away() { m_is_claimed = false; }

    // Closes the descriptor and has every socket forget it.
    void close(bool flush);

private:
    const int m_fd;
    GIOChannel* m_channel;  // owned; null until there is one
    bool m_is_claimed;
    std::vector<vask_socket_inside*> m_sockets;  // all that stand on the connection
};

#endif
