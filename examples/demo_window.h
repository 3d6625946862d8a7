// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef DEMO_WINDOW_H
#define DEMO_WINDOW_H

#include <X11/Xlib.h>

#include <functional>
#include <memory>
#include <string>

struct ximage_deleter {
    void operator()(XImage* image) const;
};

typedef std::unique_ptr<XImage, ximage_deleter> unique_ximage;

/**
 * @brief The parent's window: it only opens it and looks at it, a child paints into it.
 */
class demo_window {
public:
    /** No window yet: see open(). */
    demo_window();
    ~demo_window();

    demo_window(const demo_window&) = delete;
    demo_window& operator=(const demo_window&) = delete;

    /** @return false when there is no display, or none with true colours */
    bool open();

    bool is_visible() const;
    Window get_id() const;

    /** @return the id of a window that has existed, but does not any more */
    Window make_stale_id();

    /** @param callback  called from the main loop when the window's content is lost */
    void on_exposed(std::function<void()> callback);

    /**
     * Looks whether the window shows the whole picture of a process: the chessboard in its colour,
     * and its id.
     *
     * @param turns  quarter turns of the picture, clockwise
     * @return a description of what is wrong, empty when nothing is
     */
    std::string find_fault_in_picture(int pid, int turns) const;

    /** Writes what the window shows now as a portable pixmap. */
    bool save(const std::string& file_name) const;

private:
    unique_ximage read_pixels() const;
    void process_events();

    Display* m_display;
    Window m_window;
    unsigned int m_timer;
    std::function<void()> m_exposed;
};

#endif
