#include <dbus/dbus-glib.h>
#include <glib-object.h>
#include <glib.h>

#include "bridge/vask_child_farewell.h"
#include "bus/bus_names.h"
#include "bus/session_bus.h"
#include "bus/vask_marshal.h"
#include "foundation/c_border.h"
#include "vask_app_bridge.h"

child_cmd_buffer::child_cmd_buffer(int cmd_id, const char* cmd_argument)
    : id(cmd_id), argument(null_as_empty(cmd_argument)) {}

child_cmd_buffer::child_cmd_buffer(int cmd_id, const std::string& cmd_argument)
    : id(cmd_id), argument(cmd_argument) {}

vask_child_proxy::vask_child_proxy(vask_app_bridge& bridge, const char* name, int pid,
                                   unsigned int watch_id)
    : m_bridge(bridge),
      m_pid(pid),
      m_watch_id(watch_id),
      m_terminating(false),
      m_bus_name(nullptr),
      m_connection(nullptr),
      m_bus_proxy(nullptr),
      m_bus_addr(nullptr),
      m_farewell(std::make_shared<vask_child_farewell>(bridge, *this)) {
    obj_name = name;
    vask_p(VASK_P_DBG, "Created child_proxy for %d\n", m_pid);
    if (m_pid != 0) {
        m_bus_name = g_strdup_printf(VASK_CHILD_NAME_FORMAT, m_pid);
        vask_p(VASK_P_DBG, "D-Bus Interface of the child is '%s'\n", m_bus_name);
    }
}

vask_child_proxy::~vask_child_proxy() {
    if (m_watch_id != 0) {
        g_source_remove(m_watch_id);
    }
    if (m_pid != 0) {
        g_spawn_close_pid(m_pid);
    }
    g_free(m_bus_name);
    set_bus_addr(nullptr);
    bus_destroy();
    queue_purge();
}

int vask_child_proxy::get_pid() const {
    return m_pid;
}

void vask_child_proxy::set_terminating() {
    m_terminating = true;
}

bool vask_child_proxy::is_terminating() const {
    return m_terminating;
}

bool vask_child_proxy::is_mine(const char* name) const {
    return m_bus_name != nullptr && name != nullptr && g_str_equal(m_bus_name, name);
}

const char* vask_child_proxy::get_bus_addr() const {
    return m_bus_addr;
}

void vask_child_proxy::set_bus_addr(const char* addr) {
    char* copy = g_strdup(addr);
    g_free(m_bus_addr);
    m_bus_addr = copy;
}

DBusGProxy* vask_child_proxy::get_bus_proxy() const {
    return m_bus_proxy;
}

bool vask_child_proxy::is_bus_alive() const {
    return m_bus_proxy != nullptr && is_bus_connected(m_connection);
}

void vask_child_proxy::bus_setup(DBusGConnection* connection) {
    bus_destroy();
    if (!is_bus_connected(connection) || m_bus_name == nullptr) {
        return;
    }
    m_connection = dbus_g_connection_ref(connection);
    m_bus_proxy =
        dbus_g_proxy_new_for_name(connection, m_bus_name, VASK_CHILD_PATH, VASK_CHILD_INTERFACE);
    m_farewell->watch_name(connection, m_bus_name);
    dbus_g_object_register_marshaller(g_cclosure_user_marshal_VOID__INT_STRING, G_TYPE_NONE,
                                      G_TYPE_INT, G_TYPE_STRING, G_TYPE_INVALID);
    dbus_g_proxy_add_signal(m_bus_proxy, VASK_CHILD_SIGNAL, G_TYPE_INT, G_TYPE_STRING,
                            G_TYPE_INVALID);
    dbus_g_proxy_connect_signal(m_bus_proxy, VASK_CHILD_SIGNAL, G_CALLBACK(_child_signal), this,
                                nullptr);
    dbus_g_object_register_marshaller(g_cclosure_user_marshal_VOID__UINT_INT_STRING, G_TYPE_NONE,
                                      G_TYPE_UINT, G_TYPE_INT, G_TYPE_STRING, G_TYPE_INVALID);
}

void vask_child_proxy::bus_destroy() {
    if (m_bus_proxy == nullptr) {
        return;
    }
    if (is_bus_alive()) {
        dbus_g_proxy_disconnect_signal(m_bus_proxy, VASK_CHILD_SIGNAL, G_CALLBACK(_child_signal),
                                       this);
    }
    m_farewell->leave_name();
    g_object_unref(m_bus_proxy);
    m_bus_proxy = nullptr;
    dbus_g_connection_unref(m_connection);
    m_connection = nullptr;
}

void vask_child_proxy::enqueue_cmd(child_cmd_buffer* cmd) {
    m_cmd_queue.push(cmd);
}

child_cmd_buffer* vask_child_proxy::dequeue_cmd() {
    if (m_cmd_queue.empty()) {
        return nullptr;
    }
    child_cmd_buffer* cmd = m_cmd_queue.front();
    m_cmd_queue.pop();
    return cmd;
}

void vask_child_proxy::queue_purge() {
    while (child_cmd_buffer* cmd = dequeue_cmd()) {
        delete cmd;
    }
}

void vask_child_proxy::_child_signal(DBusGProxy*, int signal_id, const char* data,
                                     void* user_data) {
    auto* child = static_cast<vask_child_proxy*>(user_data);
    vask_app_bridge& bridge = child->m_bridge;
    // The callback may delete the bridge, and this proxy with it, or let the end be reported.
    std::weak_ptr<vask_child_farewell> farewell;
    if (child->m_farewell->has_begun()) {
        farewell = child->m_farewell;
    }
    const gint64 start = g_get_monotonic_time();
    call_for_c("vask_app_bridge::child_signal()", [&] { bridge.child_signal(signal_id, data); });
    if (const auto living = farewell.lock()) {
        living->lengthen(g_get_monotonic_time() - start);
    }
}
