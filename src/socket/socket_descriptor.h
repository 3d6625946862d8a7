// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SOCKET_DESCRIPTOR_H
#define VASK_SOCKET_DESCRIPTOR_H

#include <sys/types.h>

struct sockaddr_in;

// System calls on sockets. They return -1 or false with errno, and go on after a signal handler has
// interrupted them. New descriptors are close-on-exec and never those of the standard streams: 0
// would stand for none, and diagnostics written to 1 or 2 would reach the peer.

int open_ipv4_socket(int type);
int accept_connection(int listener, sockaddr_in& peer);

// Makes accept_connection() fail with EAGAIN instead of waiting for a connection.
void never_wait_for_connections(int listener);

// Never waits: EAGAIN when there is no datagram.
ssize_t receive_from(int fd, void* buffer, size_t size, sockaddr_in& sender);

bool connect_to(int fd, const sockaddr_in& peer);
bool enable_socket_option(int fd, int option);

// The error that an earlier datagram has left behind, or 0. It is gone then.
int take_pending_error(int fd);

#endif
