// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_child.h"

#include <dbus/dbus-glib-lowlevel.h>
#include <dbus/dbus-glib.h>
#include <dbus/dbus.h>
#include <glib-object.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "bus/bus_names.h"
#include "bus/session_bus.h"
#include "child/vask_child_object.h"
#include "foundation/exec_call.h"
#include "foundation/glib_handles.h"
#include "foundation/life_mark.h"

namespace {

// dbus-glib ends the process when a second object is registered at the same path. A registered
// object stays until the process ends.
bool process_has_child_on_bus = false;

// How long a bus that reads nothing may hold up the end of a child.
constexpr int bus_patience_msec = 5000;

bool request_name(DBusGConnection* connection, const char* name, GError** error) {
    const unique_bus_proxy proxy = new_bus_daemon_proxy(connection);
    g_assert(proxy != NULL);
    // Nobody looks at the answer: a place in the queue for the name counts as success as well.
    guint answer = 0;
    return dbus_g_proxy_call(proxy.get(), "RequestName", error, G_TYPE_STRING, name, G_TYPE_UINT, 0,
                             G_TYPE_INVALID, G_TYPE_UINT, &answer, G_TYPE_INVALID);
}

bool matches(const vask_child_signal_closure& closure, vask_child_signal_cb callback, int signal_id,
             void* user_data) {
    return closure.callback == callback && closure.signal_id == signal_id &&
           closure.user_data == user_data;
}

}  // namespace

// The private data of a vask_child: its presence on the bus, and its life.
class vask_child_state {
public:
    explicit vask_child_state(vask_child& child) : m_child(child) {}
    ~vask_child_state() {
        if (is_on_bus()) {
            dbus_connection_remove_filter(raw_connection(), on_message, this);
        }
    }
    vask_child_state(const vask_child_state&) = delete;
    vask_child_state& operator=(const vask_child_state&) = delete;

    // From now on the child hears of the bus's end.
    void join_bus(unique_bus_connection connection) {
        m_connection = std::move(connection);
        dbus_connection_add_filter(raw_connection(), on_message, this, nullptr);
    }

    bool is_on_bus() const { return m_connection != nullptr; }

    // The bus is waited for again, although it was given up before.
    void trust_bus() { m_bus_is_stuck = false; }

    // What the bus library still queues would be lost with the process.
    void hand_over_all() {
        if (!m_bus_is_stuck && !hand_over(m_connection.get(), bus_patience_msec)) {
            m_bus_is_stuck = true;
            m_child.vask_p(VASK_P_ERR, "The bus does not read; messages of this child are lost\n");
        }
    }

    life_marks life;

private:
    DBusConnection* raw_connection() const {
        return dbus_g_connection_get_connection(m_connection.get());
    }

    static DBusHandlerResult on_message(DBusConnection*, DBusMessage* message, void* data) {
        if (dbus_message_is_signal(message, DBUS_INTERFACE_LOCAL, "Disconnected")) {
            static_cast<vask_child_state*>(data)->bus_lost();
        }
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    }

    // Nobody can reach the child any more: it has lost its purpose.
    void bus_lost() {
        m_child.vask_p(VASK_P_ERR, "%s\n", session_bus_is_lost);
        m_child.m_init_ok = false;  // ends a run() that has not begun yet
        m_child.app_quit_request(1);
    }

    vask_child& m_child;
    // Null while the child is not on the bus. Once there, it stays until the child ends.
    unique_bus_connection m_connection;
    // The bus was waited for in vain: run() and the child's end do not both wait.
    bool m_bus_is_stuck = false;
};

vask_child::vask_child(const char* name, int argc, char** argv)
    : vask_app(name, argc, argv),
      m_bus_object(nullptr),
      m_state(std::make_unique<vask_child_state>(*this)) {
    if (m_no_sys_init) {
        return;
    }
    if (process_has_child_on_bus) {
        vask_p(VASK_P_ERR, "This process has a child on the bus already\n");
        return;
    }
    dbus_g_thread_init();
    m_bus_object = vask_child_object_new(this);
    join_bus();
}

