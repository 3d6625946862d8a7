// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_GLIB_HANDLES_H
#define VASK_GLIB_HANDLES_H

#include <glib.h>

#include <memory>

// Owners of what GLib hands out.

// The error of a call that takes a GError**: hand it out(), then look.
class gerror_holder {
public:
    gerror_holder() = default;
    ~gerror_holder() { g_clear_error(&m_error); }
    gerror_holder(const gerror_holder&) = delete;
    gerror_holder& operator=(const gerror_holder&) = delete;

    // For one call. Frees the error of an earlier one: GLib wants the place to be empty.
    GError** out() {
        g_clear_error(&m_error);
        return &m_error;
    }

    // Null where the call has set none.
    GError* get() const { return m_error; }
    const GError* operator->() const { return m_error; }
    explicit operator bool() const { return m_error != nullptr; }

private:
    GError* m_error = nullptr;
};

struct g_free_deleter {
    void operator()(void* memory) const { g_free(memory); }
};
using unique_g_text = std::unique_ptr<gchar, g_free_deleter>;

#endif
