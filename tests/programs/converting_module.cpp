// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Converts a URI while it is loaded, as a static object of a plug-in may.

#include "vask_object.h"

/** Of the test program. */
extern "C" void loading_has_begun();

namespace {

const struct loading {
    loading() {
        loading_has_begun();
        vask_object::file_uri_to_local_path("file:///a%20b");
    }
} the_loading;

}  // namespace
