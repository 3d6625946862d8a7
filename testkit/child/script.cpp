// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "script.h"

#include <algorithm>

namespace vask_test {

action parse_action(const std::string& line) {
    const std::size_t begin = std::min(line.find_first_not_of(' '), line.size());
    const std::size_t end = std::min(line.find(' ', begin), line.size());
    return {line.substr(begin, end - begin), end < line.size() ? line.substr(end + 1) : ""};
}

script::script(const std::vector<std::string>& lines) {
    std::vector<action_list>* section = nullptr;
    for (const std::string& line : lines) {
        const action next = parse_action(line);
        if (next.verb.empty() || next.verb[0] == '#') {
            continue;
        }
        if (next.verb == "at" || next.verb == "on") {
            section = &m_sections[next.rest];
            section->emplace_back();
        } else if (section) {
            section->back().push_back(next);
        } else {
            m_error = "'" + line + "' stands before the first \"at\" or \"on\"";
        }
    }
}

action_list script::take(const std::string& situation) {
    const auto found = m_sections.find(situation);
    if (found == m_sections.end()) {
        return {};
    }
    const std::size_t last = found->second.size() - 1;
    return found->second[std::min(m_taken[situation]++, last)];
}

}  // namespace vask_test