vask_child::~vask_child() {
    if (m_state->is_on_bus()) {
        // The registered object stays on the bus until the process ends, without an owner.
        vask_child_object_set_owner(m_bus_object, nullptr);
        m_state->hand_over_all();
    } else if (m_bus_object != nullptr) {
        g_object_unref(m_bus_object);
    }
}

void vask_child::join_bus() {
    gerror_holder error;
    unique_bus_connection connection = open_session_bus(error.out());
    if (!connection) {
        vask_p(VASK_P_ERR, "Failed to get DBUS connection: %s", error->message);
        return;
    }

    char name[256];
    snprintf(name, sizeof(name), VASK_CHILD_NAME_FORMAT, getpid());
    if (!request_name(connection.get(), name, error.out())) {
        vask_p(VASK_P_ERR, "RequestName for '%s'' failed: %s\n", name, error->message);
        return;
    }

    dbus_g_connection_register_g_object(connection.get(), VASK_CHILD_PATH, G_OBJECT(m_bus_object));
    process_has_child_on_bus = true;
    m_state->join_bus(std::move(connection));
}

int vask_child::run() {
    m_state->trust_bus();
    const int code = vask_app::run();
    // Not before: the reply to the command that asks for the end is queued when its handler
    // returns.
    if (m_state->is_on_bus()) {
        m_state->hand_over_all();
    }
    return code;
}

void vask_child::emit_signal(int signal_id, const char* data) {
    const life_mark life(m_state->life);
    observe_signal(signal_id, data);
    if (life.is_over()) {
        return;
    }
    if (const char* problem = find_text_problem(data)) {
        vask_p(VASK_P_ERR, "Failed to emit signal %d: %s\n", signal_id, problem);
        return;
    }
    if (m_bus_object != nullptr) {
        vask_child_object_emit(m_bus_object, signal_id, data);
    }
}

void vask_child::set_window(int x, int y, int w, int h, unsigned int id) {
    vask_p(VASK_P_DBG, "%s: (x, y, w, h, id) = (%d, %d, %d, %d, %x)\n",
           "virtual void vask_child::set_window(int, int, int, int, guint)", x, y, w, h, id);
}

bool vask_child::command(int id, const char* argument, const char** reply) {
    vask_p(VASK_P_DBG, "%s: received a command: %d\n",
           "virtual bool vask_child::command(int, const char*, const char**)", id);
    const auto handler = m_cmd_handlers.find(id);
    if (handler == m_cmd_handlers.end()) {
        vask_p(VASK_P_WARN, "Command ID: %d is not supported\n", id);
        return false;
    }
    *reply = nullptr;
    return call_member(this, handler->second, argument, reply);
}

void vask_child::connect_child_signal(vask_child_signal_cb callback, int signal_id,
                                      void* user_data) {
    m_signal_closures.push_back({callback, user_data, signal_id});
}

void vask_child::disconnect_child_signal(vask_child_signal_cb callback, int signal_id,
                                         void* user_data) {
    const auto removed = [&](const vask_child_signal_closure& closure) {
        return matches(closure, callback, signal_id, user_data);
    };
    m_signal_closures.erase(
        std::remove_if(m_signal_closures.begin(), m_signal_closures.end(), removed),
        m_signal_closures.end());
}

void vask_child::observe_signal(int signal_id, const char* data) {
    // An observer may connect and disconnect observers: the walk is over those that were there at
    // the start, less those that are gone when their turn comes.
    const std::vector<vask_child_signal_closure> observers = m_signal_closures;
    const life_mark life(m_state->life);
    for (const vask_child_signal_closure& observer : observers) {
        if (observer.signal_id != signal_id) {
            continue;
        }
        const auto same = [&](const vask_child_signal_closure& closure) {
            return matches(closure, observer.callback, signal_id, observer.user_data);
        };
        if (std::any_of(m_signal_closures.begin(), m_signal_closures.end(), same)) {
            observer.callback(this, signal_id, data, observer.user_data);
            if (life.is_over()) {
                return;
            }
        }
    }
}

void vask_child::add_cmd_handler(int id, cmd_handler handler) {
    m_cmd_handlers[id] = handler;
}
