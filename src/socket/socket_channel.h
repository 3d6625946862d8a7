// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SOCKET_CHANNEL_H
#define VASK_SOCKET_CHANNEL_H

#include <glib.h>

// A channel on a socket, with GLib's defaults (UTF-8, buffered) and two differences to a plain one:
// writing to a closed peer is a failure and no SIGPIPE, and a read takes what is there instead of
// waiting. It does not close the descriptor with its last reference.
GIOChannel* new_socket_channel(int fd);

// Whether a channel is one of these.
bool is_socket_channel(const GIOChannel* channel);

#endif
