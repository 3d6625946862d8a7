// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SCRIPT_H
#define VASK_TEST_SCRIPT_H

#include <map>
#include <string>
#include <vector>

namespace vask_test {

/** One thing to do. */
struct action {
    std::string verb;
    std::string rest;  // of the line
};

typedef std::vector<action> action_list;

/** The first word of a line, and what follows it. */
action parse_action(const std::string& line);

/** What a scripted child does when. */
class script {
public:
    /** Lines that begin with "at" or "on" begin a section; the lines that follow are its actions.
     *  Empty lines and those that begin with "#" mean nothing. */
    explicit script(const std::vector<std::string>& lines);

    /** What is wrong with it; empty if nothing is. */
    const std::string& error() const { return m_error; }

    bool has(const std::string& situation) const { return m_sections.count(situation) != 0; }

    /** The next section for the situation, again and again the last one; none when there is none.
     */
    action_list take(const std::string& situation);

    /** Goes on with a later section, as if earlier ones had been taken. */
    void skip(const std::string& situation, std::size_t count) { m_taken[situation] = count; }

private:
    std::map<std::string, std::vector<action_list>> m_sections;
    std::map<std::string, std::size_t> m_taken;
    std::string m_error;
};

}  // namespace vask_test

#endif
