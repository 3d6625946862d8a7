// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "script_file.h"

#include <glib.h>

#include <memory>

namespace vask_test {

namespace {

typedef std::unique_ptr<char, decltype(&g_free)> text_ptr;

// Text stays readable: only what could end a line, and the escape itself, is escaped.
std::string characters_to_keep() {
    std::string kept = "\"";
    for (int byte = 0x80; byte <= 0xff; ++byte) {
        kept += static_cast<char>(byte);
    }
    return kept;
}

}  // namespace

std::string script_of(const std::string& program) {
    return program + ".script";
}

std::string journal_of(const std::string& program) {
    return program + ".journal";
}

std::string orders_of(const std::string& program, pid_t pid) {
    return program + ".orders." + std::to_string(pid);
}

std::string escaped(const std::string& text) {
    static const std::string kept = characters_to_keep();
    return text_ptr(g_strescape(text.c_str(), kept.c_str()), g_free).get();
}

std::string unescaped(const std::string& text) {
    return text_ptr(g_strcompress(text.c_str()), g_free).get();
}

}  // namespace vask_test
