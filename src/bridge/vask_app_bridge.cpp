// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_app_bridge.h"

#include <errno.h>
#include <glib.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>

#include "bridge/child_end_watch.h"
#include "bridge/vask_app_bridge_state.h"
#include "bridge/vask_child_proxy_state.h"
#include "bus/bus_handles.h"
#include "bus/session_bus.h"
#include "foundation/scope_exit.h"

namespace {

const char nest_level_variable[] = "VASK_NEST_LV";

strlist child_environment(const strlist& additions) {
    strlist environment;
    long nest_level = 0;
    gchar** const names = g_listenv();
    const scope_exit free_names([names] { g_strfreev(names); });
    for (gchar** name = names; *name != nullptr; ++name) {
        const gchar* value = null_as_empty(g_getenv(*name));
        if (strcmp(*name, nest_level_variable) == 0) {
            nest_level = strtol(value, nullptr, 10);
        } else {
            environment.push_back(std::string(*name) + "=" + value);
        }
    }
    environment.insert(environment.end(), additions.begin(), additions.end());
    const int child_level = static_cast<int>(CLAMP(nest_level, INT_MIN, INT_MAX - 1)) + 1;
    environment.push_back(vask_object::vask_sprintf("%s=%d", nest_level_variable, child_level));
    return environment;
}

void end_at_once(int pid, guint end_watch) {
    if (end_watch != 0) {
        g_source_remove(end_watch);
    }
    // A program that has become another user's cannot be ended. It may never end by itself.
    const bool is_ending = has_been_reaped(pid) || kill(pid, SIGKILL) == 0;
    while (waitpid(pid, nullptr, is_ending ? 0 : WNOHANG) == -1 && errno == EINTR) {
    }
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
      m_state(std::make_unique<vask_app_bridge_state>()) {
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
        if (worker != nullptr && worker->m_state->farewell.is_being_asked()) {
            worker->m_state->terminating = false;
        }
    }
    terminate_all_workers();
    vask_wait_child_exit(0);
    const unique_bus_connection given_back(m_bus_connection);
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
    guint end_watch = 0;
    // Without memory for its proxy nobody would know the child.
    const scope_exit end_unknown_child([&] {
        if (m_child_proxy[slot] == nullptr) {
            end_at_once(pid, end_watch);
        }
    });
    end_watch = watch_child_end(pid, _child_watch, this);
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

void vask_app_bridge::free_child_resource() {
    m_window_data_sent_count = 0;
}
