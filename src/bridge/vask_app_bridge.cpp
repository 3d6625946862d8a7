#include "vask_app_bridge.h"

#include <dbus/dbus-glib.h>
#include <errno.h>
#include <glib-object.h>
#include <glib.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bridge/child_end_watch.h"
#include "bridge/vask_child_farewell.h"
#include "bus/bus_names.h"
#include "bus/session_bus.h"
#include "foundation/c_border.h"
#include "foundation/glib_handles.h"

// How a bridge and its children stay in step:
//
// A slot that is not empty stands for a process that this process has started and not yet been told
// the end of. Exactly one of two things empties it: the child watch (child_watch(), followed by a
// callback) or vask_wait_child_exit() (no callback). Both delete the proxy, and with it the watch,
// so that none of them can follow the other.
//
// The child watch of a child on the bus leaves the slot as it is until what the child has sent has
// been delivered (vask_child_farewell). To the application the child has not ended before.
//
// Nothing is sent to a process id that has been reaped, because it may be a stranger's by then.

namespace {

const char nest_level_variable[] = "VASK_NEST_LV";
constexpr int poll_interval_msec = 10;

// Reaps a child that is nobody's any more, whenever it ends.
void reap_silently(int pid) {
    watch_child_end(
        pid, [](GPid, gint, gpointer) {}, nullptr);
}

// Gives the main place back, if the bridge still lives then.
class main_place_guard {
public:
    main_place_guard(int& index, const std::shared_ptr<char>& lifetime)
        : m_index(index), m_value(index), m_lifetime(lifetime) {}
    ~main_place_guard() {
        if (is_needed()) {
            m_index = m_value;
        }
    }
    main_place_guard(const main_place_guard&) = delete;
    main_place_guard& operator=(const main_place_guard&) = delete;

    bool is_needed() const { return !m_lifetime.expired(); }

private:
    int& m_index;
    const int m_value;
    const std::weak_ptr<char> m_lifetime;
};

// How long a wait has taken. When the clock fails, the naps of the wait must do.
double waited_msec(double start, long long napped_msec) {
    const double now = vask_object::vask_gettime(VASK_TIME_MSEC);
    return start < 0 || now < 0 ? static_cast<double>(napped_msec) : now - start;
}

strlist child_environment(const strlist& additions) {
    strlist environment;
    long nest_level = 0;
    gchar** names = g_listenv();
    for (gchar** name = names; *name != nullptr; ++name) {
        const gchar* value = null_as_empty(g_getenv(*name));
        if (strcmp(*name, nest_level_variable) == 0) {
            nest_level = strtol(value, nullptr, 10);
        } else {
            environment.push_back(std::string(*name) + "=" + value);
        }
    }
    g_strfreev(names);
    environment.insert(environment.end(), additions.begin(), additions.end());
    const int child_level = static_cast<int>(CLAMP(nest_level, INT_MIN, INT_MAX - 1)) + 1;
    environment.push_back(vask_object::vask_sprintf("%s=%d", nest_level_variable, child_level));
    return environment;
}

}  // namespace

vask_app_bridge::vask_app_bridge(const char* name, bool no_bus_watch)
    : m_child_priority(0),
      m_auto_send_type(VASK_AUTO_SEND_SET_WINDOW_NONE),
      m_window_data_sent_count(0),
      m_bus_connection(nullptr),
      m_bus_daemon_proxy(nullptr),
      m_twins_mode(false),
      m_child_proxy{nullptr, nullptr},
      m_main_worker_index(0),
      m_lifetime(std::make_shared<char>()) {
    obj_name = name;
    vask_p(VASK_P_DBG, "%s\n", "vask_app_bridge::vask_app_bridge(const char*, bool)");
    if (!no_bus_watch) {
        init_proxy();
    }
}

vask_app_bridge::~vask_app_bridge() {
    vask_p(VASK_P_DBG, "%s\n", "virtual vask_app_bridge::~vask_app_bridge()");
    free_child_resource();
    disconnect_name_owner_changed();
    // A request that has thrown, or that deletes the bridge, may have asked nobody.
    for (vask_child_proxy* worker : m_child_proxy) {
        if (worker != nullptr && worker->m_farewell->is_being_asked()) {
            worker->m_terminating = false;
        }
    }
    terminate_all_workers();
    vask_wait_child_exit(0);
    if (m_bus_connection != nullptr) {
        dbus_g_connection_unref(m_bus_connection);
    }
}

