// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/uri_decode.h"

#include <dlfcn.h>

#include <atomic>

namespace {

using uri_decoder = char* (*)(const char*);

char* decode_alone(const char* text) {
    gchar* const decoded = g_strdup(text);
    gchar* end = decoded;
    for (; *text != '\0'; ++text) {
        if (*text == '%' && g_ascii_isxdigit(text[1]) && g_ascii_isxdigit(text[2])) {
            *end++ = static_cast<gchar>(g_ascii_xdigit_value(text[1]) * 16 +
                                        g_ascii_xdigit_value(text[2]));
            text += 2;
        } else {
            *end++ = *text;
        }
    }
    *end = '\0';
    return decoded;
}

// Whether libsoup 2.4, loaded now, would end the process. libsoup 2.4 looks for libsoup 3 by this
// symbol. The second test finds libsoup 3 where its symbols cannot be seen, as in a plug-in.
bool has_libsoup_3() {
    if (dlsym(RTLD_DEFAULT, "soup_date_time_new_from_http_string") != nullptr) {
        return true;
    }
    void* const library = dlopen("libsoup-3.0.so.0", RTLD_LAZY | RTLD_NOLOAD);
    if (library == nullptr) {
        return false;
    }
    dlclose(library);
    return true;
}

uri_decoder find_decoder() {
    const char* const name = "soup_uri_decode";
    // The loader keeps whatever it finds here for as long as this library stays.
    if (void* const symbol = dlsym(RTLD_DEFAULT, name)) {
        return reinterpret_cast<uri_decoder>(symbol);
    }
    if (has_libsoup_3()) {
        return decode_alone;
    }
    // Local: libsoup 3 ends the process if it sees symbols of libsoup 2.4 when it is loaded later.
    void* const library = dlopen("libsoup-2.4.so.1", RTLD_LAZY | RTLD_LOCAL);
    void* const symbol = library != nullptr ? dlsym(library, name) : nullptr;
    return symbol != nullptr ? reinterpret_cast<uri_decoder>(symbol) : decode_alone;
}

}  // namespace

unique_g_text decode_uri(const char* text) {
    // Two threads may both look for it. A lock around the search could wait for the loader's lock
    // while another thread waits the other way round: one whose library calls from its constructor.
    static std::atomic<uri_decoder> known{nullptr};
    uri_decoder decoder = known.load(std::memory_order_acquire);  // [P1]
    if (decoder == nullptr) {
        decoder = find_decoder();
        known.store(decoder, std::memory_order_release);  // [P1]
    }
    return unique_g_text(decoder(text));
}

unique_g_text decode_uri_without_libsoup(const char* text) {
    return unique_g_text(decode_alone(text));
}
