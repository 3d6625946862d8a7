// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "socket/socket_descriptor.h"

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int above_standard_streams(int fd) {
    if (fd < 0 || fd > STDERR_FILENO) {
        return fd;
    }
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    close(fd);
    errno = error;
    return moved;
}

// An interrupted connect() goes on by itself, and must not be called again.
bool wait_for_connection(int fd) {
    pollfd connecting = {fd, POLLOUT, 0};
    while (poll(&connecting, 1, -1) == -1) {
        if (errno != EINTR) {
            return false;
        }
    }
    errno = take_pending_error(fd);
    return errno == 0;
}

}  // namespace

int open_ipv4_socket(int type) {
    return above_standard_streams(socket(AF_INET, type | SOCK_CLOEXEC, 0));
}

int accept_connection(int listener, sockaddr_in& peer) {
    int fd = -1;
    do {
        socklen_t length = sizeof peer;
        fd = accept4(listener, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
    } while (fd == -1 && errno == EINTR);
    return above_standard_streams(fd);
}

void never_wait_for_connections(int listener) {
    fcntl(listener, F_SETFL, O_NONBLOCK);
}

ssize_t receive_from(int fd, void* buffer, size_t size, sockaddr_in& sender) {
    ssize_t received = -1;
    do {
        socklen_t length = sizeof sender;
        received =
            recvfrom(fd, buffer, size, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&sender), &length);
    } while (received == -1 && errno == EINTR);
    return received;
}

bool connect_to(int fd, const sockaddr_in& peer) {
    if (connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0) {
        return true;
    }
    return errno == EINTR && wait_for_connection(fd);
}

bool enable_socket_option(int fd, int option) {
    const int on = 1;
    return setsockopt(fd, SOL_SOCKET, option, &on, sizeof on) == 0;
}

int take_pending_error(int fd) {
    int error = 0;
    socklen_t length = sizeof error;
    return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}
