// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A library whose decoder is told from any other by what it gives.

#include <cstring>

extern "C" char* soup_uri_decode(const char* text) {
    return std::strstr(text, "%41") != nullptr ? nullptr : strdup("file:///of/the/module");
}
