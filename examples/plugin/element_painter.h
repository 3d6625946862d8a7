// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef ELEMENT_PAINTER_H
#define ELEMENT_PAINTER_H

#include <X11/Xlib.h>
#include <npapi/npapi.h>

#include <string>
#include <vector>

/** @return what a browser asks to be drawn by an event of NPP_HandleEvent, or null */
const XGraphicsExposeEvent* as_request_to_draw(const void* event);

/**
 * @brief Draws a windowless element: a coloured panel with lines of text, where and when the
 * browser says.
 */
class element_painter {
public:
    element_painter();

    /** Takes the window's visual down. @param window  as in NPP_SetWindow; may be null */
    void set_window(const NPWindow* window);

    /** Draws, and waits until it is done. */
    void draw(const XGraphicsExposeEvent& target, const std::vector<std::string>& lines) const;

private:
    const Visual* m_visual;
    unsigned int m_depth;
};

#endif
