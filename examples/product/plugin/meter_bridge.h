// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef METER_BRIDGE_H
#define METER_BRIDGE_H

#include <vask_app_bridge.h>

#include <string>

/** Who wants to know what was measured. Each call may delete the bridge. */
class meter_listener {
public:
    virtual void measured(const std::string& what, const std::string& value) = 0;
    virtual void failed(const std::string& what) = 0;

protected:
    ~meter_listener() = default;
};

/** An element's child, which runs from the first measurement on and ends with this object. */
class meter_bridge : public vask_app_bridge {
public:
    /** @param program  the child @param listener  must outlive this object */
    meter_bridge(const std::string& program, meter_listener& listener);

    /** Does not wait for the value. */
    bool measure(const std::string& what);

    void child_crash_cb(bool is_main) override;

private:
    void on_measured(const char* data);
    void on_failed(const char* data);

    const std::string m_program;
    meter_listener& m_listener;
    std::string m_last_wanted;
};

#endif
