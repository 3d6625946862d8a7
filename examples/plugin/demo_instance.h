// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef DEMO_INSTANCE_H
#define DEMO_INSTANCE_H

#include <vask_np_instance.h>

#include <memory>
#include <string>
#include <vector>

#include "child_window.h"
#include "element_painter.h"
#include "plugin_bridge.h"

/**
 * @brief An element of a page, with a child application of its own.
 *
 * Its upper part is a panel with some text, the part below is the child's to draw.
 *
 * What the page's script sees:
 *
 *     describe(...)  the types and values of its arguments, as text
 *     echo(value)    the value
 *     greet(name)    the child's greeting; waits for it, and fails while is_ready is false
 *     ring(text)     has the child ring, as soon as it is ready
 *     start()        starts the child again after a crash
 *
 *     title          a text; may be set
 *     width, height  of the element, in pixels
 *     child          the child's process id, -1 without child
 *     is_ready       whether the child answers
 *
 *     changed(name, value)  called when a property was set
 *     rang(text, count)     called when the child has rung, with how often it has up to now
 *     crashed()             called when the child has ended by itself
 *
 * The last three are names for attachEvent() and detachEvent().
 */
class demo_instance : public vask_np_instance, private child_listener {
public:
    explicit demo_instance(const char* name);

    /** NPP_Destroy has come: ends the child, and calls the browser no longer. */
    void detach();

    void init_preload() override;
    void parse_props(int16_t argc, char** argn, char** argv) override;
    NPError set_window(NPP npp, NPWindow* window) override;
    int16_t handle_event(NPP npp, void* event) override;

private:
    bool describe(const NPVariant* args, uint32_t arg_count, NPVariant* result);
    bool echo(const NPVariant* args, uint32_t arg_count, NPVariant* result);
    bool greet(const NPVariant* args, uint32_t arg_count, NPVariant* result);
    bool ring(const NPVariant* args, uint32_t arg_count, NPVariant* result);
    bool start(const NPVariant* args, uint32_t arg_count, NPVariant* result);
    bool remove_callback(const NPVariant* args, uint32_t arg_count, NPVariant* result);

    bool get_title(NPVariant* result);
    bool set_title(const NPVariant* value);
    bool get_width(NPVariant* result);
    bool get_height(NPVariant* result);
    bool get_child(NPVariant* result);
    bool get_is_ready(NPVariant* result);

    void child_rang(const char* text) override;
    void child_crashed() override;

    void start_child();
    void give_window_to_child();
    void redraw();
    void call_page(const char* callback, const std::vector<NPVariant>& args);

    std::unique_ptr<plugin_bridge> m_child;
    child_window m_child_window;
    element_painter m_painter;
    std::string m_title;
    std::string m_last_ring;
    int m_ring_count;
};

#endif
