// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "socket/sigpipe_guard.h"

#include "socket/socket_channel.h"

sigpipe_guard::sigpipe_guard(GIOChannel* channel) {
    if (!is_socket_channel(channel)) {
        m_sigpipe.emplace(SIGPIPE);
    }
}
