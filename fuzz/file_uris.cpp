// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dlfcn.h>

#include <string>

#include "foundation/uri_decode.h"
#include "target.h"
#include "vask_object.h"

using vask_fuzz::input;
using vask_fuzz::require;
using vask_fuzz::require_equal;

void set_up_target() {
    vask_fuzz::output_of_library::discard();
    decode_uri("");
    void* const library = dlopen("libsoup-2.4.so.1", RTLD_LAZY | RTLD_NOLOAD);
    require(library != nullptr, "libsoup decodes");
    dlclose(library);
}

void run_target(input& input) {
    const std::string text = input.text();
    const unique_g_text by_libsoup = decode_uri(text.c_str());
    const unique_g_text alone = decode_uri_without_libsoup(text.c_str());
    require(by_libsoup && alone, "every text can be decoded");
    require_equal(alone.get(), by_libsoup.get(), "the library decodes as libsoup does");

    const std::string path = vask_object::file_uri_to_local_path(text);
    const bool is_file = text.compare(0, 7, "file://") == 0;
    require_equal(path, is_file ? by_libsoup.get() + 7 : "", "the path is behind the scheme");

    // A zero in it ends what is decoded.
    const std::string with_zero = "file://" + text + '\0' + input.rest();
    require_equal(vask_object::file_uri_to_local_path(with_zero), by_libsoup.get(),
                  "a path ends at a zero");
}
