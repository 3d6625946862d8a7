// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef CHILD_WINDOW_H
#define CHILD_WINDOW_H

#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/xcb.h>

#include <functional>

/**
 * @brief A window for the child to draw into, which nobody sees: the element shows a copy of it.
 *
 * An element that the browser draws has no window of its own, but a child application needs one. It
 * is part of the browser's window, but the display server keeps its picture aside.
 *
 * It has a connection of its own, because an error in the browser's would end the browser.
 */
class child_window {
public:
    /**
     * No window yet: see place().
     *
     * @param is_blank    called from the main loop whenever all has to be drawn
     * @param has_changed  called from the main loop when something was drawn
     */
    child_window(std::function<void()> is_blank, std::function<void()> has_changed);
    ~child_window();

    child_window(const child_window&) = delete;
    child_window& operator=(const child_window&) = delete;

    /**
     * Makes the window, or resizes it. In another parent it is another one. Without a display that
     * can keep a window's picture aside there is none.
     *
     * @param parent        the browser's window
     * @param width,height  in pixels; a window without area is taken away
     */
    void place(xcb_window_t parent, int width, int height);

    /** @return the window, or XCB_NONE */
    xcb_window_t get_id() const;

    int get_width() const;
    int get_height() const;

    /**
     * Copies what the window shows, and waits until it is done.
     *
     * @param target  a drawable of any client
     * @param x,y     where in it
     */
    void copy_to(xcb_drawable_t target, int x, int y);

private:
    bool connect();
    void create(xcb_window_t parent);
    void close();
    void handle_events();

    std::function<void()> m_is_blank;
    std::function<void()> m_has_changed;
    xcb_connection_t* m_connection;
    unsigned int m_source;
    xcb_window_t m_parent;
    xcb_window_t m_window;
    unsigned int m_damage_event;
    xcb_damage_damage_t m_damage;
    int m_width;
    int m_height;
};

#endif
