// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "foundation/glib_handles.h"
#include "foundation/log_place.h"
#include "foundation/tree_removal.h"
#include "foundation/unique_fd.h"
#include "foundation/uri_decode.h"
#include "vask_object.h"

namespace {

const char source_unit[] = "vask_object_file";

const char file_scheme[] = "file://";
constexpr size_t file_scheme_length = sizeof(file_scheme) - 1;

bool is_directory(const char* path) {
    return g_file_test(path, G_FILE_TEST_IS_DIR);
}

// Length of the part that names the directory above; 0 for the root, which exists, and for a bare
// relative name, which lies in the current directory. Trailing slashes do not make a directory of
// their own.
size_t parent_length(const std::string& path) {
    const size_t last = path.find_last_not_of('/');
    const size_t slash = last == std::string::npos ? last : path.rfind('/', last);
    return slash == std::string::npos ? 0 : slash;
}

bool make_one_dir(const char* signature, const std::string& path) {
    if (mkdir(path.c_str(), 0755) == 0) {
        return true;
    }
    const int error = errno;
    // Another process may have made it meanwhile, which is just as good.
    if (error == EEXIST && is_directory(path.c_str())) {
        return true;
    }
    vask_object::vask_p("vask_object", VASK_P_ERR, "%s: Failed to call mkdir(): %s: %d\n",
                        signature, path.c_str(), error);
    return false;
}

unique_fd open_directory(const char* path, int more_flags) {
    return unique_fd(open(path, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC | more_flags));
}

bool report_not_opened() {
    // The "%s" stands where the name belongs, and the signature where the path belongs: kept.
    vask_object::vask_p("%s", VASK_P_ERR, "Failed to call g_dir_open(): %s\n",
                        "static bool vask_object::delete_dir(const char*)");
    return false;
}

bool report_not_removed(const char* path, int error) {
    vask_object::vask_p("vask_object", VASK_P_ERR, "%s: Failed to call remove(): %s : %d\n",
                        "static bool vask_object::delete_path(const char*)", path, error);
    return false;
}

// The path is for messages only.
bool empty_directory(unique_fd directory, const char* path) {
    if (!directory) {
        return report_not_opened();
    }
    tree_removal removal(std::move(directory));
    if (removal.run()) {
        return true;
    }
    if (removal.failed_to_open()) {
        return report_not_opened();
    }
    const std::string entry_path =
        vask_object::build_path(path, removal.failed_path().c_str(), nullptr);
    return report_not_removed(entry_path.c_str(), removal.error());
}

}  // namespace

std::string vask_object::build_path(const char* first, ...) {
    std::vector<gchar*> elements;
    va_list args;
    va_start(args, first);
    for (const char* element = first; element != nullptr; element = va_arg(args, const char*)) {
        elements.push_back(const_cast<gchar*>(element));
    }
    va_end(args);
    elements.push_back(nullptr);
    const unique_g_text path(g_build_filenamev(elements.data()));
    return path.get();
}

std::string vask_object::get_dir_name(const char* path) {
    std::string text = path;
    const std::string::size_type slash = text.rfind('/');
    if (slash == std::string::npos || slash + 1 == text.size()) {
        return text;
    }
    return text.substr(0, slash);
}

std::string vask_object::make_exec_path(const char* program) {
    return std::string("/usr/bin/") + program;
}

std::string vask_object::file_uri_to_local_path(const std::string& uri) {
    if (uri.compare(0, file_scheme_length, file_scheme) != 0) {
        return std::string();
    }
    const unique_g_text decoded = decode_uri(uri.c_str());
    if (!decoded) {
        vask_p("vask", VASK_P_ERR, VASK_AT("Failed to call soup_uri_decode: %s"), uri.c_str());
        return std::string();
    }
    return decoded.get() + file_scheme_length;
}

bool vask_object::make_dir_if_necessary(const char* path, bool must_be_absolute) {
    const char* const signature =
        "static bool vask_object::make_dir_if_necessary(const char*, bool)";
    if (must_be_absolute && *path != '/') {
        vask_p("vask_object", VASK_P_WARN, "%s: dirname doesn't begin w/ '/': %s\n", signature,
               path);
        return false;
    }
    // No recursion: whoever wrote the path would decide how much stack it takes.
    std::vector<size_t> missing;  // their lengths, the deepest first
    std::string dir = path;
    while (!is_directory(dir.c_str())) {
        missing.push_back(dir.size());
        const size_t length = parent_length(dir);
        if (length == 0) {
            break;
        }
        dir.resize(length);
    }
    return std::all_of(missing.rbegin(), missing.rend(), [&](size_t length) {
        return make_one_dir(signature, std::string(path, length));
    });
}

bool vask_object::delete_dir(const char* path) {
    return empty_directory(open_directory(path, 0), path);
}

bool vask_object::delete_path(const char* path) {
    struct stat info;
    if (lstat(path, &info) == 0 && S_ISDIR(info.st_mode)) {
        unique_fd directory = open_directory(path, O_NOFOLLOW);
        // A link may have the name by now; then the link is removed.
        const bool is_other = !directory && (errno == ENOTDIR || errno == ELOOP);
        if (!is_other && !empty_directory(std::move(directory), path)) {
            return false;
        }
    }
    return remove(path) == 0 || report_not_removed(path, errno);
}
