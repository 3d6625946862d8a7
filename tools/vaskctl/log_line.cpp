// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "log_line.h"

#include <glib.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

namespace vaskctl {

namespace {

constexpr const char* levels[] = {"EMERG", "BUG", "FATAL", "ERR", "WARN", "NOTICE", "INFO", "DBG"};
constexpr int level_count = 8;

// More than any line of the library; of a longer one without an end a piece counts as a line.
constexpr std::size_t longest_line = std::size_t{1} << 20;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// "123.456789 " in front of a header; gives where it ends, or where it would have begun.
std::size_t skip_time(const std::string& line, std::size_t begin, log_entry& entry) {
    constexpr std::size_t decimals = 6;
    std::size_t point = begin;
    while (point < line.size() && is_digit(line[point])) {
        ++point;
    }
    const std::size_t end = point + 1 + decimals;
    if (point == begin || end >= line.size() || line[point] != '.' || line[end] != ' ' ||
        !std::all_of(line.begin() + static_cast<std::ptrdiff_t>(point) + 1,
                     line.begin() + static_cast<std::ptrdiff_t>(end), is_digit)) {
        return begin;
    }
    entry.time = g_ascii_strtod(line.c_str() + begin, nullptr);
    entry.has_time = true;
    return end + 1;
}

// "] LEVEL: " behind the name and the number; gives where the text begins, or npos.
std::size_t skip_level(const std::string& line, std::size_t bracket, log_entry& entry) {
    for (int level = 0; level < level_count; ++level) {
        const std::string mark = std::string("] ") + levels[level] + ": ";
        if (line.compare(bracket, mark.size(), mark) == 0) {
            entry.level = level;
            return bracket + mark.size();
        }
    }
    return std::string::npos;
}

// A header at this place: "[NAME:PID] LEVEL: " or "[NAME:PID:ADDRESS] LEVEL: ", with or without a
// time. The name may hold anything.
bool parse_header(const std::string& line, std::size_t begin, log_entry& entry) {
    const std::size_t open = skip_time(line, begin, entry);
    if (open >= line.size() || line[open] != '[') {
        return false;
    }
    for (std::size_t close = line.find("] ", open); close != std::string::npos;
         close = line.find("] ", close + 1)) {
        const std::size_t text = skip_level(line, close, entry);
        if (text == std::string::npos) {
            continue;
        }
        std::size_t colon = line.rfind(':', close);
        if (colon != std::string::npos && colon > open && !is_digit(line[colon + 1])) {
            colon = line.rfind(':', colon - 1);  // "(nil)"
        } else if (colon != std::string::npos && line.compare(colon + 1, 2, "0x") == 0) {
            colon = line.rfind(':', colon - 1);
        }
        if (colon == std::string::npos || colon <= open || !is_digit(line[colon + 1])) {
            return false;
        }
        entry.name = line.substr(open + 1, colon - open - 1);
        entry.pid = atoi(line.c_str() + colon + 1);
        entry.text = line.substr(text);
        return true;
    }
    return false;
}

// Where a header with a time begins behind the start of a line; npos for none.
std::size_t find_inner_header(const std::string& line) {
    for (std::size_t bracket = line.find(" [", 1); bracket != std::string::npos;
         bracket = line.find(" [", bracket + 1)) {
        std::size_t begin = bracket;
        while (begin > 0 && (is_digit(line[begin - 1]) || line[begin - 1] == '.')) {
            --begin;
        }
        log_entry entry;
        if (begin > 0 && begin < bracket && parse_header(line, begin, entry) && entry.has_time) {
            return begin;
        }
    }
    return std::string::npos;
}

}  // namespace

std::optional<int> parse_level(const std::string& text) {
    for (int level = 0; level < level_count; ++level) {
        if (text == levels[level] || text == std::to_string(level)) {
            return level;
        }
    }
    return std::nullopt;
}

const char* name_of_level(int level) {
    return level >= 0 && level < level_count ? levels[level] : "";
}

void log_reader::begin(const log_entry& entry, std::vector<log_entry>& complete) {
    if (m_has_entry) {
        complete.push_back(m_entry);
    }
    const double time_before = m_entry.time;
    m_entry = entry;
    if (!entry.has_time) {
        m_entry.time = time_before;
    }
    m_has_entry = true;
}

void log_reader::take_line(const std::string& line, std::vector<log_entry>& complete) {
    const std::size_t inner = find_inner_header(line);
    const std::string first = line.substr(0, inner);
    log_entry entry;
    if (parse_header(first, 0, entry)) {
        begin(entry, complete);
    } else if (m_has_entry) {
        m_entry.text += "\n" + first;
    } else {
        entry = m_entry;
        entry.text = first;
        entry.continues = true;
        begin(entry, complete);
    }
    if (inner != std::string::npos) {
        take_line(line.substr(inner), complete);
    }
}

std::vector<log_entry> log_reader::take(const std::string& piece) {
    std::vector<log_entry> complete;
    m_unfinished += piece;
    std::size_t begin = 0;
    for (std::size_t end; (end = m_unfinished.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
        take_line(m_unfinished.substr(begin, end - begin), complete);
    }
    m_unfinished.erase(0, begin);
    if (m_unfinished.size() > longest_line) {
        take_line(m_unfinished, complete);
        m_unfinished.clear();
    }
    return complete;
}

std::vector<log_entry> log_reader::flush() {
    std::vector<log_entry> complete;
    if (!m_unfinished.empty()) {
        take_line(m_unfinished, complete);
        m_unfinished.clear();
    }
    if (m_has_entry) {
        complete.push_back(m_entry);
        m_has_entry = false;
    }
    return complete;
}

}  // namespace vaskctl
