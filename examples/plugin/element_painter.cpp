// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "element_painter.h"

#include "demo_picture.h"

namespace {

constexpr demo_colour panel_colour = {32, 72, 128};
constexpr demo_colour text_colour = {255, 255, 255};
constexpr int margin = 16;
constexpr int line_height = 24;

}  // namespace

const XGraphicsExposeEvent* as_request_to_draw(const void* event) {
    const auto* x_event = static_cast<const XEvent*>(event);
    return x_event != nullptr && x_event->type == GraphicsExpose ? &x_event->xgraphicsexpose
                                                                 : nullptr;
}

element_painter::element_painter() : m_visual(nullptr), m_depth(0) {}

void element_painter::set_window(const NPWindow* window) {
    if (window != nullptr && window->ws_info != nullptr) {
        const auto* info = static_cast<const NPSetWindowCallbackStruct*>(window->ws_info);
        m_visual = static_cast<const Visual*>(info->visual);
        m_depth = info->depth;
    }
}

void element_painter::draw(const XGraphicsExposeEvent& target,
                           const std::vector<std::string>& lines) const {
    Display* display = target.display;
    if (display == nullptr || m_visual == nullptr || m_visual->c_class != TrueColor) {
        return;
    }
    // What is left of the depth beyond the colours is how opaque a pixel is.
    const unsigned long opaque = m_depth == 32 ? 0xff000000UL : 0;
    GC gc = XCreateGC(display, target.drawable, 0, nullptr);
    XSetForeground(display, gc, demo_picture::pixel_of(panel_colour, *m_visual) | opaque);
    XFillRectangle(display, target.drawable, gc, target.x, target.y,
                   static_cast<unsigned int>(target.width),
                   static_cast<unsigned int>(target.height));
    XSetForeground(display, gc, demo_picture::pixel_of(text_colour, *m_visual) | opaque);
    int baseline = margin + line_height / 2;
    for (const std::string& line : lines) {
        XDrawString(display, target.drawable, gc, margin, baseline, line.data(),
                    static_cast<int>(line.size()));
        baseline += line_height;
    }
    XFreeGC(display, gc);
    XSync(display, False);
}
