// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "socket_owners.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "vask_test/main_loop.h"

namespace vask_test {

int open_server::port() const {
    return raw_socket::port_of(m_sock);
}

raw_socket served::client() {
    const int before = owner.calls;
    raw_socket result = raw_socket::connected_to(server.port());
    EXPECT_TRUE(wait_until([&] { return owner.calls > before; }));
    return result;
}

connected::connected(const char* encoding)
    : socket("127.0.0.1", VASK_SOCK_TCP, listener.port(), encoding) {
    EXPECT_TRUE(socket.start_connect());
    peer = listener.accept();
}

bool option_is_set(int fd, int option) {
    int value = 0;
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(fd, SOL_SOCKET, option, &value, &length), 0);
    return value != 0;
}

std::string every_byte(int times) {
    std::string bytes;
    for (int i = 0; i < 256 * times; ++i) {
        bytes.push_back(static_cast<char>(i));
    }
    return bytes;
}

int dispatches_within(int msec) {
    bool over = false;
    const guint timer = g_timeout_add(
        static_cast<guint>(msec),
        [](gpointer data) -> gboolean {
            *static_cast<bool*>(data) = true;
            return G_SOURCE_CONTINUE;
        },
        &over);
    int dispatches = 0;
    while (!over) {
        dispatches += g_main_context_iteration(nullptr, TRUE);
    }
    g_source_remove(timer);
    return dispatches;
}

}  // namespace vask_test
