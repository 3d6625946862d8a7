// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "child_window.h"

#include <glib-unix.h>
#include <stdlib.h>

#include <memory>
#include <utility>

#include "exception_barrier.h"

namespace {

// Beside the browser's window, where it does not get its input.
constexpr int16_t far_away = -16384;

struct free_deleter {
    void operator()(void* memory) const { free(memory); }
};

template <typename Message>
using unique_message = std::unique_ptr<Message, free_deleter>;

/** Says what this client knows of the extensions, as it has to before it uses them. */
bool has_extensions(xcb_connection_t* connection) {
    const auto* composite = xcb_get_extension_data(connection, &xcb_composite_id);
    const auto* damage = xcb_get_extension_data(connection, &xcb_damage_id);
    if (composite == nullptr || !composite->present || damage == nullptr || !damage->present) {
        return false;
    }
    const unique_message<xcb_composite_query_version_reply_t> composite_version(
        xcb_composite_query_version_reply(connection, xcb_composite_query_version(connection, 0, 4),
                                          nullptr));
    const unique_message<xcb_damage_query_version_reply_t> damage_version(
        xcb_damage_query_version_reply(connection, xcb_damage_query_version(connection, 1, 1),
                                       nullptr));
    return composite_version != nullptr && damage_version != nullptr;
}

}  // namespace

child_window::child_window(std::function<void()> is_blank, std::function<void()> has_changed)
    : m_is_blank(std::move(is_blank)),
      m_has_changed(std::move(has_changed)),
      m_connection(nullptr),
      m_source(0),
      m_parent(XCB_NONE),
      m_window(XCB_NONE),
      m_damage_event(0),
      m_damage(XCB_NONE),
      m_width(0),
      m_height(0) {}

child_window::~child_window() {
    close();
}

void child_window::place(xcb_window_t parent, int width, int height) {
    if (parent == XCB_NONE || width <= 0 || height <= 0) {
        close();
        return;
    }
    // With its parent the window is gone as well.
    if (parent != m_parent) {
        close();
        m_parent = parent;
    }
    if (m_window != XCB_NONE && width == m_width && height == m_height) {
        return;
    }
    m_width = width;
    m_height = height;
    if (m_window == XCB_NONE) {
        if (connect()) {
            create(parent);
        }
    } else {
        const uint32_t size[] = {static_cast<uint32_t>(width), static_cast<uint32_t>(height)};
        xcb_configure_window(m_connection, m_window,
                             XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
    }
    if (m_connection != nullptr) {
        xcb_flush(m_connection);
    }
}

bool child_window::connect() {
    if (m_connection == nullptr) {
        m_connection = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(m_connection) || !has_extensions(m_connection)) {
            close();
        }
    }
    return m_connection != nullptr;
}

void child_window::create(xcb_window_t parent) {
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
    m_window = xcb_generate_id(m_connection);
    const uint32_t values[] = {screen->black_pixel, 0, XCB_EVENT_MASK_EXPOSURE,
                               screen->default_colormap};
    xcb_create_window(m_connection, screen->root_depth, m_window, parent, far_away, far_away,
                      static_cast<uint16_t>(m_width), static_cast<uint16_t>(m_height), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_EVENT_MASK | XCB_CW_COLORMAP,
                      values);
    xcb_composite_redirect_window(m_connection, m_window, XCB_COMPOSITE_REDIRECT_MANUAL);
    m_damage = xcb_generate_id(m_connection);
    xcb_damage_create(m_connection, m_damage, m_window, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
    m_damage_event =
        xcb_get_extension_data(m_connection, &xcb_damage_id)->first_event + XCB_DAMAGE_NOTIFY;
    xcb_map_window(m_connection, m_window);

    const auto on_readable = [](int, GIOCondition, gpointer data) -> gboolean {
        auto* const window = static_cast<child_window*>(data);
        window->handle_events();
        if (xcb_connection_has_error(window->m_connection)) {
            window->m_source = 0;
            return G_SOURCE_REMOVE;
        }
        return G_SOURCE_CONTINUE;
    };
    m_source = g_unix_fd_add(xcb_get_file_descriptor(m_connection), G_IO_IN, on_readable, this);
}

void child_window::close() {
    if (m_source != 0) {
        g_source_remove(m_source);
        m_source = 0;
    }
    // Takes the window along.
    if (m_connection != nullptr) {
        xcb_disconnect(m_connection);
        m_connection = nullptr;
    }
    m_window = XCB_NONE;
}

void child_window::handle_events() {
    bool is_blank = false;
    bool has_changed = false;
    while (const unique_message<xcb_generic_event_t> event{xcb_poll_for_event(m_connection)}) {
        const unsigned int type = event->response_type & 0x7fU;
        if (type == XCB_EXPOSE) {
            is_blank = true;
        } else if (type == m_damage_event) {
            xcb_damage_subtract(m_connection, m_damage, XCB_NONE, XCB_NONE);
            has_changed = true;
        }
    }
    xcb_flush(m_connection);
    if (is_blank) {
        end_exceptions("child_window", m_is_blank);
    }
    if (has_changed) {
        end_exceptions("child_window", m_has_changed);
    }
}

void child_window::copy_to(xcb_drawable_t target, int x, int y) {
    if (m_window == XCB_NONE) {
        return;
    }
    const xcb_gcontext_t gc = xcb_generate_id(m_connection);
    const uint32_t no_events = 0;
    xcb_create_gc(m_connection, gc, target, XCB_GC_GRAPHICS_EXPOSURES, &no_events);
    const auto copied = xcb_copy_area_checked(
        m_connection, m_window, target, gc, 0, 0, static_cast<int16_t>(x), static_cast<int16_t>(y),
        static_cast<uint16_t>(m_width), static_cast<uint16_t>(m_height));
    xcb_free_gc(m_connection, gc);
    // It may fail: the browser's window, and this one with it, may be gone.
    const unique_message<xcb_generic_error_t> error(xcb_request_check(m_connection, copied));
    // Events that have come with the answer are read already, and the main loop does not see them.
    handle_events();
}

xcb_window_t child_window::get_id() const {
    return m_window;
}

int child_window::get_width() const {
    return m_width;
}

int child_window::get_height() const {
    return m_height;
}
