// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "terminal.h"

#include <glib.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace vaskctl {

namespace {

bool find_out_about_colours() {
    const char* no_colour = getenv("NO_COLOR");
    const char* type = getenv("TERM");
    return is_terminal() && (no_colour == nullptr || *no_colour == '\0') && type != nullptr &&
           strcmp(type, "dumb") != 0;
}

const char* code_of(colour wanted) {
    switch (wanted) {
        case colour::none:
            return "";
        case colour::bold:
            return "\033[1m";
        case colour::faint:
            return "\033[2m";
        case colour::red:
            return "\033[31m";
        case colour::green:
            return "\033[32m";
        case colour::yellow:
            return "\033[33m";
        case colour::blue:
            return "\033[34m";
        case colour::magenta:
            return "\033[35m";
        case colour::cyan:
            return "\033[36m";
    }
    return "";
}

}  // namespace

bool is_terminal() {
    static const bool is_one = isatty(STDOUT_FILENO) == 1;
    return is_one;
}

std::size_t terminal_width() {
    constexpr std::size_t usual = 80;
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    return usual;
}

std::string coloured(const std::string& text, colour wanted) {
    static const bool has_colours = find_out_about_colours();
    if (!has_colours || wanted == colour::none || text.empty()) {
        return text;
    }
    return code_of(wanted) + text + "\033[0m";
}

bool has_line_characters() {
    return g_get_charset(nullptr);
}

}  // namespace vaskctl
