// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "socket_peer.h"

#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

namespace {

// The same as that of the library's server.
constexpr int backlog = 1;

[[noreturn]] void give_up(const char* what) {
    perror(what);
    _exit(1);
}

int connected_to(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        give_up("connect");
    }
    return fd;
}

template <typename Work>
pid_t fork_peer(const Work& work) {
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        work();
        _exit(0);
    }
    return pid;
}

void end_peer(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

bool ask(int fd, std::vector<char>& request) {
    return send(fd, request.data(), request.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(request.size()) &&
           recv(fd, request.data(), request.size(), MSG_WAITALL) ==
               static_cast<ssize_t>(request.size());
}

void make_connections(int port, int count) {
    std::vector<char> request(connection_request_size, 'x');
    for (int i = 0; i < count; ++i) {
        const int fd = connected_to(port);
        if (!ask(fd, request)) {
            give_up("answer");
        }
        close(fd);
    }
}

void make_connections_at_once(int port, int count) {
    std::vector<char> request(connection_request_size, 'x');
    std::vector<int> connections;
    for (int i = 0; i < count; ++i) {
        connections.push_back(connected_to(port));
        // It is accepted then, and makes room for the next one in the queue.
        if (!ask(connections.back(), request)) {
            give_up("answer");
        }
    }
    for (const int fd : connections) {
        if (!ask(fd, request)) {
            give_up("answer");
        }
    }
    for (const int fd : connections) {
        close(fd);
    }
}

}  // namespace

int open_listener() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || listen(fd, backlog) != 0) {
        give_up("listen");
    }
    return fd;
}

int port_of(int fd) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

template <typename Work>
socket_peer::socket_peer(const Work& work) {
    const int listener = open_listener();
    const int port = port_of(listener);
    m_pid = fork_peer([&work, port] { work(connected_to(port)); });
    m_fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    close(listener);
}

socket_peer socket_peer::asking(size_t size) {
    return socket_peer([size](int fd) {
        std::vector<char> request(size, 'x');
        while (ask(fd, request)) {
        }
    });
}

socket_peer socket_peer::streaming() {
    return socket_peer([](int fd) {
        const std::vector<char> data(1 << 20, 'x');
        while (send(fd, data.data(), data.size(), MSG_NOSIGNAL) > 0) {
        }
    });
}

socket_peer::~socket_peer() {
    end_peer(m_pid);
    if (!m_closed_elsewhere) {
        close(m_fd);
    }
}

connecting_peer::connecting_peer(int port) {
    int ends[2];
    if (pipe(ends) != 0) {
        give_up("pipe");
    }
    m_commands = ends[1];
    m_pid = fork_peer([&ends, port] {
        close(ends[1]);
        int count = 0;
        while (read(ends[0], &count, sizeof count) == sizeof count) {
            if (count > 0) {
                make_connections(port, count);
            } else {
                make_connections_at_once(port, -count);
            }
        }
    });
    close(ends[0]);
}

connecting_peer::~connecting_peer() {
    close(m_commands);
    end_peer(m_pid);
}

void connecting_peer::tell(int count) {
    if (write(m_commands, &count, sizeof count) != sizeof count) {
        give_up("write");
    }
}