void vask_app_bridge::init_proxy() {
    connect_name_owner_changed();
}

void vask_app_bridge::connect_name_owner_changed() {
    if (m_bus_daemon_proxy != nullptr) {
        return;
    }
    GError* error = nullptr;
    DBusGConnection* connection = open_session_bus(&error);
    if (connection == nullptr) {
        unique_g_error owned(error);
        vask_p(VASK_P_ERR, "Failed to open DBUS session: %s", error->message);
    }
    if (m_bus_connection != nullptr) {
        dbus_g_connection_unref(m_bus_connection);
    }
    m_bus_connection = connection;

    if (connection != nullptr) {
        m_bus_daemon_proxy = new_bus_daemon_proxy(connection);
    }
    if (m_bus_daemon_proxy == nullptr) {
        vask_p(VASK_P_ERR, "Failed to get DBUS proxy");
        return;
    }
    dbus_g_proxy_add_signal(m_bus_daemon_proxy, "NameOwnerChanged", G_TYPE_STRING, G_TYPE_STRING,
                            G_TYPE_STRING, G_TYPE_INVALID);
    dbus_g_proxy_connect_signal(m_bus_daemon_proxy, "NameOwnerChanged",
                                G_CALLBACK(_name_owner_changed), this, nullptr);
    // The rule waits behind everything else that is unsent. A child that is started before the bus
    // has it would take its name unheard.
    DBusError silence = DBUS_ERROR_INIT;
    if (!wait_for_bus(m_bus_connection, &silence)) {
        vask_p(VASK_P_ERR, "The session bus does not answer: %s\n", silence.message);
        // The proxy has waited for the bus as long, and would stay deaf. The next attempt makes a
        // new one.
        disconnect_name_owner_changed();
    }
    dbus_error_free(&silence);
}

void vask_app_bridge::disconnect_name_owner_changed() {
    if (m_bus_daemon_proxy == nullptr) {
        return;
    }
    if (is_bus_connected(m_bus_connection)) {
        dbus_g_proxy_disconnect_signal(m_bus_daemon_proxy, "NameOwnerChanged",
                                       G_CALLBACK(_name_owner_changed), this);
    }
    g_object_unref(m_bus_daemon_proxy);
    m_bus_daemon_proxy = nullptr;
}

bool vask_app_bridge::spawn(strlist& argv, strlist& envs) {
    vask_p(VASK_P_DBG, "%s\n", "bool vask_app_bridge::spawn(strlist&, strlist&)");
    if (argv.empty()) {
        vask_p(VASK_P_ERR, "The commad is not given (argv is empty)\n");
        return false;
    }
    const strlist environment = child_environment(envs);
    const int last_slot = m_twins_mode ? 1 : 0;
    for (int slot = 0; slot <= last_slot; ++slot) {
        if (m_child_proxy[slot] != nullptr) {
            continue;
        }
        if (!spawn_worker(slot, argv, environment)) {
            break;
        }
        // The results are inverted, and kept: applications know them.
        if (!m_twins_mode) {
            return false;
        }
    }
    return true;
}

bool vask_app_bridge::spawn_worker(int slot, const strlist& argv, const strlist& environment) {
    int pid = 0;
    if (!spawn_async(&argv, &environment, &pid, nullptr)) {
        vask_p(VASK_P_ERR, "Failed to spawn\n");
        return false;
    }
    if (m_child_priority != 0) {
        set_priority(pid, m_child_priority);
    }
    const guint end_watch = watch_child_end(pid, _child_watch, this);
    m_child_proxy[slot] = new vask_child_proxy(*this, obj_name, pid, end_watch);
    return true;
}

void vask_app_bridge::enable_twins_mode() {
    m_twins_mode = true;
}

vask_child_proxy* vask_app_bridge::main_worker() const {
    return m_child_proxy[m_main_worker_index];
}

vask_child_proxy* vask_app_bridge::get_child_proxy() const {
    return main_worker();
}

bool vask_app_bridge::switch_main_worker() {
    if (!m_twins_mode) {
        return false;
    }
    m_main_worker_index = 1 - m_main_worker_index;
    return true;
}

int vask_app_bridge::get_child_pid() const {
    return main_worker() != nullptr ? main_worker()->get_pid() : -1;
}

const char* vask_app_bridge::get_child_bus_addr() const {
    return main_worker() != nullptr ? main_worker()->get_bus_addr() : nullptr;
}

