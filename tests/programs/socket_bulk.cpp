// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Sends bytes in bulk to a port of this machine or takes them from there, as fast as it can.
//
// usage: socket_bulk send|receive PORT BYTES
//
// Byte number n has the value n modulo 251. A receiver ends with status 1 when it gets others.

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr long period = 251;
constexpr size_t piece_size = 251 * 256;

int connected_to(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        perror("connect");
        exit(2);
    }
    return fd;
}

std::vector<char> pattern() {
    std::vector<char> bytes(piece_size + period);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(i % period);
    }
    return bytes;
}

bool send_all(int fd, long count) {
    const std::vector<char> bytes = pattern();
    for (long sent = 0; sent < count;) {
        const size_t size = std::min<size_t>(piece_size, static_cast<size_t>(count - sent));
        const ssize_t length = send(fd, bytes.data() + sent % period, size, MSG_NOSIGNAL);
        if (length <= 0) {
            return false;
        }
        sent += length;
    }
    return true;
}

bool receive_all(int fd, long count) {
    const std::vector<char> expected = pattern();
    std::vector<char> bytes(piece_size);
    for (long received = 0; received < count;) {
        const ssize_t length = recv(fd, bytes.data(), bytes.size(), 0);
        if (length <= 0 || memcmp(bytes.data(), expected.data() + received % period,
                                  static_cast<size_t>(length)) != 0) {
            return false;
        }
        received += length;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 2;
    }
    const int fd = connected_to(atoi(argv[2]));
    const auto work = strcmp(argv[1], "send") == 0 ? send_all : receive_all;
    return work(fd, atol(argv[3])) ? 0 : 1;
}
