// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_TERMINAL_H
#define VASKCTL_TERMINAL_H

#include <cstddef>
#include <string>

namespace vaskctl {

enum class colour { none, bold, faint, red, green, yellow, blue, magenta, cyan };

// Whether standard output is a terminal.
bool is_terminal();

// The columns of the terminal.
std::size_t terminal_width();

// The text in a colour, where standard output is a terminal that has them and NO_COLOR is not set;
// otherwise the text.
std::string coloured(const std::string& text, colour wanted);

// Whether the locale can show the lines of a tree.
bool has_line_characters();

}  // namespace vaskctl

#endif
