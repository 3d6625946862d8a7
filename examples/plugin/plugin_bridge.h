// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef PLUGIN_BRIDGE_H
#define PLUGIN_BRIDGE_H

#include <vask_app_bridge.h>

#include <string>

/** Who wants to know of a child. Its calls come from the main loop; each may delete the bridge. */
class child_listener {
public:
    virtual void child_rang(const char* text) = 0;
    virtual void child_crashed() = 0;

protected:
    ~child_listener() = default;
};

/**
 * @brief An instance's child application. It ends with this object, which waits for that.
 */
class plugin_bridge : public vask_app_bridge {
public:
    /** @param listener  must outlive this object */
    explicit plugin_bridge(child_listener& listener);

    /** Starts the child unless it runs already. Does not wait for it. */
    void start_child();

    /** @return whether the child answers: before that, only ring() has an effect */
    bool is_child_ready() const;

    /** Blocks until the child has answered. @return false without an answer */
    bool greet(std::string name, std::string& reply);

    /** Has the child ring, as soon as it is there. Does not wait. @return false without a child */
    bool ring(const std::string& text);

    void child_crash_cb(bool is_main) override;

private:
    void on_rang(const char* text);

    child_listener& m_listener;
};

#endif
