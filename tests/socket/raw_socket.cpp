// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "raw_socket.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace vask_test {

namespace {

template <typename Result>
Result must(Result result, const char* what) {
    if (result < 0) {
        std::fprintf(stderr, "raw_socket: %s: %s\n", what, std::strerror(errno));
        std::abort();
    }
    return result;
}

sockaddr_in loopback(int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

const sockaddr* generic(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

raw_socket bound(int type) {
    raw_socket result(must(socket(AF_INET, type | SOCK_CLOEXEC, 0), "socket"));
    sockaddr_in any = {};
    any.sin_family = AF_INET;
    must(bind(result.fd(), generic(any), sizeof any), "bind");
    return result;
}

}  // namespace

raw_socket raw_socket::listening(int backlog) {
    raw_socket result = bound(SOCK_STREAM);
    must(listen(result.m_fd, backlog), "listen");
    return result;
}

raw_socket raw_socket::connected_to(int port) {
    raw_socket result(must(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    const sockaddr_in address = loopback(port);
    must(connect(result.m_fd, generic(address), sizeof address), "connect");
    return result;
}

raw_socket raw_socket::receiving_datagrams() {
    return bound(SOCK_DGRAM);
}

bool raw_socket::is_refused(int port) {
    raw_socket probe(must(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    const sockaddr_in address = loopback(port);
    return connect(probe.fd(), generic(address), sizeof address) == -1 && errno == ECONNREFUSED;
}

raw_socket::raw_socket(raw_socket&& other) noexcept
    : m_fd(std::exchange(other.m_fd, -1)), m_sender(other.m_sender) {}

raw_socket& raw_socket::operator=(raw_socket&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    std::swap(m_sender, other.m_sender);
    return *this;
}

int raw_socket::port_of(int fd) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    must(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), "getsockname");
    return ntohs(address.sin_port);
}

int raw_socket::peer_port() const {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    must(getpeername(m_fd, reinterpret_cast<sockaddr*>(&address), &length), "getpeername");
    return ntohs(address.sin_port);
}

raw_socket raw_socket::accept() const {
    return raw_socket(must(accept4(m_fd, nullptr, nullptr, SOCK_CLOEXEC), "accept"));
}

void raw_socket::send(const std::string& data) const {
    size_t sent = 0;
    while (sent < data.size()) {
        sent += static_cast<size_t>(
            must(::send(m_fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL), "send"));
    }
}

std::string raw_socket::receive(size_t size) const {
    std::string data(size, '\0');
    size_t received = 0;
    while (received < size) {
        const ssize_t length = recv(m_fd, &data[received], size - received, 0);
        if (length <= 0) {
            break;
        }
        received += static_cast<size_t>(length);
    }
    data.resize(received);
    return data;
}

std::string raw_socket::receive_to_the_end() const {
    std::string data;
    for (;;) {
        const std::string piece = receive(65536);
        if (piece.empty()) {
            return data;
        }
        data += piece;
    }
}

bool raw_socket::peer_is_gone() const {
    char byte;
    const ssize_t length = recv(m_fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return length == 0 || (length < 0 && errno != EAGAIN);
}

std::string raw_socket::receive_datagram() {
    std::string data(65536, '\0');
    socklen_t length = sizeof m_sender;
    data.resize(static_cast<size_t>(must(
        recvfrom(m_fd, &data[0], data.size(), 0, reinterpret_cast<sockaddr*>(&m_sender), &length),
        "recvfrom")));
    return data;
}

void raw_socket::answer(const std::string& data) const {
    must(sendto(m_fd, data.data(), data.size(), 0, generic(m_sender), sizeof m_sender), "sendto");
}

void raw_socket::send_to(int port, const std::string& data) const {
    const sockaddr_in address = loopback(port);
    must(sendto(m_fd, data.data(), data.size(), 0, generic(address), sizeof address), "sendto");
}

void raw_socket::close() {
    if (m_fd >= 0) {
        ::close(std::exchange(m_fd, -1));
    }
}

void raw_socket::reset() {
    const linger now = {1, 0};
    must(setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &now, sizeof now), "setsockopt");
    close();
}

int unused_port(int type) {
    return bound(type).port();
}

}  // namespace vask_test
