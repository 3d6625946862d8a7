// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "log_file.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "complaint.h"
#include "printable.h"

namespace vaskctl {

namespace {

void append(std::vector<log_entry>& all, const std::vector<log_entry>& more) {
    all.insert(all.end(), more.begin(), more.end());
}

}  // namespace

log_file::log_file(const std::string& path) : m_path(path) {
    open_file();
    if (S_ISDIR(m_facts.st_mode)) {
        throw complaint(status_usage, printable(path) + " is a directory");
    }
    if (!m_file) {
        throw complaint(status_failed, printable(path) + " cannot be opened: " + strerror(errno));
    }
}

void log_file::open_file() {
    m_file = m_path == "-" ? unique_fd(dup(STDIN_FILENO))
                           : unique_fd(open(m_path.c_str(), O_RDONLY | O_CLOEXEC));
    m_facts = {};
    if (m_file) {
        fstat(m_file.get(), &m_facts);
    }
    m_is_regular = S_ISREG(m_facts.st_mode);
}

std::string log_file::read_piece() {
    char piece[65536];
    ssize_t length;
    do {
        length = read(m_file.get(), piece, sizeof(piece));
    } while (length < 0 && errno == EINTR);
    return std::string(piece, length > 0 ? static_cast<std::size_t>(length) : 0);
}

std::vector<log_entry> log_file::read_all() {
    std::vector<log_entry> entries;
    for (std::string piece = read_piece(); !piece.empty(); piece = read_piece()) {
        append(entries, m_reader.take(piece));
    }
    append(entries, m_reader.flush());
    return entries;
}

void log_file::begin_anew_where_changed() {
    struct stat named;
    if (!m_is_regular || stat(m_path.c_str(), &named) != 0) {
        return;
    }
    if (named.st_ino != m_facts.st_ino || named.st_dev != m_facts.st_dev) {
        open_file();
        m_reader = log_reader();
    } else if (named.st_size < lseek(m_file.get(), 0, SEEK_CUR)) {
        lseek(m_file.get(), 0, SEEK_SET);
        m_reader = log_reader();
    }
}

std::vector<log_entry> log_file::read_more() {
    if (!m_is_regular) {
        return {};
    }
    std::vector<log_entry> entries = m_file ? read_all() : std::vector<log_entry>();
    begin_anew_where_changed();
    return entries;
}

}  // namespace vaskctl
