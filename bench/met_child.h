// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_BENCH_MET_CHILD_H
#define VASK_BENCH_MET_CHILD_H

#include <dbus/dbus-glib.h>

#include <string>

#include "vask_app_bridge.h"

// One running bench_child, met by its bridge, which all callers of a program share.
class met_child {
public:
    static met_child& get();

    vask_app_bridge& bridge() { return m_bridge; }

    // A proxy as an application would make it for itself, without the library.
    DBusGProxy* proxy() { return m_proxy; }

    const char* bus_name() const { return m_bus_name.c_str(); }

private:
    met_child();
    ~met_child();

    vask_app_bridge m_bridge;
    std::string m_bus_name;
    DBusGProxy* m_proxy;
};

#endif
