// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "meter_child.h"

#include "meter_protocol.h"

meter_child::meter_child(int argc, char** argv, const std::string& probe_program)
    : vask_child(meter_child_program, argc, argv),
      m_probe_program(probe_program),
      m_published("/meter_last") {
    add_cmd_handler(METER_MEASURE, static_cast<cmd_handler>(&meter_child::measure));
    add_cmd_handler(METER_LAST, static_cast<cmd_handler>(&meter_child::reply_last));
}

bool meter_child::measure(const char* what, const char**) {
    m_wanted.push(what);
    start_next();
    return true;
}

// The text has to stay valid after the return: the bus takes it only then.
bool meter_child::reply_last(const char*, const char** reply) {
    *reply = m_last.c_str();
    return true;
}

void meter_child::start_next() {
    while (!m_wanted.empty() && !m_probe.is_running()) {
        const std::string what = m_wanted.front();
        m_wanted.pop();
        const auto done = [this, what](const std::string& value) {
            finish(what, value);
            start_next();
        };
        if (!m_probe.start(m_probe_program, what, done)) {
            finish(what, "");
        }
    }
}

void meter_child::finish(const std::string& what, const std::string& value) {
    if (value.empty()) {
        emit_signal(METER_FAILED, what.c_str());
        return;
    }
    m_last = what + " " + value;
    m_published.publish(m_last);
    emit_signal(METER_MEASURED, m_last.c_str());
}
