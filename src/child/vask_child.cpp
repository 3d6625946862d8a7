#include "vask_child.h"

#include <dbus/dbus-glib-lowlevel.h>
#include <dbus/dbus-glib.h>
#include <dbus/dbus.h>
#include <glib-object.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "bus/bus_names.h"
#include "bus/session_bus.h"
#include "child/vask_child_object.h"
#include "foundation/exec_call.h"
#include "foundation/glib_handles.h"

namespace {

// dbus-glib ends the process when a second object is registered at the same path, and a registered
// object stays until the process ends.
bool process_has_child_on_bus = false;

// How long a bus that reads nothing may hold up the end of a child.
constexpr int bus_patience_msec = 5000;

struct g_object_deleter {
    void operator()(void* object) const { g_object_unref(object); }
};

bool request_name(DBusGConnection* connection, const char* name, GError** error) {
    std::unique_ptr<DBusGProxy, g_object_deleter> proxy(new_bus_daemon_proxy(connection));
    g_assert(proxy != NULL);
    // A queued answer counts as success as well, so nobody looks at it.
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

// A child's presence on the bus: hears of the bus's end while the child lives.
class vask_child::bus_link {
public:
    bus_link(vask_child& child, DBusGConnection* connection)
        : m_child(child), m_connection(connection), m_bus_is_stuck(false) {
        dbus_connection_add_filter(dbus_g_connection_get_connection(m_connection), on_message, this,
                                   nullptr);
    }

    ~bus_link() {
        dbus_connection_remove_filter(dbus_g_connection_get_connection(m_connection), on_message,
                                      this);
        dbus_g_connection_unref(m_connection);
    }

    bus_link(const bus_link&) = delete;
    bus_link& operator=(const bus_link&) = delete;

    // The bus is waited for again, although it was given up before.
    void trust_bus() { m_bus_is_stuck = false; }

    // What the bus library still queues would be lost with the process.
    void hand_over_all() {
        if (!m_bus_is_stuck && !hand_over(m_connection, bus_patience_msec)) {
            m_bus_is_stuck = true;
            m_child.vask_p(VASK_P_ERR, "The bus does not read; messages of this child are lost\n");
        }
    }

private:
    static DBusHandlerResult on_message(DBusConnection*, DBusMessage* message, void* data) {
        if (dbus_message_is_signal(message, DBUS_INTERFACE_LOCAL, "Disconnected")) {
            static_cast<bus_link*>(data)->bus_lost();
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
    DBusGConnection* m_connection;
    bool m_bus_is_stuck;  // and was waited for; the end of run() and that of the child are one end
};

vask_child::vask_child(const char* name, int argc, char** argv)
    : vask_app(name, argc, argv),
      m_bus_object(nullptr),
      m_bus_link(nullptr),
      m_lifetime(std::make_shared<char>()) {
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
    if (m_bus_link != nullptr) {
        // The registered object stays on the bus until the process ends, without an owner.
        vask_child_object_set_owner(m_bus_object, nullptr);
        m_bus_link->hand_over_all();
        delete m_bus_link;
    } else if (m_bus_object != nullptr) {
        g_object_unref(m_bus_object);
    }
}

void vask_child::join_bus() {
    GError* error = nullptr;
    DBusGConnection* connection = open_session_bus(&error);
    if (connection == nullptr) {
        unique_g_error owned(error);
        vask_p(VASK_P_ERR, "Failed to get DBUS connection: %s", error->message);
        return;
    }

    char name[256];
    snprintf(name, sizeof(name), VASK_CHILD_NAME_FORMAT, getpid());
    if (!request_name(connection, name, &error)) {
        unique_g_error owned(error);
        vask_p(VASK_P_ERR, "RequestName for '%s'' failed: %s\n", name, error->message);
        dbus_g_connection_unref(connection);
        return;
    }

    dbus_g_connection_register_g_object(connection, VASK_CHILD_PATH, G_OBJECT(m_bus_object));
    process_has_child_on_bus = true;
    m_bus_link = new bus_link(*this, connection);
}

int vask_child::run() {
    if (m_bus_link != nullptr) {
        m_bus_link->trust_bus();
    }
    const int code = vask_app::run();
    // Not before: the reply of the handler that asks for the end is queued behind that handler.
    if (m_bus_link != nullptr) {
        m_bus_link->hand_over_all();
    }
    return code;
}

void vask_child::emit_signal(int signal_id, const char* data) {
    const std::weak_ptr<char> lifetime = m_lifetime;
    observe_signal(signal_id, data);
    if (lifetime.expired()) {
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
    const std::weak_ptr<char> lifetime = m_lifetime;
    for (const vask_child_signal_closure& observer : observers) {
        if (observer.signal_id != signal_id) {
            continue;
        }
        const auto same = [&](const vask_child_signal_closure& closure) {
            return matches(closure, observer.callback, signal_id, observer.user_data);
        };
        if (std::any_of(m_signal_closures.begin(), m_signal_closures.end(), same)) {
            observer.callback(this, signal_id, data, observer.user_data);
            if (lifetime.expired()) {
                return;
            }
        }
    }
}

void vask_child::add_cmd_handler(int id, cmd_handler handler) {
    m_cmd_handlers[id] = handler;
}
