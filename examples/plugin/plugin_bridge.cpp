// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "plugin_bridge.h"

#include "demo_protocol.h"
#include "exception_barrier.h"

plugin_bridge::plugin_bridge(child_listener& listener)
    : vask_app_bridge("demo_plugin", false), m_listener(listener) {
    set_child_sig_cb(DEMO_SIG_RANG, static_cast<child_sig_cb>(&plugin_bridge::on_rang));
    // Every set_window() reaches the child, because it is also how the window gets painted again.
    set_auto_send_set_window_type(VASK_AUTO_SEND_SET_WINDOW_ALWAYS);
}

void plugin_bridge::start_child() {
    // For a child that comes after a crashed one: after a meeting the bus is watched no longer.
    init_proxy();
    strlist command = {DEMO_CHILD_PROGRAM};
    strlist additional_variables;
    spawn(command, additional_variables);
}

bool plugin_bridge::is_child_ready() const {
    return get_child_bus_addr() != nullptr;
}

bool plugin_bridge::greet(std::string name, std::string& reply) {
    return send_cmd(DEMO_CMD_GREET, reply, name);
}

bool plugin_bridge::ring(const std::string& text) {
    return send_cmd_no_reply(DEMO_CMD_RING, text);
}

// The listener comes last in both, because nothing may be left of this object then.

void plugin_bridge::child_crash_cb(bool is_main) {
    vask_app_bridge::child_crash_cb(is_main);
    end_exceptions("child_crashed", [this] { m_listener.child_crashed(); });
}

void plugin_bridge::on_rang(const char* text) {
    end_exceptions("child_rang", [this, text] { m_listener.child_rang(text); });
}
