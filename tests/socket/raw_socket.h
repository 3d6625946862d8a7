// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_RAW_SOCKET_H
#define VASK_TEST_RAW_SOCKET_H

#include <netinet/in.h>

#include <string>

namespace vask_test {

/** An IPv4 socket without the library. Its calls block, and end the test program when they fail
 *  where nothing is said about failing. */
class raw_socket {
public:
    static raw_socket listening(int backlog = 16);
    static raw_socket connected_to(int port);
    static raw_socket receiving_datagrams();

    /** Whether nobody listens on a port. */
    static bool is_refused(int port);

    explicit raw_socket(int fd = -1) : m_fd(fd) {}
    raw_socket(raw_socket&& other) noexcept;
    raw_socket& operator=(raw_socket&& other) noexcept;
    ~raw_socket() { close(); }

    int fd() const { return m_fd; }
    int port() const { return port_of(m_fd); }
    static int port_of(int fd);
    int peer_port() const;

    raw_socket accept() const;
    void send(const std::string& data) const;

    /** Exactly that many bytes, or fewer when the peer closes first. */
    std::string receive(size_t size) const;
    std::string receive_to_the_end() const;
    /** Whether the peer has closed or reset the connection; does not wait. */
    bool peer_is_gone() const;

    /** One datagram; remembers where from. */
    std::string receive_datagram();
    void answer(const std::string& data) const;
    void send_to(int port, const std::string& data) const;
    int sender_port() const { return ntohs(m_sender.sin_port); }

    void close();
    /** Leaves the descriptor to its other owner. */
    void forget() { m_fd = -1; }
    /** Closes so that the peer's next read fails with ECONNRESET. */
    void reset();

private:
    int m_fd;
    sockaddr_in m_sender = {};
};

/** A port that nobody listens on. */
int unused_port(int type);

}  // namespace vask_test

#endif
