// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SOCKET_OWNERS_H
#define VASK_TEST_SOCKET_OWNERS_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "raw_socket.h"
#include "support/source_line.h"
#include "vask_socket.h"
#include "vask_test/googletest.h"
#include "vask_test/main_loop.h"
#include "vask_test/resource_count.h"
#include "vask_test/timeout_factor.h"

namespace vask_test {

/** Keeps what the latest read request of a socket has come to. */
class request_owner : public vask_exec {
public:
    vask_obj_exec_info handler(void* data = nullptr) {
        return {static_cast<vask_exec_func>(&request_owner::done), data, this};
    }

    int calls = 0;
    vask_socket* socket = nullptr;
    int status = -1;
    bool complete = false;
    std::string received;

    /** Runs last in the handler; may delete the socket. */
    std::function<void(vask_socket*)> then;

private:
    void done(void* argument) {
        socket = static_cast<vask_socket*>(argument);
        const vask_sock_read_context& context = socket->m_read_context;
        ++calls;
        status = context.status;
        complete = context.complete;
        received.assign(context.buffer != nullptr ? context.buffer : "", context.received);
        if (then) {
            then(socket);
        }
    }
};

/** Keeps the sockets that a server hands out. */
class accept_owner : public vask_exec {
public:
    vask_obj_exec_info handler() {
        return {static_cast<vask_exec_func>(&accept_owner::accepted), nullptr, this};
    }

    int calls = 0;
    bool keep_accepting = true;
    std::vector<std::unique_ptr<vask_socket>> sockets;

    /** What the handler was called with; gone when it has returned. */
    const void* info = nullptr;

    /** Runs last in the handler. */
    std::function<void()> then;

private:
    void accepted(void* argument) {
        auto* connection = static_cast<vask_accepted_info*>(argument);
        ++calls;
        info = argument;
        sockets.emplace_back(connection->sock);
        if (!keep_accepting) {
            connection->keep_accepting = false;
        }
        if (then) {
            then();
        }
    }
};

/** Any of the socket classes, with what its subclasses see. */
template <typename Socket>
class open_socket : public Socket {
public:
    using Socket::m_read_done_handler;
    using Socket::m_read_watch_id;
    using Socket::peer_ch;
    using Socket::peer_sock;
    using Socket::Socket;
};

class open_server : public open_socket<vask_server_socket> {
public:
    using open_socket::open_socket;
    using vask_server_socket::m_accept_watch_id;
    using vask_server_socket::m_accepted_handler;
    using vask_server_socket::m_sock;
    using vask_server_socket::sock_ch;

    /** The port that the system has chosen. */
    int port() const;
};

/** A started TCP server on a port of its own. */
class served {
public:
    served() : server(VASK_SOCK_TCP, 0) {
        server.set_accepted_handler(owner.handler());
        server.start_service();
    }

    /** A client whose connection has been accepted. */
    raw_socket client();

    accept_owner owner;
    open_server server;
};

/** A client of the library, connected to a peer without it. */
class connected {
public:
    explicit connected(const char* encoding = nullptr);

    raw_socket listener = raw_socket::listening();
    open_socket<vask_client_socket> socket;
    raw_socket peer;
    request_owner owner;

    bool read(gsize size, gsize least, int timeout = 0, void* data = nullptr) {
        return socket.set_read_request(owner.handler(data), size, least, timeout);
    }

    /** Whether the request ends in time. */
    bool wait_for_end_of_request() {
        return wait_until([this] { return !socket.m_read_context.reading; });
    }
};

constexpr char server_name[] = "vask_server_socket::vask_server_socket(vask_sock_proto, int)";
constexpr char no_name[] = "<No Name>";
constexpr char client_name[] =
    "vask_client_socket::vask_client_socket(const char*, vask_sock_proto, int, const gchar*)";

/** A log line of the sockets. */
inline testing::Matcher<const log_line&> socket_line(const char* level, const char* name,
                                                     const std::string& text) {
    return logged(level, name, testing::Matcher<std::string>(from_line_of("vask_socket", text)));
}

/** The line of an encoding that does not exist. Which of its two reasons GLib gives depends on what
 *  has been converted before. */
inline testing::Matcher<const log_line&> unknown_encoding_line(const char* name,
                                                               const std::string& signature) {
    const std::string failure = signature + "Failed to call g_io_channel_set_encoding(): 0: ";
    return testing::AnyOf(
        socket_line("ERR", name,
                    failure + "Conversion from character set “NO-SUCH-ENCODING” to “UTF-8” is not "
                              "supported"),
        socket_line("ERR", name,
                    failure + "Could not open converter from “NO-SUCH-ENCODING” to “UTF-8”: No "
                              "such file or directory"));
}

/** Everything is printed while it lives. */
class debug_messages {
public:
    debug_messages() { vask_object::print_msg_level = VASK_P_DBG; }
    ~debug_messages() { vask_object::print_msg_level = m_former; }

private:
    int m_former = vask_object::print_msg_level;
};

/** A socket option that is on or off. */
bool option_is_set(int fd, int option);

/** All byte values, several times. */
std::string every_byte(int times = 1);

/** Dispatches of the main loop that happen within some time. */
int dispatches_within(int msec);

}  // namespace vask_test

#endif
