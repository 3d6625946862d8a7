// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/tree_removal.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

namespace {

// More of them would save the way back through ".." in deeper trees, but take descriptors from
// others.
constexpr size_t open_levels = 8;

// For about 4,000 entries, and less than malloc() would map for this alone.
constexpr size_t buffer_size = 120 * 1024;

// A read that leaves room for another entry has most likely come to the end of the directory.
constexpr size_t full_size = buffer_size - sizeof(dirent64);

constexpr int how_to_open = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

bool is_dot_or_dot_dot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Removes the last text and returns it. Each text ends with its zero.
std::string take_last(std::string* texts) {
    texts->pop_back();
    const size_t zero = texts->rfind('\0');
    const size_t start = zero == std::string::npos ? 0 : zero + 1;
    std::string last = texts->substr(start);
    texts->resize(start);
    return last;
}

}  // namespace

tree_removal::tree_removal(unique_fd directory) : m_buffer(new char[buffer_size]) {
    m_levels.emplace_back(std::move(directory), std::string());
}

bool tree_removal::run() {
    for (;;) {
        const level& current = m_levels.back();
        const bool is_read =
            current.reading == progress::seems_over || current.reading == progress::over;
        if (!current.directories.empty()) {
            if (!enter_directory()) {
                return false;
            }
        } else if (!is_read) {
            if (!read_directory()) {
                return false;
            }
        } else if (m_levels.size() == 1) {
            return true;
        } else if (!leave_directory()) {
            return false;
        }
    }
}

std::string tree_removal::failed_path() const {
    std::string path;
    for (size_t i = 1; i < m_levels.size(); ++i) {
        path += m_levels[i].name + '/';
    }
    return path + m_failed_entry;
}

// Like GLib's reader, it takes a read error for the end of the directory: if entries are left, the
// directory cannot be removed. The first one is read to its end, because nobody tries that here.
bool tree_removal::read_directory() {
    level& current = m_levels.back();
    const ssize_t length = getdents64(current.fd.get(), m_buffer.get(), buffer_size);
    if (length <= 0) {
        current.reading = progress::over;
        return true;
    }
    if (static_cast<size_t>(length) <= full_size && current.reading == progress::goes_on &&
        m_levels.size() > 1) {
        current.reading = progress::seems_over;
    }
    return take_entries(static_cast<size_t>(length));
}

// In the order of the inodes: what lies side by side on the disk goes together, which saves a file
// system that lists names by their hash a tenth of its work.
bool tree_removal::take_entries(size_t length) {
    m_entries.clear();
    for (size_t offset = 0; offset < length;) {
        const auto* entry = reinterpret_cast<const dirent64*>(&m_buffer[offset]);
        if (!is_dot_or_dot_dot(entry->d_name)) {
            m_entries.push_back(entry);
        }
        offset += entry->d_reclen;
    }
    std::sort(m_entries.begin(), m_entries.end(),
              [](const dirent64* a, const dirent64* b) { return a->d_ino < b->d_ino; });
    return std::all_of(m_entries.begin(), m_entries.end(),
                       [this](const dirent64* entry) { return take_entry(*entry); });
}

// Directories have to wait, because all levels use the same buffer.
bool tree_removal::take_entry(const dirent64& entry) {
    const char* const name = entry.d_name;
    if (!is_directory(entry)) {
        if (unlinkat(directory().get(), name, 0) == 0) {
            return true;
        }
        // It may have become a directory since it was read.
        if (errno != EISDIR) {
            return fail(name);
        }
    }
    m_levels.back().directories.append(name, strlen(name) + 1);
    return true;
}

bool tree_removal::is_directory(const dirent64& entry) const {
    struct stat info;
    return entry.d_type == DT_DIR ||
           (entry.d_type == DT_UNKNOWN &&
            fstatat(directory().get(), entry.d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISDIR(info.st_mode));
}

bool tree_removal::enter_directory() {
    const std::string name = take_last(&m_levels.back().directories);
    unique_fd opened(openat(directory().get(), name.c_str(), how_to_open));
    if (!opened) {
        // Something else has the name by now, or nothing.
        if (errno == ENOTDIR || errno == ELOOP || errno == ENOENT) {
            return remove_directory(name) || fail(name);
        }
        m_failed_to_open = true;
        return fail(name);
    }
    m_levels.emplace_back(std::move(opened), name);
    if (m_levels.size() > open_levels) {
        close_directory(m_levels[m_levels.size() - 1 - open_levels]);
    }
    return true;
}

// The removal shows whether there was more to read.
bool tree_removal::leave_directory() {
    level left = std::move(m_levels.back());
    m_levels.pop_back();
    if (!directory() && !open_parent_of(left)) {
        return fail(left.name);
    }
    if (remove_directory(left.name)) {
        return true;
    }
    if ((errno != ENOTEMPTY && errno != EEXIST) || left.reading != progress::seems_over) {
        return fail(left.name);
    }
    left.reading = progress::goes_on_to_the_end;
    m_levels.push_back(std::move(left));
    return true;
}

// If something else has the directory's name by now, removes that, as remove() does.
bool tree_removal::remove_directory(const std::string& name) {
    return unlinkat(directory().get(), name.c_str(), AT_REMOVEDIR) == 0 ||
           (errno == ENOTDIR && unlinkat(directory().get(), name.c_str(), 0) == 0);
}

// The inode's number is not used again meanwhile: the open directories below hold the inode. An
// earlier branch of this depth may have closed the level already.
void tree_removal::close_directory(level& upper) {
    struct stat info;
    if (upper.fd && fstat(upper.fd.get(), &info) == 0) {
        upper.device = info.st_dev;
        upper.inode = info.st_ino;
        upper.fd = unique_fd();
    }
}

// If more of the parent is to be read, that begins again; all that was read before is gone. If ".."
// leads elsewhere, somebody has moved the directory below out of this tree, and nothing there is
// ours.
bool tree_removal::open_parent_of(const level& left) {
    level& upper = m_levels.back();
    unique_fd opened(openat(left.fd.get(), "..", how_to_open));
    struct stat info;
    if (!opened || fstat(opened.get(), &info) != 0) {
        return false;
    }
    if (info.st_dev != upper.device || info.st_ino != upper.inode) {
        errno = ENOENT;
        return false;
    }
    upper.fd = std::move(opened);
    return true;
}

bool tree_removal::fail(const std::string& entry) {
    m_error = errno;
    m_failed_entry = entry;
    return false;
}
