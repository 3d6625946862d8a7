#include <errno.h>
#include <glib.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <memory>

#include "foundation/glib_handles.h"
#include "vask_object.h"

G_GNUC_BEGIN_IGNORE_DEPRECATIONS
#include <libsoup/soup.h>
G_GNUC_END_IGNORE_DEPRECATIONS

namespace {

struct dir_closer {
    void operator()(GDir* directory) const { g_dir_close(directory); }
};

const char file_scheme[] = "file://";
constexpr size_t file_scheme_length = sizeof(file_scheme) - 1;

bool is_directory(const char* path) {
    return g_file_test(path, G_FILE_TEST_IS_DIR);
}

// The directory that has to exist before this one can be made; empty for the root, which exists,
// and for a bare relative name, which lies in the current directory. Trailing slashes do not make
// a directory of their own.
std::string parent_to_make(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    const std::string parent = vask_object::get_dir_name(path.c_str());
    return parent == path ? std::string() : parent;
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
    const unique_g_text decoded(soup_uri_decode(uri.c_str()));
    if (!decoded) {
        vask_p("vask", VASK_P_ERR, "<%s:%d> Failed to call soup_uri_decode: %s\n",
               "vask_object_file", __LINE__, uri.c_str());
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
    if (is_directory(path)) {
        return true;
    }
    const std::string parent = parent_to_make(path);
    if (!parent.empty() && !make_dir_if_necessary(parent.c_str(), false)) {
        return false;
    }
    if (mkdir(path, 0755) != 0) {
        const int error = errno;
        // Another process may have made it meanwhile, which is as good.
        if (error == EEXIST && is_directory(path)) {
            return true;
        }
        vask_p("vask_object", VASK_P_ERR, "%s: Failed to call mkdir(): %s: %d\n", signature, path,
               error);
        return false;
    }
    return true;
}

bool vask_object::delete_dir(const char* path) {
    const std::unique_ptr<GDir, dir_closer> directory(g_dir_open(path, 0, nullptr));
    if (!directory) {
        // The "%s" stands where the name belongs, and the signature where the path belongs: kept.
        vask_p("%s", VASK_P_ERR, "Failed to call g_dir_open(): %s\n",
               "static bool vask_object::delete_dir(const char*)");
        return false;
    }
    while (const gchar* entry = g_dir_read_name(directory.get())) {
        const std::string entry_path = build_path(path, entry, nullptr);
        if (!delete_path(entry_path.c_str())) {
            return false;
        }
    }
    return true;
}

bool vask_object::delete_path(const char* path) {
    struct stat info;
    if (lstat(path, &info) == 0 && S_ISDIR(info.st_mode) && !delete_dir(path)) {
        return false;
    }
    if (remove(path) != 0) {
        vask_p("vask_object", VASK_P_ERR, "%s: Failed to call remove(): %s : %d\n",
               "static bool vask_object::delete_path(const char*)", path, errno);
        return false;
    }
    return true;
}
