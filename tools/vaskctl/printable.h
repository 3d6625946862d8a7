// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_PRINTABLE_H
#define VASKCTL_PRINTABLE_H

#include <cstddef>
#include <string>

namespace vaskctl {

// A text from elsewhere, safe for a terminal and for one line: control characters and what is not
// valid UTF-8 come out as \xNN, and a longer text is cut off with "...".
std::string printable(const std::string& text, std::size_t longest = 256);

// The number of columns that a text takes.
std::size_t width_of(const std::string& text);

// A number with so many decimals and a point, whatever the locale.
std::string decimal(double value, int decimals);

}  // namespace vaskctl

#endif
