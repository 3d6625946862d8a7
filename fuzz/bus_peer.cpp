// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "bus_peer.h"

#include <glib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "target.h"

namespace vask_fuzz {

namespace {

struct bus_memory_free {
    void operator()(char* memory) const { dbus_free(memory); }
};

void write_all(int fd, const char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::send(fd, bytes, size, MSG_NOSIGNAL);
        if (written <= 0) {
            return;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
}

void write_line(int fd, const std::string& line) {
    write_all(fd, (line + "\r\n").c_str(), line.size() + 2);
}

std::string read_line(int fd) {
    std::string line;
    for (char c; read(fd, &c, 1) == 1 && c != '\n';) {
        if (c != '\0' && c != '\r') {
            line += c;
        }
    }
    return line;
}

bool begins_with(const std::string& text, const char* start) {
    return text.rfind(start, 0) == 0;
}

}  // namespace

bus_peer::bus_peer() : m_listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    dbus_threads_init_default();
    // A name that no file has, and that the kernel chooses.
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    socklen_t size = sizeof(sa_family_t);
    bind(m_listener, reinterpret_cast<sockaddr*>(&address), size);
    size = sizeof(address);
    getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &size);
    require(listen(m_listener, 1) == 0, "there is a socket for the bus");
    const std::string name(address.sun_path + 1, size - sizeof(sa_family_t) - 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:abstract=" + name).c_str(), 1);
    m_thread = std::thread([this] { serve(); });
    m_thread.detach();
}

void bus_peer::serve() {
    for (int fd; (fd = accept(m_listener, nullptr, nullptr)) >= 0;) {
        shake_hands(fd);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_fd = fd;
        }
        talk(fd);
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_fd = -1;
        close(fd);
    }
}

void bus_peer::shake_hands(int fd) {
    for (std::string line; !begins_with(line = read_line(fd), "BEGIN") && !line.empty();) {
        if (begins_with(line, "AUTH EXTERNAL")) {
            write_line(fd, "OK 00112233445566778899aabbccddeeff");
        } else {
            write_line(fd, "ERROR");
        }
    }
}

void bus_peer::talk(int fd) {
    std::string bytes;
    char buffer[4096];
    for (ssize_t length; (length = read(fd, buffer, sizeof(buffer))) > 0;) {
        bytes.append(buffer, static_cast<std::size_t>(length));
        for (int size; (size = dbus_message_demarshal_bytes_needed(
                            bytes.data(), static_cast<int>(bytes.size()))) > 0 &&
                       bytes.size() >= static_cast<std::size_t>(size);) {
            const unique_bus_message message(dbus_message_demarshal(bytes.data(), size, nullptr));
            require(message != nullptr, "the library sends valid messages");
            hear(message.get());
            bytes.erase(0, static_cast<std::size_t>(size));
        }
    }
}

void bus_peer::hear(DBusMessage* message) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_question != 0 && dbus_message_get_reply_serial(message) == m_question) {
        m_is_settled = true;
        g_main_context_wakeup(nullptr);
        return;
    }
    const bool is_for_bus = dbus_message_has_destination(message, DBUS_SERVICE_DBUS);
    if (!is_for_bus) {
        m_heard.emplace_back(dbus_message_copy(message));
    }
    if (dbus_message_get_type(message) != DBUS_MESSAGE_TYPE_METHOD_CALL ||
        dbus_message_get_no_reply(message)) {
        return;
    }
    const unique_bus_message answer =
        is_for_bus ? answer_to_bus_call(message) : answer_to_call(message);
    dbus_message_set_reply_serial(answer.get(), dbus_message_get_serial(message));
    send_locked(answer.get());
}

unique_bus_message bus_peer::answer_to_bus_call(DBusMessage* call) {
    unique_bus_message answer(dbus_message_new_method_return(call));
    dbus_message_set_sender(answer.get(), DBUS_SERVICE_DBUS);
    const std::string member = dbus_message_get_member(call);
    const char* text = name_of_library;
    const dbus_uint32_t number = 1;
    if (member == "RequestName") {
        dbus_message_append_args(answer.get(), DBUS_TYPE_UINT32, &number, DBUS_TYPE_INVALID);
    } else if (member == "GetNameOwner") {
        answer = answer_with_owner(call);
    } else if (member == "Hello" || member == "GetId") {
        dbus_message_append_args(answer.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    }
    return answer;
}

unique_bus_message bus_peer::answer_with_owner(DBusMessage* call) {
    const char* name = nullptr;
    dbus_message_get_args(call, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID);
    const auto owned = name != nullptr ? m_owners.find(name) : m_owners.end();
    unique_bus_message answer;
    if (owned != m_owners.end()) {
        answer.reset(dbus_message_new_method_return(call));
        const char* const owner = owned->second.c_str();
        dbus_message_append_args(answer.get(), DBUS_TYPE_STRING, &owner, DBUS_TYPE_INVALID);
    } else {
        answer.reset(dbus_message_new_error(call, DBUS_ERROR_NAME_HAS_NO_OWNER, "nobody"));
    }
    dbus_message_set_sender(answer.get(), DBUS_SERVICE_DBUS);
    return answer;
}

unique_bus_message bus_peer::answer_to_call(DBusMessage* call) {
    return m_answer
               ? unique_bus_message(dbus_message_copy(m_answer.get()))
               : unique_bus_message(dbus_message_new_error(call, DBUS_ERROR_FAILED, "not now"));
}

void bus_peer::change_owner(const std::string& name, const std::string& owner) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const std::string before = m_owners[name];
    m_owners[name] = owner;
    if (owner.empty()) {
        m_owners.erase(name);
    }
    if (owner == before) {
        return;
    }
    const unique_bus_message message(
        dbus_message_new_signal(DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "NameOwnerChanged"));
    dbus_message_set_sender(message.get(), DBUS_SERVICE_DBUS);
    const char* texts[] = {name.c_str(), before.c_str(), owner.c_str()};
    dbus_message_append_args(message.get(), DBUS_TYPE_STRING, &texts[0], DBUS_TYPE_STRING,
                             &texts[1], DBUS_TYPE_STRING, &texts[2], DBUS_TYPE_INVALID);
    send_locked(message.get());
}

void bus_peer::answer_with(unique_bus_message answer) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_answer = std::move(answer);
}

std::vector<unique_bus_message> bus_peer::take_heard() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<unique_bus_message> heard;
    heard.swap(m_heard);
    return heard;
}

void bus_peer::send(DBusMessage* message) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    send_locked(message);
}

void bus_peer::send_locked(DBusMessage* message) {
    dbus_message_set_serial(message, ++m_serial);
    dbus_message_set_destination(message, name_of_library);
    char* marshalled = nullptr;
    int size = 0;
    require(dbus_message_marshal(message, &marshalled, &size), "a message has its bytes");
    const std::unique_ptr<char, bus_memory_free> bytes(marshalled);
    write_all(m_fd, bytes.get(), static_cast<std::size_t>(size));
}

// The bus library answers a ping when it has come to it, behind everything else.
void bus_peer::settle() {
    const unique_bus_message ping(
        dbus_message_new_method_call(nullptr, "/", DBUS_INTERFACE_PEER, "Ping"));
    dbus_message_set_sender(ping.get(), DBUS_SERVICE_DBUS);
    m_is_settled = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_question = m_serial + 1;
        send_locked(ping.get());
    }
    while (!m_is_settled) {
        g_main_context_iteration(nullptr, TRUE);
    }
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

}  // namespace vask_fuzz