void vask_app_bridge::set_child_priority(int priority) {
    m_child_priority = priority;
}

int vask_app_bridge::get_child_priority() const {
    return m_child_priority;
}

void vask_app_bridge::terminate_worker() {
    vask_child_proxy* worker = main_worker();
    if (worker == nullptr || worker->is_terminating()) {
        return;
    }
    worker->set_terminating();
    // Whoever has ended cannot be asked, and its process id may be a stranger's.
    if (worker->m_farewell->has_begun()) {
        return;
    }
    // An override may delete this bridge, and with it the worker.
    const std::weak_ptr<vask_child_farewell> farewell = worker->m_farewell;
    worker->m_farewell->begin_request();
    // From the destructor this is the base's own, as the header warns.
    terminate_worker_impl();  // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall)
    if (const auto left = farewell.lock()) {
        left->end_request();
    }
}

void vask_app_bridge::terminate_all_workers() {
    const main_place_guard main_place(m_main_worker_index, m_lifetime);
    for (int slot : {0, 1}) {
        // An override may run a main loop, in which a callback deletes this bridge.
        if (main_place.is_needed()) {
            m_main_worker_index = slot;
            terminate_worker();
        }
    }
}

void vask_app_bridge::terminate_worker_impl() {
    vask_p(VASK_P_DBG, "%s\n", "virtual void vask_app_bridge::terminate_worker_impl()");
    const vask_child_proxy* worker = main_worker();
    if (worker == nullptr || worker->m_farewell->has_begun()) {
        return;
    }
    const int pid = worker->get_pid();
    if (pid > 0 && !has_been_reaped(pid) && kill_process(pid)) {
        wake_child(pid);
    }
}

bool vask_app_bridge::vask_wait_child_exit(unsigned int timeout_ms) {
    bool all_ended = true;
    for (vask_child_proxy*& worker : m_child_proxy) {
        if (worker == nullptr || !worker->is_terminating()) {
            continue;
        }
        const int pid = worker->get_pid();
        if (pid == 0) {
            vask_p(VASK_P_DBG, "%s: pid(%d) == 0\n",
                   "bool vask_app_bridge::vask_wait_child_exit(unsigned int)", pid);
            continue;
        }
        const bool ended = wait_for_end(*worker, timeout_ms);
        delete worker;
        worker = nullptr;
        if (!ended) {
            all_ended = false;
            reap_silently(pid);
        }
    }
    return all_ended;
}

// False when the child has outlived the time-out.
bool vask_app_bridge::wait_for_end(const vask_child_proxy& child, unsigned int timeout_ms) const {
    const char* const signature = "bool vask_app_bridge::vask_wait_child_exit(unsigned int)";
    const pid_t pid = child.get_pid();
    const double start = vask_gettime(VASK_TIME_MSEC);
    long long napped_msec = 0;
    for (;;) {
        int status = 0;
        const pid_t waited = child.m_farewell->has_begun() ? pid : waitpid(pid, &status, WNOHANG);
        if (waited > 0) {
            vask_p(VASK_P_DBG, "%s: waited time: %.1f (ms)\n", signature,
                   waited_msec(start, napped_msec));
            return true;
        }
        if (waited < 0) {
            // Mostly ECHILD: somebody else has reaped it. The child has ended all the same.
            vask_p(VASK_P_ERR, "%s: waitpid: errno: %d\n", signature, errno);
            return true;
        }
        usleep(poll_interval_msec * 1000);
        napped_msec += poll_interval_msec;
        if (timeout_ms != 0 && waited_msec(start, napped_msec) > timeout_ms) {
            vask_p(VASK_P_INFO, "%s: timeouted\n", signature);
            return false;
        }
    }
}

void vask_app_bridge::child_exit_cb(bool is_main) {
    vask_p(VASK_P_DBG, "%s: %d\n", "virtual void vask_app_bridge::child_exit_cb(bool)", is_main);
}

void vask_app_bridge::child_crash_cb(bool is_main) {
    vask_p(VASK_P_DBG, "%s: %d\n", "virtual void vask_app_bridge::child_crash_cb(bool)", is_main);
}

void vask_app_bridge::free_child_resource() {
    m_window_data_sent_count = 0;
}

void vask_app_bridge::_name_owner_changed(DBusGProxy* proxy, const char* name,
                                          const char* old_owner, const char* new_owner,
                                          void* bridge) {
    call_for_c("vask_app_bridge::name_owner_changed()", [&] {
        static_cast<vask_app_bridge*>(bridge)->name_owner_changed(proxy, name, old_owner, new_owner,
                                                                  bridge);
    });
}

