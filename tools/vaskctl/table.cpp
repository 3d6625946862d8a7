// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "table.h"

#include <glib.h>
#include <stdio.h>

#include <algorithm>

#include "printable.h"

namespace vaskctl {

namespace {

constexpr std::size_t gap = 2;

// What fits into so many columns.
std::string cut(const std::string& line, std::size_t columns) {
    std::size_t width = 0;
    const char* c = line.c_str();
    while (*c != '\0') {
        const char* next = g_utf8_next_char(c);
        width += width_of(std::string(c, next));
        if (width > columns) {
            return std::string(line.c_str(), c);
        }
        c = next;
    }
    return line;
}

std::string joined_by_tabs(const std::vector<std::string>& cells) {
    std::string line;
    for (const std::string& cell : cells) {
        line += (&cell == &cells.front() ? "" : "\t") + cell;
    }
    return line;
}

}  // namespace

std::vector<std::size_t> table::widths(bool has_legend) const {
    std::vector<std::size_t> widths(m_header.size(), 0);
    const auto widen = [&widths](const std::vector<std::string>& cells) {
        for (std::size_t i = 0; i < cells.size(); ++i) {
            widths[i] = std::max(widths[i], width_of(cells[i]));
        }
    };
    if (has_legend) {
        widen(m_header);
    }
    for (const table_row& row : m_rows) {
        widen(row.cells);
    }
    return widths;
}

std::string table::line_of(const std::vector<std::string>& cells,
                           const std::vector<std::size_t>& widths) {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        line += cells[i];
        if (i + 1 < cells.size()) {
            line.append(widths[i] - width_of(cells[i]) + gap, ' ');
        }
    }
    return cut(line, terminal_width());
}

void table::print(bool has_legend) const {
    const bool is_for_eyes = is_terminal();
    const std::vector<std::size_t> columns = widths(has_legend);
    const auto line = [&](const std::vector<std::string>& cells) {
        return is_for_eyes ? line_of(cells, columns) : joined_by_tabs(cells);
    };
    if (has_legend) {
        printf("%s\n", coloured(line(m_header), colour::bold).c_str());
    }
    for (const table_row& row : m_rows) {
        printf("%s\n", coloured(line(row.cells), row.its_colour).c_str());
    }
}

}  // namespace vaskctl
