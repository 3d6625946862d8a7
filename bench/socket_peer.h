// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_BENCH_SOCKET_PEER_H
#define VASK_BENCH_SOCKET_PEER_H

#include <stddef.h>
#include <sys/types.h>

// The other end of a measured connection: a process of its own that makes system calls and nothing
// else, so that the same work is done there whoever is measured. It ends with its object.
class socket_peer {
public:
    // Sends requests of a size, each when the answer to the former one has come.
    static socket_peer asking(size_t size);

    // Sends without a pause.
    static socket_peer streaming();

    socket_peer(const socket_peer&) = delete;
    socket_peer& operator=(const socket_peer&) = delete;
    ~socket_peer();

    // This end of the connection. Whoever closes it says so.
    int fd() const { return m_fd; }
    int release() { return m_closed_elsewhere = true, m_fd; }

private:
    template <typename Work>
    explicit socket_peer(const Work& work);

    int m_fd = -1;
    bool m_closed_elsewhere = false;
    pid_t m_pid = -1;
};

// A process that makes connections to a port, when it is told to.
class connecting_peer {
public:
    connecting_peer(int port);
    connecting_peer(const connecting_peer&) = delete;
    connecting_peer& operator=(const connecting_peer&) = delete;
    ~connecting_peer();

    // Each is opened, has one request answered, and is closed before the next one is opened.
    void connect_one_after_the_other(int count) { tell(count); }

    // All are open before each of them has one more request answered, and are closed then.
    void connect_at_once(int count) { tell(-count); }

private:
    void tell(int count);

    int m_commands = -1;
    pid_t m_pid = -1;
};

constexpr size_t connection_request_size = 16;

// A listening socket on a port that the system chooses.
int open_listener();
int port_of(int fd);

#endif
