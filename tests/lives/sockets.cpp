// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Servers, clients and what they accept in a random program.

#include <glib.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "life.h"
#include "vask_socket.h"

namespace vask_test {

namespace {

constexpr int slots = 3;
constexpr int sockets_of_a_life = 8;

class sockets;

// Whose handlers the sockets of one slot call. It is there for the whole life.
class socket_owner : public vask_exec {
public:
    socket_owner(sockets& owner, life& its_life, int slot)
        : m_owner(owner), m_life(its_life), m_slot(slot) {}

    vask_obj_exec_info read_handler() {
        ++m_expected;
        return {static_cast<vask_exec_func>(&socket_owner::read), nullptr, this};
    }
    void not_expected() { --m_expected; }

    vask_obj_exec_info accepted_handler() {
        return {static_cast<vask_exec_func>(&socket_owner::accepted), nullptr, this};
    }

private:
    void read(void* socket);
    void accepted(void* argument);

    sockets& m_owner;
    life& m_life;
    const int m_slot;
    int m_expected = 0;
};

class live_server : public vask_server_socket {
public:
    live_server(vask_sock_proto proto) : vask_server_socket(proto, 0) {}

    // The latest attempt's, or 0.
    int port() const {
        sockaddr_in address = {};
        socklen_t length = sizeof address;
        getsockname(m_sock, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

    // Connecting blocks while there is none. A listening socket tells there how many connections
    // wait, and how many may.
    bool has_room() const {
        tcp_info info = {};
        socklen_t length = sizeof info;
        return getsockopt(m_sock, IPPROTO_TCP, TCP_INFO, &info, &length) != 0 ||
               info.tcpi_unacked < info.tcpi_sacked;
    }
};

class sockets : public family {
public:
    static constexpr int number = 1;

    explicit sockets(life& owner) {
        for (int slot = 0; slot < sockets_of_a_life; ++slot) {
            m_owners.emplace_back(new socket_owner(*this, owner, slot));
        }
    }

    vask_socket* at(int place) { return m_sockets[place % sockets_of_a_life].get(); }

    // Where the socket is that a step means; the first place when there is none.
    int place(int slot, int value) const {
        std::vector<int> taken;
        for (int i = 0; i < sockets_of_a_life; ++i) {
            if (m_sockets[i] != nullptr) {
                taken.push_back(i);
            }
        }
        const std::size_t number = static_cast<std::size_t>(slot + 3 * value);
        return taken.empty() ? 0 : taken[number % taken.size()];
    }

    live_server* server(int slot) { return m_servers[slot % slots].get(); }
    socket_owner& owner(int slot) { return *m_owners[static_cast<std::size_t>(slot)]; }

    void make_server(int slot, vask_sock_proto proto) {
        m_protos[slot % slots] = proto;
        m_servers[slot % slots].reset(new live_server(proto));
        server(slot)->set_accepted_handler(owner(slot % slots).accepted_handler());
    }

    void end_server(int slot) {
        const std::unique_ptr<live_server> last = std::move(m_servers[slot % slots]);
    }

    // In the first free place; where there is none it ends at once.
    void keep(vask_socket* socket) {
        std::unique_ptr<vask_socket> owned(socket);
        for (auto& place : m_sockets) {
            if (place == nullptr) {
                place = std::move(owned);
                return;
            }
        }
    }

    void connect(int slot, const char* encoding) {
        if (server(slot) == nullptr || server(slot)->port() == 0 || !server(slot)->has_room()) {
            return;
        }
        std::unique_ptr<vask_client_socket> client(new vask_client_socket(
            "127.0.0.1", m_protos[slot % slots], server(slot)->port(), encoding));
        client->start_connect();
        keep(client.release());
    }

    void request(int slot, int how) {
        // How much at most, how much at least, and for how many seconds.
        static const gsize sizes[][2] = {{1, 1}, {100, 1},     {100, 100},
                                         {0, 0}, {5000, 1000}, {3, 9}};
        ask_for(at(slot), owner(slot % sockets_of_a_life), sizes[how % 6], how > 6 ? 1 : 0);
    }

    static void ask_for(vask_socket* socket, socket_owner& owner, const gsize (&size)[2],
                        int timeout) {
        if (socket != nullptr &&
            !socket->set_read_request(owner.read_handler(), size[0], size[1], timeout)) {
            owner.not_expected();
        }
    }

    // Text in any encoding, and so much that no buffer of the system is full.
    static void write(vask_socket* socket, int how) {
        static const int counts[] = {1, 3, 100, 5000, 0, 1};
        if (socket != nullptr) {
            const std::string text(static_cast<std::size_t>(counts[how % 6]), 'x');
            socket->write(text.data(), static_cast<gssize>(text.size()));
        }
    }

    void end(int slot) {
        const std::unique_ptr<vask_socket> last = std::move(m_sockets[slot % sockets_of_a_life]);
    }

    void end() override {
        for (int slot = 0; slot < slots; ++slot) {
            end_server(slot);
        }
        for (int slot = 0; slot < sockets_of_a_life; ++slot) {
            end(slot);
        }
    }

    reactions answers(int slot);

private:
    // Behind everything that calls them.
    std::vector<std::unique_ptr<socket_owner>> m_owners;
    vask_sock_proto m_protos[slots] = {};
    std::unique_ptr<live_server> m_servers[slots];
    std::unique_ptr<vask_socket> m_sockets[sockets_of_a_life];
};

reactions sockets::answers(int slot) {
    reactions possible;
    possible.delete_self = [this, slot] { end(slot); };
    possible.delete_other = [this, slot] { end(slot + 1); };
    possible.again = [this, slot] {
        write(at(slot), slot);
        request(slot, slot);
    };
    return possible;
}

void socket_owner::read(void* socket) {
    if (--m_expected < 0) {
        m_life.blame("a read request has ended twice");
    }
    vask_socket* reader = m_owner.at(m_slot);
    if (reader == socket && reader != nullptr) {
        // What has come must be there, for as long as it says.
        const vask_sock_read_context& context = reader->m_read_context;
        if (context.reading || (context.complete && context.received < context.least_size)) {
            m_life.blame("a read request has ended before its end");
        }
        std::string text(context.buffer ? context.buffer : "", context.received);
        if (text.find_first_not_of('x') != std::string::npos) {
            m_life.blame("a read request has brought what nobody has sent");
        }
    }
    m_life.react("on_read", m_owner.answers(m_slot));
}

void socket_owner::accepted(void* argument) {
    auto connection = static_cast<vask_accepted_info*>(argument);
    if (connection->sock != nullptr) {
        m_owner.keep(connection->sock);
    }
    sockets& owner = m_owner;
    const int slot = m_slot;
    reactions possible = owner.answers(slot);
    possible.delete_self = [&owner, slot] { owner.end_server(slot); };
    possible.again = [connection] { connection->keep_accepting = false; };
    m_life.react("on_accepted", possible);
}

using step = std::function<void(sockets&, int slot, int value)>;

operation_kind with_sockets(const char* name, double weight, const step& what) {
    return {name, sockets::number, weight,
            [what](life& the, int slot, int value) { what(the.of<sockets>(), slot, value); }};
}

std::vector<operation_kind> server_kinds() {
    return {
        with_sockets("server", 8,
                     [](sockets& all, int slot, int value) {
                         all.make_server(slot, value > 8 ? VASK_SOCK_UDP : VASK_SOCK_TCP);
                         all.server(slot)->start_service();
                     }),
        with_sockets("start_again", 1,
                     [](sockets& all, int slot, int) {
                         if (all.server(slot) != nullptr) {
                             all.server(slot)->start_service();
                         }
                     }),
        with_sockets("delete_server", 3, [](sockets& all, int slot, int) { all.end_server(slot); }),
        with_sockets("server_reads", 4,
                     [](sockets& all, int slot, int value) {
                         const gsize size[2] = {100, 1};
                         sockets::ask_for(all.server(slot), all.owner(slot), size, value % 2);
                     }),
        with_sockets("server_closes", 2,
                     [](sockets& all, int slot, int value) {
                         if (all.server(slot) != nullptr) {
                             all.server(slot)->close_peer_sock(value % 2);
                         }
                     }),
        with_sockets("server_accepts", 2, [](sockets& all, int slot, int) {
            if (all.server(slot) != nullptr) {
                all.server(slot)->set_watch_accepted();
            }
        })};
}

}  // namespace

std::vector<operation_kind> socket_kinds() {
    std::vector<operation_kind> all = server_kinds();
    const std::vector<operation_kind> more = {
        with_sockets("connect", 14,
                     [](sockets& those, int slot, int value) {
                         const char* const encodings[] = {nullptr, nullptr, "UTF-8", "ISO-8859-1"};
                         those.connect(slot, encodings[value % 4]);
                     }),
        with_sockets("read", 14,
                     [](sockets& those, int slot, int value) {
                         those.request(those.place(slot, value), value);
                     }),
        with_sockets("write", 14,
                     [](sockets& those, int slot, int value) {
                         sockets::write(those.at(those.place(slot, value / 2)), value);
                     }),
        with_sockets("close", 4,
                     [](sockets& those, int slot, int value) {
                         if (those.at(those.place(slot, value)) != nullptr) {
                             those.at(those.place(slot, value))->close_peer_sock(value % 2);
                         }
                     }),
        with_sockets("copy", 3,
                     [](sockets& those, int slot, int value) {
                         if (those.at(those.place(slot, value)) != nullptr) {
                             those.keep(new vask_socket(*those.at(those.place(slot, value))));
                         }
                     }),
        with_sockets("delete_socket", 6, [](sockets& those, int slot, int value) {
            those.end(those.place(slot, value));
        })};
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

std::unique_ptr<family> make_sockets(life& owner) {
    return std::unique_ptr<family>(new sockets(owner));
}

}  // namespace vask_test
