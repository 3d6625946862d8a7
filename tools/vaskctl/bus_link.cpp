// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "bus_link.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <exception>
#include <utility>

#include "complaint.h"

namespace vaskctl {

namespace {

constexpr char bus_name[] = "org.freedesktop.DBus";
constexpr char bus_path[] = "/org/freedesktop/DBus";

// Where the session bus is. The bus libraries would start one by themselves where there is none,
// and nobody would take it down.
std::string find_address() {
    const char* address = getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address != nullptr && *address != '\0') {
        return address;
    }
    const char* directory = getenv("XDG_RUNTIME_DIR");
    struct stat socket;
    const std::string path = std::string(directory != nullptr ? directory : "") + "/bus";
    if (directory != nullptr && stat(path.c_str(), &socket) == 0 && S_ISSOCK(socket.st_mode)) {
        gchar* escaped = g_dbus_address_escape_value(path.c_str());
        const std::string found = std::string("unix:path=") + escaped;
        g_free(escaped);
        return found;
    }
    throw complaint(status_no_bus,
                    "there is no session bus: run it in the session, or set "
                    "DBUS_SESSION_BUS_ADDRESS (/proc/PID/environ of a child has it)");
}

struct opening {
    GDBusConnection* connection = nullptr;
    GError* error = nullptr;
    bool is_over = false;
};

void finish_opening(GObject*, GAsyncResult* result, gpointer data) {
    auto* attempt = static_cast<opening*>(data);
    attempt->connection = g_dbus_connection_new_for_address_finish(result, &attempt->error);
    attempt->is_over = true;
}

gboolean wake(gpointer) {
    return G_SOURCE_CONTINUE;
}

void run_main_loop_until(const bool& is_over, const deadline& until) {
    while (!is_over && !until.is_over()) {
        const guint alarm = g_timeout_add(static_cast<guint>(until.left_msec()), wake, nullptr);
        g_main_context_iteration(nullptr, TRUE);
        g_source_remove(alarm);
    }
}

}  // namespace

struct bus_link::state {
    int open_calls = 0;
    bool is_idle = true;
    bool is_given_up = false;
    std::exception_ptr problem;
};

struct bus_link::pending {
    std::shared_ptr<state> link;
    handler handle;
    gint64 begin;
};

bus_link::bus_link(const deadline& until) : m_state(std::make_shared<state>()) {
    const std::string address = find_address();
    // Left behind where the bus does not answer: its end comes after that of this function.
    auto* attempt = new opening;
    GCancellable* cancellable = g_cancellable_new();
    g_dbus_connection_new_for_address(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, cancellable, finish_opening, attempt);
    run_main_loop_until(attempt->is_over, until);
    if (!attempt->is_over) {
        g_cancellable_cancel(cancellable);
        g_object_unref(cancellable);
        throw complaint(status_no_bus, "the session bus does not answer: is it stopped?");
    }
    g_object_unref(cancellable);
    m_connection = attempt->connection;
    if (m_connection == nullptr) {
        const std::string reason = attempt->error->message;
        g_error_free(attempt->error);
        delete attempt;
        throw complaint(status_no_bus, "the session bus cannot be reached: " + reason);
    }
    delete attempt;
    g_dbus_connection_set_exit_on_close(m_connection, FALSE);
}

bus_link::~bus_link() {
    m_state->is_given_up = true;
    if (m_connection != nullptr) {
        g_object_unref(m_connection);
    }
}

void bus_link::finish(GObject* source, GAsyncResult* result, gpointer data) {
    const std::unique_ptr<pending> call(static_cast<pending*>(data));
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
    const double msec = static_cast<double>(g_get_monotonic_time() - call->begin) / 1000;
    state& link = *call->link;
    if (!link.is_given_up) {
        // No exception may go through GLib.
        try {
            call->handle({reply, error, msec});
        } catch (...) {
            link.problem = std::current_exception();
        }
        link.is_idle = --link.open_calls == 0;
    }
    g_clear_error(&error);
    g_clear_pointer(&reply, g_variant_unref);
}

void bus_link::call(const std::string& name, const char* path, const char* interface,
                    const char* method, GVariant* arguments, const handler& handle,
                    int timeout_msec) {
    ++m_state->open_calls;
    m_state->is_idle = false;
    auto* call = new pending{m_state, handle, g_get_monotonic_time()};
    g_dbus_connection_call(m_connection, name.c_str(), path, interface, method, arguments, nullptr,
                           G_DBUS_CALL_FLAGS_NO_AUTO_START, timeout_msec, nullptr, finish, call);
}

void bus_link::send(const std::string& name, const char* path, const char* interface,
                    const char* method, GVariant* arguments) {
    GDBusMessage* message = g_dbus_message_new_method_call(name.c_str(), path, interface, method);
    g_dbus_message_set_flags(message,
                             static_cast<GDBusMessageFlags>(G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED |
                                                            G_DBUS_MESSAGE_FLAGS_NO_AUTO_START));
    g_dbus_message_set_body(message, arguments);
    GError* error = nullptr;
    const bool is_sent =
        g_dbus_connection_send_message(m_connection, message, G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, &error) &&
        g_dbus_connection_flush_sync(m_connection, nullptr, &error);
    g_object_unref(message);
    if (!is_sent) {
        const std::string reason = error->message;
        g_error_free(error);
        throw complaint(status_no_bus, "the session bus does not take it: " + reason);
    }
}

void bus_link::call_bus(const char* method, GVariant* arguments, const handler& handle) {
    call(bus_name, bus_path, bus_name, method, arguments, handle);
}

void bus_link::wait(const deadline& until) {
    run_main_loop_until(m_state->is_idle, until);
    if (m_state->problem) {
        std::rethrow_exception(std::exchange(m_state->problem, nullptr));
    }
    if (!m_state->is_idle) {
        m_state->is_given_up = true;
        m_state = std::make_shared<state>();
    }
}

std::string text_in(GVariant* reply) {
    const gchar* text = nullptr;
    if (reply != nullptr && g_variant_is_of_type(reply, G_VARIANT_TYPE("(s)"))) {
        g_variant_get(reply, "(&s)", &text);
    }
    return text != nullptr ? text : "";
}

}  // namespace vaskctl
