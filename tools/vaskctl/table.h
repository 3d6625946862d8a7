// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_TABLE_H
#define VASKCTL_TABLE_H

#include <string>
#include <vector>

#include "terminal.h"

namespace vaskctl {

struct table_row {
    std::vector<std::string> cells;
    colour its_colour = colour::none;
};

// Lines of cells. On a terminal the columns are as wide as their longest cell, and what does not
// fit is cut off; elsewhere one tab stands between two cells.
class table {
public:
    explicit table(std::vector<std::string> header) : m_header(std::move(header)) {}

    void add(table_row row) { m_rows.push_back(std::move(row)); }
    void print(bool has_legend) const;

private:
    std::vector<std::size_t> widths(bool has_legend) const;
    static std::string line_of(const std::vector<std::string>& cells,
                               const std::vector<std::size_t>& widths);

    const std::vector<std::string> m_header;
    std::vector<table_row> m_rows;
};

}  // namespace vaskctl

#endif
