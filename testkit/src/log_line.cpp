// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <ostream>
#include <regex>

#include "vask_test/log_catcher.h"

namespace vask_test {

namespace {

// Each repetition has a bound, since the C++ library recurses for each character of one: a program
// that prints a long list would end the test.
const std::regex& header() {
    static const std::regex expression(
        "(?:[0-9]{1,12}\\.[0-9]{6} )?(?::0x[0-9a-fA-F]{1,16})?"
        "\\[([^\\[\\]\\n]{0,1000}):([0-9]{1,7})(?::0x[0-9a-fA-F]{1,16})?\\] "
        "(EMERG|BUG|FATAL|ERR|WARN|NOTICE|INFO|DBG): ",
        std::regex::ECMAScript | std::regex::optimize);
    return expression;
}

// A line end closes the message; lines that follow without a header are messages of their own.
void add_lines(log_line current, bool has_header, const std::string& text,
               std::vector<log_line>* lines) {
    size_t begin = 0;
    bool first = has_header;
    while (first || begin < text.size()) {
        const size_t end = text.find('\n', begin);
        current.text = text.substr(begin, end == std::string::npos ? end : end - begin);
        lines->push_back(first ? current : line("", "", current.text));
        first = false;
        if (end == std::string::npos) {
            return;
        }
        begin = end + 1;
    }
}

}  // namespace

bool operator==(const log_line& a, const log_line& b) {
    return a.level == b.level && a.name == b.name && a.text == b.text;
}

void PrintTo(const log_line& line, std::ostream* out) {
    if (!line.level.empty()) {
        *out << line.level << " [" << line.name << "] ";
    }
    *out << '"' << line.text << '"';
}

log_line line(const std::string& level, const std::string& name, const std::string& text) {
    log_line result;
    result.level = level;
    result.name = name;
    result.text = text;
    return result;
}

std::vector<log_line> parse_log(const std::string& text) {
    std::vector<log_line> lines;
    log_line current;
    bool has_header = false;
    size_t text_begin = 0;
    for (std::sregex_iterator match(text.begin(), text.end(), header()), end; match != end;
         ++match) {
        const size_t header_begin = static_cast<size_t>(match->position());
        add_lines(current, has_header, text.substr(text_begin, header_begin - text_begin), &lines);
        current.name = (*match)[1];
        current.pid = std::stoi((*match)[2]);
        current.level = (*match)[3];
        has_header = true;
        text_begin = header_begin + static_cast<size_t>(match->length());
    }
    add_lines(current, has_header, text.substr(text_begin), &lines);
    return lines;
}

}  // namespace vask_test
