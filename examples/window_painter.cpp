// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "window_painter.h"

#include <string>

#include "demo_picture.h"

using namespace demo_picture;

namespace {

struct canvas {
    Display* display;
    Window window;
    GC gc;
    const Visual& visual;
    int turns;

    void choose(demo_colour colour) const { XSetForeground(display, gc, pixel_of(colour, visual)); }

    void fill(const demo_box& upright_box, demo_colour colour) const {
        const demo_box box = turned(upright_box, turns);
        choose(colour);
        XFillRectangle(display, window, gc, box.x, box.y, static_cast<unsigned int>(box.width),
                       static_cast<unsigned int>(box.height));
    }
};

void paint_chessboard(const canvas& target, demo_colour dark) {
    for (int row = 0; row * cell_size < height; ++row) {
        for (int column = 0; column * cell_size < width; ++column) {
            target.fill({column * cell_size, row * cell_size, cell_size, cell_size},
                        is_dark_cell(column, row) ? dark : light_cell_colour);
        }
    }
}

void paint_band(const canvas& target) {
    target.fill({0, band_top, width, band_height}, band_colour);
    // The display server writes in one direction only.
    if (target.turns != 0) {
        return;
    }
    const std::string caption = "painted by the child with this process id:";
    target.choose(light_cell_colour);
    XDrawString(target.display, target.window, target.gc, caption_x, caption_y, caption.c_str(),
                static_cast<int>(caption.size()));
}

void paint_digit(const canvas& target, int left, int digit) {
    const unsigned int lit = lit_segments(digit);
    for (unsigned int i = 0; i < segments.size(); ++i) {
        if ((lit >> i & 1U) != 0) {
            target.fill({left + segments[i].x, digits_y + segments[i].y, segments[i].width,
                         segments[i].height},
                        digit_colour);
        }
    }
}

void paint_number(const canvas& target, int number) {
    int left = digits_x;
    for (const char digit : std::to_string(number)) {
        paint_digit(target, left, digit - '0');
        left += digit_pitch;
    }
}

}  // namespace

bool window_painter::s_error_seen = false;

window_painter::window_painter() : m_display(XOpenDisplay(nullptr)), m_is_lost(false) {
    // Xlib's own handlers end the process. The window is the parent's, which may close it before it
    // tells us, and to a child that is no reason to die.
    XSetErrorHandler(on_error);
    XSetIOErrorHandler(on_io_error);
    if (m_display != nullptr) {
        XSetIOErrorExitHandler(m_display, on_display_lost, this);
    }
}

window_painter::~window_painter() {
    if (m_display != nullptr) {
        XCloseDisplay(m_display);
    }
}

bool window_painter::has_display() const {
    return m_display != nullptr;
}

bool window_painter::paint(Window window, int pid, int turns) {
    if (m_display == nullptr) {
        return false;
    }
    s_error_seen = false;
    XWindowAttributes attributes;
    const bool has_window = XGetWindowAttributes(m_display, window, &attributes) != 0;
    if (has_window && attributes.visual->c_class == TrueColor) {
        const canvas target = {m_display, window, XCreateGC(m_display, window, 0, nullptr),
                               *attributes.visual, turns};
        paint_chessboard(target, colour_of_process(pid));
        paint_band(target);
        paint_number(target, pid);
        XFreeGC(m_display, target.gc);
        XSync(m_display, False);
    } else {
        s_error_seen = true;
    }
    if (m_is_lost) {
        XCloseDisplay(m_display);
        m_display = nullptr;
        return false;
    }
    return !s_error_seen;
}

int window_painter::on_error(Display*, XErrorEvent*) {
    s_error_seen = true;
    return 0;
}

// The default one ends the process; this one leaves it to on_display_lost(), which is called next.
int window_painter::on_io_error(Display*) {
    return 0;
}

void window_painter::on_display_lost(Display*, void* painter) {
    static_cast<window_painter*>(painter)->m_is_lost = true;
}
