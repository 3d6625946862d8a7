// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_CHILD_PROXY_STATE_H
#define VASK_CHILD_PROXY_STATE_H

#include <glib.h>

#include <memory>
#include <queue>

#include "bridge/vask_child_farewell.h"
#include "bus/bus_handles.h"
#include "foundation/glib_handles.h"
#include "foundation/life_mark.h"
#include "vask_app_bridge.h"

// The private data of a vask_child_proxy.
class vask_child_proxy_state {
public:
    vask_child_proxy_state(vask_app_bridge& owner, int child, guint watch_id)
        : bridge(owner), pid(child), end_watch(watch_id) {}

    vask_app_bridge& bridge;
    const int pid;

    // Source that reports the end of the process, then, once the farewell has begun, that of the
    // farewell; 0 for none.
    guint end_watch;

    // Set once, and taken back only by the bridge's end.
    bool terminating = false;

    unique_g_text bus_name;  // null without a process id

    // Both or none.
    unique_bus_connection connection;
    unique_bus_proxy bus_proxy;

    unique_g_text bus_addr;  // null while the child is not on the bus
    std::queue<std::unique_ptr<child_cmd_buffer>> waiting_cmds;
    vask_child_farewell farewell;
    life_marks life;
};

#endif
