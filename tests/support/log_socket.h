// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_LOG_SOCKET_H
#define VASK_TEST_LOG_SOCKET_H

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "support/private_mounts.h"

namespace vask_test {

/** An empty /dev that only this thread sees: the C library then talks to the test alone. */
class private_dev {
public:
    private_dev()
        : m_mounted(enter_private_mounts() &&
                    mount("tmpfs", "/dev", "tmpfs", 0, "mode=0755") == 0) {}
    ~private_dev() {
        if (m_mounted) {
            umount2("/dev", MNT_DETACH);
        }
    }

    bool is_mounted() const { return m_mounted; }

private:
    const bool m_mounted;
};

/** Messages go to syslog, which is this test's own. */
class syslog_route : public testing::Test {
protected:
    void SetUp() override {
        if (!m_dev.is_mounted()) {
            GTEST_SKIP() << "needs the right to mount";
        }
        setenv("VASK_SYSLOG", "1", 1);
    }

    const private_dev m_dev;
};

/** What the daemon would receive. */
class log_socket {
public:
    log_socket() : m_socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&m_address), sizeof m_address),
                  0);
    }
    ~log_socket() { close(m_socket); }
    log_socket(const log_socket&) = delete;
    log_socket& operator=(const log_socket&) = delete;

    /** Reads what has come. */
    std::vector<std::string> datagrams() const {
        std::vector<std::string> result;
        char buffer[8192];
        ssize_t length;
        while ((length = recv(m_socket, buffer, sizeof buffer, 0)) >= 0) {
            result.emplace_back(buffer, static_cast<size_t>(length));
        }
        return result;
    }

    /** Reads until a condition holds, and what has come by then. */
    std::string read_until(const std::function<bool()>& condition) const {
        std::string all;
        for (bool is_over = false; !is_over;) {
            is_over = condition();
            for (const std::string& datagram : datagrams()) {
                all += datagram + "\n";
            }
        }
        return all;
    }

    /** Nobody can send more until datagrams() has read it. */
    void fill() const {
        const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        EXPECT_EQ(connect(sender, reinterpret_cast<const sockaddr*>(&m_address), sizeof m_address),
                  0);
        while (send(sender, "x", 1, 0) == 1) {
        }
        EXPECT_EQ(errno, EAGAIN);
        close(sender);
    }

private:
    const sockaddr_un m_address = [] {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, "/dev/log");
        return address;
    }();
    const int m_socket;
};

}  // namespace vask_test

#endif
