// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "met_child.h"

#include <glib-object.h>

#include "bus/bus_names.h"

met_child& met_child::get() {
    static met_child child;
    return child;
}

met_child::met_child() : m_bridge("bench", false), m_proxy(nullptr) {
    strlist argv = {VASK_BENCH_CHILD_DIR "/bench_child"};
    m_bridge.spawn(argv, vask_object::__empty_strlist);
    while (m_bridge.get_child_bus_addr() == nullptr) {
        if (m_bridge.main_worker() == nullptr) {
            g_error("The child has not reached the bus");
        }
        g_main_context_iteration(nullptr, TRUE);
    }
    m_bus_name = vask_object::vask_sprintf(VASK_CHILD_NAME_FORMAT, m_bridge.get_child_pid());
    m_proxy = dbus_g_proxy_new_for_name(dbus_g_bus_get(DBUS_BUS_SESSION, nullptr),
                                        m_bus_name.c_str(), VASK_CHILD_PATH, VASK_CHILD_INTERFACE);
    // What the two proxies have asked the bus meanwhile is answered before anything is measured.
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

met_child::~met_child() {
    g_object_unref(m_proxy);
}
