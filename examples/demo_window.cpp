// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "demo_window.h"

#include <X11/Xutil.h>
#include <glib.h>
#include <stdio.h>

#include "demo_picture.h"

using namespace demo_picture;

namespace {

// Reads a picture by its measures, knowing nothing of how it was painted.
class picture_reader {
public:
    picture_reader(XImage& image, const Visual& visual, int turns)
        : m_image(image), m_visual(visual), m_turns(turns) {}

    // -1 when the band shows anything but a number.
    int read_number() const {
        int number = -1;
        for (int i = 0; i < max_digits; ++i) {
            const unsigned int lit = read_segments(digits_x + i * digit_pitch);
            if (lit == 0) {
                break;
            }
            const int digit = digit_with_segments(lit);
            if (digit < 0) {
                return -1;
            }
            number = (number < 0 ? 0 : number * 10) + digit;
        }
        return number;
    }

    bool has_chessboard(demo_colour dark) const {
        for (int row = 0; row * cell_size < height; ++row) {
            for (int column = 0; column * cell_size < width; ++column) {
                const demo_colour expected = is_dark_cell(column, row) ? dark : light_cell_colour;
                const demo_box cell = {column * cell_size, row * cell_size, cell_size, cell_size};
                if (!is_in_band(cell) && !shows(cell, expected)) {
                    return false;
                }
            }
        }
        return true;
    }

private:
    static bool is_in_band(const demo_box& box) {
        return box.y >= band_top && box.y < band_top + band_height;
    }

    bool shows(const demo_box& upright_box, demo_colour colour) const {
        const demo_box box = turned(upright_box, m_turns);
        return XGetPixel(&m_image, box.x + box.width / 2, box.y + box.height / 2) ==
               pixel_of(colour, m_visual);
    }

    unsigned int read_segments(int left) const {
        unsigned int lit = 0;
        for (unsigned int i = 0; i < segments.size(); ++i) {
            const demo_box& segment = segments[i];
            if (shows({left + segment.x, digits_y + segment.y, segment.width, segment.height},
                      digit_colour)) {
                lit |= 1U << i;
            }
        }
        return lit;
    }

    XImage& m_image;
    const Visual& m_visual;
    const int m_turns;
};

// A window on a real desktop may be where its pixels cannot be read.
int ignore_error(Display*, XErrorEvent*) {
    return 0;
}

}  // namespace

void ximage_deleter::operator()(XImage* image) const {
    XDestroyImage(image);
}

demo_window::demo_window() : m_display(nullptr), m_window(None), m_timer(0) {}

demo_window::~demo_window() {
    if (m_timer != 0) {
        g_source_remove(m_timer);
    }
    if (m_display != nullptr) {
        XCloseDisplay(m_display);
    }
}

bool demo_window::open() {
    m_display = XOpenDisplay(nullptr);
    if (m_display == nullptr) {
        return false;
    }
    XSetErrorHandler(ignore_error);
    const int screen = DefaultScreen(m_display);
    if (DefaultVisual(m_display, screen)->c_class != TrueColor) {
        return false;
    }
    XSetWindowAttributes attributes;
    // A window manager might resize or cover the window, whose pixels shall be compared.
    attributes.override_redirect = True;
    attributes.event_mask = ExposureMask;
    attributes.background_pixel = BlackPixel(m_display, screen);
    m_window = XCreateWindow(m_display, DefaultRootWindow(m_display), 40, 40, width, height, 0,
                             CopyFromParent, InputOutput, nullptr,
                             CWOverrideRedirect | CWEventMask | CWBackPixel, &attributes);
    XMapRaised(m_display, m_window);
    XSync(m_display, False);
    // Xlib may have read events together with an answer, and then its descriptor is silent: a timer
    // finds them nevertheless.
    m_timer = g_timeout_add(
        50,
        [](gpointer window) -> gboolean {
            static_cast<demo_window*>(window)->process_events();
            return G_SOURCE_CONTINUE;
        },
        this);
    return true;
}

bool demo_window::is_visible() const {
    XWindowAttributes attributes;
    return XGetWindowAttributes(m_display, m_window, &attributes) != 0 &&
           attributes.map_state == IsViewable;
}

Window demo_window::get_id() const {
    return m_window;
}

Window demo_window::make_stale_id() {
    const Window window =
        XCreateSimpleWindow(m_display, DefaultRootWindow(m_display), 0, 0, width, height, 0, 0, 0);
    XDestroyWindow(m_display, window);
    XSync(m_display, False);
    return window;
}

void demo_window::on_exposed(std::function<void()> callback) {
    m_exposed = std::move(callback);
}

void demo_window::process_events() {
    while (XPending(m_display) > 0) {
        XEvent event;
        XNextEvent(m_display, &event);
        if (event.type == Expose && event.xexpose.count == 0 && m_exposed) {
            m_exposed();
        }
    }
}

unique_ximage demo_window::read_pixels() const {
    return unique_ximage(XGetImage(m_display, m_window, 0, 0, width, height, AllPlanes, ZPixmap));
}

std::string demo_window::find_fault_in_picture(int pid, int turns) const {
    const unique_ximage image = read_pixels();
    if (image == nullptr) {
        return "its pixels cannot be read";
    }
    const picture_reader reader(*image, *DefaultVisual(m_display, DefaultScreen(m_display)), turns);
    const int number = reader.read_number();
    if (number < 0) {
        return "it shows no number";
    }
    if (number != pid) {
        return "it shows the number " + std::to_string(number);
    }
    if (!reader.has_chessboard(colour_of_process(pid))) {
        return "the chessboard around the number is not in the colours of that process";
    }
    return "";
}

bool demo_window::save(const std::string& file_name) const {
    const unique_ximage image = read_pixels();
    if (image == nullptr) {
        return false;
    }
    FILE* file = fopen(file_name.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    fprintf(file, "P6\n%d %d\n255\n", width, height);
    const Visual& visual = *DefaultVisual(m_display, DefaultScreen(m_display));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const demo_colour colour = colour_of_pixel(XGetPixel(image.get(), x, y), visual);
            const unsigned char bytes[] = {colour.red, colour.green, colour.blue};
            fwrite(bytes, sizeof(bytes), 1, file);
        }
    }
    const bool written = ferror(file) == 0;
    return fclose(file) == 0 && written;
}
