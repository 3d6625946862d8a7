// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_LOG_LINE_H
#define VASKCTL_LOG_LINE_H

#include <optional>
#include <string>
#include <vector>

namespace vaskctl {

// A message of the library's log: a header with what stands behind it, and the lines without a
// header that follow.
struct log_entry {
    double time = 0;  // of the header before, for one without the flag T
    bool has_time = false;
    std::string name;
    int pid = 0;     // 0 for lines in front of the first header
    int level = -1;  // the library's number; -1 for none
    std::string text;
    bool continues = false;  // the header was shown already
};

// The number of a level that is given by its name or its number; nothing for another text.
std::optional<int> parse_level(const std::string& text);

const char* name_of_level(int level);

// Cuts what a process has logged into messages. A message of the library need not end its line, so
// a header with a time may stand in the middle of one.
class log_reader {
public:
    // Takes up any piece of a log, and gives the messages that are complete: those behind which the
    // next one has begun.
    std::vector<log_entry> take(const std::string& piece);

    // The last one, which nothing follows for now. What comes later without a header continues it.
    std::vector<log_entry> flush();

private:
    void take_line(const std::string& line, std::vector<log_entry>& complete);
    void begin(const log_entry& entry, std::vector<log_entry>& complete);

    std::string m_unfinished;  // the last line, as long as its end has not come
    log_entry m_entry;
    bool m_has_entry = false;
};

}  // namespace vaskctl

#endif
