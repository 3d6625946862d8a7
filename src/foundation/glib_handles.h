#ifndef VASK_GLIB_HANDLES_H
#define VASK_GLIB_HANDLES_H

#include <glib.h>

#include <memory>

// Owners of what GLib hands out.

struct g_error_deleter {
    void operator()(GError* error) const { g_error_free(error); }
};
using unique_g_error = std::unique_ptr<GError, g_error_deleter>;

struct g_free_deleter {
    void operator()(void* memory) const { g_free(memory); }
};
using unique_g_text = std::unique_ptr<gchar, g_free_deleter>;

#endif
