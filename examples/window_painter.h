// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef WINDOW_PAINTER_H
#define WINDOW_PAINTER_H

#include <X11/Xlib.h>

/**
 * @brief Draws a process's picture into windows that belong to somebody else.
 *
 * It has a display connection of its own, as every child has that draws into its parent's window.
 * The window, and even the display, may go away at any time.
 */
class window_painter {
public:
    /** Connects to the display that the environment names; without one it paints nothing. */
    window_painter();
    ~window_painter();

    window_painter(const window_painter&) = delete;
    window_painter& operator=(const window_painter&) = delete;

    bool has_display() const;

    /**
     * Paints, and waits until the display server has done it.
     *
     * @param turns  quarter turns of the picture, clockwise
     * @return false when there is no display or no such window (any more)
     */
    bool paint(Window window, int pid, int turns);

private:
    static int on_error(Display* display, XErrorEvent* error);
    static int on_io_error(Display* display);
    static void on_display_lost(Display* display, void* painter);

    Display* m_display;
    bool m_is_lost;
    static bool s_error_seen;
};

#endif
