// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SOCKET_FAULTS_H
#define VASK_TEST_SOCKET_FAULTS_H

#include <string>

namespace vask_test {

/** While it lives, this thread's calls of one function on sockets fail: socket, setsockopt, bind,
 *  listen, accept4, connect, recvfrom, poll. */
class socket_fault {
public:
    /** The first `times` calls fail with the error; the function is not carried out. */
    socket_fault(const std::string& function, int error, int times = 1);
    ~socket_fault();
    socket_fault(const socket_fault&) = delete;
    socket_fault& operator=(const socket_fault&) = delete;

    /** How many calls are still to fail. */
    int left() const;
};

/** While it lives, this thread's first connect() goes on by itself and reports that it was
 *  interrupted. */
class interrupted_connect {
public:
    interrupted_connect();
    ~interrupted_connect();
    interrupted_connect(const interrupted_connect&) = delete;
    interrupted_connect& operator=(const interrupted_connect&) = delete;

    bool happened() const;
};

}  // namespace vask_test

#endif
