// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "meter_bridge.h"

#include "meter_protocol.h"

meter_bridge::meter_bridge(const std::string& program, meter_listener& listener)
    : vask_app_bridge("meter_bridge", true), m_program(program), m_listener(listener) {
    set_child_sig_cb(METER_MEASURED, static_cast<child_sig_cb>(&meter_bridge::on_measured));
    set_child_sig_cb(METER_FAILED, static_cast<child_sig_cb>(&meter_bridge::on_failed));
}

bool meter_bridge::measure(const std::string& what) {
    if (get_child_pid() < 0) {
        // Before each start: a bridge watches the bus only until it has met its child.
        init_proxy();
        strlist command = {m_program}, variables;
        spawn(command, variables);
    }
    m_last_wanted = what;
    return send_cmd_no_reply(METER_MEASURE, what);
}

void meter_bridge::child_crash_cb(bool is_main) {
    vask_app_bridge::child_crash_cb(is_main);
    const std::string what = m_last_wanted;
    m_listener.failed(what);
}

void meter_bridge::on_measured(const char* data) {
    const std::string text = data;
    const std::size_t blank = text.find(' ');
    if (blank != std::string::npos) {
        m_listener.measured(text.substr(0, blank), text.substr(blank + 1));
    }
}

void meter_bridge::on_failed(const char* data) {
    m_listener.failed(data);
}
