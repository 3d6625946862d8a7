// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "socket_faults.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "support/interpose.h"

namespace vask_test {

namespace {

// Of the thread that asked for them: GLib's own thread calls poll() when it likes.
thread_local std::string failing_function;
thread_local int error_of_failure = 0;
thread_local int failures_left = 0;

thread_local bool connect_is_interrupted = false;

bool fails(const char* function) {
    if (failures_left == 0 || failing_function != function) {
        return false;
    }
    --failures_left;
    errno = error_of_failure;
    return true;
}

}  // namespace

socket_fault::socket_fault(const std::string& function, int error, int times) {
    failing_function = function;
    error_of_failure = error;
    failures_left = times;
}

socket_fault::~socket_fault() {
    failures_left = 0;
}

int socket_fault::left() const {
    return failures_left;
}

interrupted_connect::interrupted_connect() {
    connect_is_interrupted = true;
}

interrupted_connect::~interrupted_connect() {
    connect_is_interrupted = false;
}

bool interrupted_connect::happened() const {
    return !connect_is_interrupted;
}

}  // namespace vask_test

using vask_test::connect_is_interrupted;
using vask_test::fails;
using vask_test::next_function;

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
    return fails("socket") ? -1
                           : next_function<int(int, int, int)>("socket")(domain, type, protocol);
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t length) noexcept {
    return fails("setsockopt") ? -1
                               : next_function<int(int, int, int, const void*, socklen_t)>(
                                     "setsockopt")(fd, level, name, value, length);
}

int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
    return fails("bind")
               ? -1
               : next_function<int(int, const sockaddr*, socklen_t)>("bind")(fd, address, length);
}

int listen(int fd, int backlog) noexcept {
    return fails("listen") ? -1 : next_function<int(int, int)>("listen")(fd, backlog);
}

int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    return fails("accept4") ? -1
                            : next_function<int(int, sockaddr*, socklen_t*, int)>("accept4")(
                                  fd, address, length, flags);
}

int connect(int fd, const sockaddr* address, socklen_t length) {
    if (fails("connect")) {
        return -1;
    }
    const int result =
        next_function<int(int, const sockaddr*, socklen_t)>("connect")(fd, address, length);
    if (connect_is_interrupted) {
        connect_is_interrupted = false;
        errno = EINTR;
        return -1;
    }
    return result;
}

int poll(pollfd* descriptors, nfds_t count, int timeout_msec) {
    return fails("poll")
               ? -1
               : next_function<int(pollfd*, nfds_t, int)>("poll")(descriptors, count, timeout_msec);
}

ssize_t recvfrom(int fd, void* buffer, size_t size, int flags, sockaddr* address,
                 socklen_t* length) {
    return fails("recvfrom")
               ? -1
               : next_function<ssize_t(int, void*, size_t, int, sockaddr*, socklen_t*)>("recvfrom")(
                     fd, buffer, size, flags, address, length);
}
}
