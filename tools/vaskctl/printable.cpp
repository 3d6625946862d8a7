// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "printable.h"

#include <glib.h>

namespace vaskctl {

namespace {

void append_escaped(std::string& result, unsigned char byte) {
    constexpr char digits[] = "0123456789abcdef";
    result += "\\x";
    result += digits[byte >> 4];
    result += digits[byte & 15];
}

// How many bytes the character at the position has; 0 where there is none that may be shown.
std::size_t length_of_character(const char* text, std::size_t left) {
    const gunichar character = g_utf8_get_char_validated(text, static_cast<gssize>(left));
    const bool is_valid =
        character != static_cast<gunichar>(-1) && character != static_cast<gunichar>(-2);
    if (!is_valid || !g_unichar_isprint(character)) {
        return 0;
    }
    return static_cast<std::size_t>(g_utf8_next_char(text) - text);
}

}  // namespace

std::string printable(const std::string& text, std::size_t longest) {
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        if (result.size() >= longest) {
            return result + "...";
        }
        const std::size_t length = length_of_character(text.c_str() + i, text.size() - i);
        if (length == 0) {
            append_escaped(result, static_cast<unsigned char>(text[i]));
            ++i;
        } else {
            result.append(text, i, length);
            i += length;
        }
    }
    return result;
}

std::size_t width_of(const std::string& text) {
    std::size_t width = 0;
    for (const char* c = text.c_str(); *c != '\0'; c = g_utf8_next_char(c)) {
        width += g_unichar_iswide(g_utf8_get_char(c)) ? 2 : 1;
    }
    return width;
}

std::string decimal(double value, int decimals) {
    char format[] = "%.0f";
    format[2] = static_cast<char>('0' + decimals);
    char text[64];
    return g_ascii_formatd(text, sizeof(text), format, value);
}

}  // namespace vaskctl
