// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_LOG_FILE_H
#define VASKCTL_LOG_FILE_H

#include <sys/stat.h>

#include <string>
#include <vector>

#include "foundation/unique_fd.h"
#include "log_line.h"

namespace vaskctl {

// A log that may still grow. One that was cut off is read from its start, and one that was replaced
// is opened anew.
class log_file {
public:
    // "-" is standard input. Throws a complaint for one that cannot be opened.
    explicit log_file(const std::string& path);
    log_file(log_file&&) = default;

    // All messages up to the present end.
    std::vector<log_entry> read_all();

    // What has come since. Waits for nobody.
    std::vector<log_entry> read_more();

private:
    void open_file();
    void begin_anew_where_changed();
    std::string read_piece();

    std::string m_path;
    unique_fd m_file;
    struct stat m_facts = {};   // of what is open, to see when the path leads elsewhere
    bool m_is_regular = false;  // else it cannot have been cut off
    log_reader m_reader;
};

}  // namespace vaskctl

#endif