void vask_app_bridge::name_owner_changed(DBusGProxy*, const char* name, const char* old_owner,
                                         const char* new_owner, void*) {
    vask_p(VASK_P_DBG, "%s: %s (%p)\n",
           "void vask_app_bridge::name_owner_changed(DBusGProxy*, const char*, const char*, const "
           "char*, void*)",
           name, static_cast<void*>(this));
    if (m_child_proxy[0] == nullptr && m_child_proxy[1] == nullptr) {
        return;
    }
    vask_p(VASK_P_DBG, "m_child_proxy[] = {%p, %p}\n", static_cast<void*>(m_child_proxy[0]),
           static_cast<void*>(m_child_proxy[1]));
    if (!g_str_has_prefix(name, VASK_CHILD_INTERFACE)) {
        return;
    }
    bool all_established = true;
    for (vask_child_proxy* worker : m_child_proxy) {
        if (worker != nullptr && !meet_child(worker, name, old_owner, new_owner)) {
            all_established = false;
        }
    }
    if (all_established) {
        vask_p(VASK_P_DBG, "Disconnect NameOwnerChanged signal\n");
        disconnect_name_owner_changed();
    }
}

// False when the child is not on the bus after this change of owner.
bool vask_app_bridge::meet_child(vask_child_proxy* child, const char* name, const char* old_owner,
                                 const char* new_owner) {
    const char* address = child->get_bus_addr();
    if (!child->is_mine(name)) {
        if (address == nullptr) {
            vask_p(VASK_P_DBG, "Not all established yet.\n");
            return false;
        }
        return true;
    }
    if (*old_owner == '\0' && *new_owner != '\0') {
        if (address == nullptr) {
            vask_p(VASK_P_DBG, "The child has connected to the bus\n");
            child->bus_setup(m_bus_connection);
            if (m_auto_send_type != VASK_AUTO_SEND_SET_WINDOW_NONE && get_window_width() > 0 &&
                get_window_height() > 0) {
                send_window_data(child, true, nullptr);
            }
            flush_child_cmd_buffer(child);
            child->set_bus_addr(new_owner);
        } else if (strcmp(address, new_owner) == 0) {
            vask_p(VASK_P_DBG, "aNewOwner is already the owner\n");
        } else {
            vask_p(VASK_P_INFO, "Here comes a new owner\n");
            child->set_bus_addr(new_owner);
        }
        return true;
    }
    if (address != nullptr && strcmp(address, old_owner) == 0) {
        vask_p(VASK_P_INFO, "The child has lost the connection!\n");
        child->set_bus_addr(nullptr);
        return false;
    }
    return true;
}

void vask_app_bridge::_child_watch(int pid, int status, void* data) {
    vask_p("vask_app_bridge", VASK_P_DBG, "_child_watch: %d\n", pid);
    auto* bridge = static_cast<vask_app_bridge*>(data);
    vask_child_proxy* child = bridge->m_child_proxy[0];
    if (child == nullptr || child->get_pid() != pid) {
        child = bridge->m_child_proxy[1];
    }
    if (child != nullptr && child->get_pid() == pid && child->m_farewell->is_needed()) {
        g_source_remove(child->m_watch_id);
        child->m_watch_id = child->m_farewell->begin(status);
        return;
    }
    report_child_end(*bridge, child, pid, status);
}

void vask_app_bridge::child_watch(int pid, int) {
    const char* const signature = "void vask_app_bridge::child_watch(GPid, gint)";
    vask_p(VASK_P_DBG, "%s: %d\n", signature, pid);
    int slot = 0;
    while (slot < 2 && (m_child_proxy[slot] == nullptr || m_child_proxy[slot]->get_pid() != pid)) {
        ++slot;
    }
    if (slot == 2) {
        vask_p(VASK_P_ERR, "%s: pid(%d): No such child.\n", signature, pid);
        abort();
    }
    const bool is_main = slot == m_main_worker_index;
    const bool terminating = m_child_proxy[slot]->is_terminating();
    delete m_child_proxy[slot];
    m_child_proxy[slot] = nullptr;
    free_child_resource();

    // Either callback may delete this bridge: nothing may follow.
    if (terminating) {
        child_exit_cb(is_main);
    } else {
        child_crash_cb(is_main);
    }
}
