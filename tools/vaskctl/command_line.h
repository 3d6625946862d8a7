// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_COMMAND_LINE_H
#define VASKCTL_COMMAND_LINE_H

#include <glib.h>

#include <string>
#include <vector>

namespace vaskctl {

// The words behind a verb, sorted into options and the others. What stands behind "--" is never an
// option. The options that every verb has are members; a verb adds its own.
class command_line {
public:
    // The parameters are what stands behind the verb and its options in the first line of the help,
    // null for none; the description is what stands below it.
    command_line(const char* verb, const char* parameters, const char* description);
    ~command_line();

    command_line(const command_line&) = delete;
    command_line& operator=(const command_line&) = delete;

    void add_flag(const char* name, const char* help, bool* value);
    void add_number(const char* name, const char* help, const char* unit, int* value);
    void add_text(const char* name, const char* help, const char* unit, std::string* value);

    // Throws a complaint. The option --help prints the help and ends the process.
    void parse(const std::vector<std::string>& words);

    // Throws a complaint unless there are so many words that are no options.
    void expect_words(std::size_t least, std::size_t most) const;

    const std::vector<std::string>& words() const { return m_words; }

    // Those behind "--"; they are among words(), too.
    const std::vector<std::string>& words_behind_dashes() const { return m_behind_dashes; }
    bool has_dashes() const { return m_has_dashes; }

    bool json = false;
    bool no_legend = false;

    bool has_legend() const { return !no_legend && !json; }

private:
    struct option;
    option& add(const char* name, const char* help, const char* unit);
    GOptionContext* make_context();

    const std::string m_verb;
    const char* const m_parameters;
    const char* const m_description;
    std::vector<option*> m_options;
    std::vector<std::string> m_words;          // what is no option, before "--"
    std::vector<std::string> m_behind_dashes;  // a command line of its own
    bool m_has_dashes = false;
};

// A whole number, or a complaint that names what it should have been.
long long parse_number(const std::string& text, const char* what);

}  // namespace vaskctl

#endif
