// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/resource_count.h"

#include <dbus/dbus.h>
#include <dirent.h>
#include <dlfcn.h>
#include <glib-unix.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <ostream>

#include "vask_test/process_list.h"

namespace vask_test {

namespace {

std::vector<std::string> open_descriptors(pid_t pid) {
    std::vector<std::string> result;
    DIR* directory = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
    if (!directory) {
        return result;
    }
    while (const dirent* entry = readdir(directory)) {
        char target[PATH_MAX];
        const ssize_t length = readlinkat(dirfd(directory), entry->d_name, target, sizeof target);
        const bool is_ours = pid == getpid() && std::atoi(entry->d_name) == dirfd(directory);
        if (length >= 0 && !is_ours) {
            result.emplace_back(target, static_cast<size_t>(length));
        }
    }
    closedir(directory);
    return result;
}

std::vector<std::string> children_of(pid_t pid) {
    std::vector<std::string> result;
    for (const process_entry& process : list_processes()) {
        if (process.parent == pid) {
            result.push_back(std::to_string(process.pid) + " " + process.command);
        }
    }
    return result;
}

std::vector<std::string> files_in(const char* path) {
    std::vector<std::string> result;
    DIR* directory = opendir(path);
    if (!directory) {
        return result;
    }
    while (const dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            result.push_back(name);
        }
    }
    closedir(directory);
    return result;
}

gboolean do_nothing(gpointer) {
    return G_SOURCE_REMOVE;
}

// There is no list of the attached sources, but their ids are given out in ascending order.
std::vector<std::string> attached_sources() {
    GSource* probe = g_idle_source_new();
    g_source_set_callback(probe, do_nothing, nullptr, nullptr);
    const guint end = g_source_attach(probe, nullptr);
    std::vector<std::string> result;
    for (guint id = 1; id < end; ++id) {
        GSource* source = g_main_context_find_source_by_id(nullptr, id);
        if (!source) {
            continue;
        }
        const char* name = g_source_get_name(source);
        result.push_back(name ? name : "without name");
    }
    g_source_destroy(probe);
    g_source_unref(probe);
    return result;
}

bool is_library_object(const std::string& name) {
    constexpr char registry[] = "vask_proc_pid_";
    return name.compare(0, sizeof registry - 1, registry) == 0 || name == "sem.vask_shm_lock" ||
           name == "vask_shared_info" || name == "sem.vask_shm_context_sem_vask_shared_info";
}

std::vector<std::string> sorted(std::vector<std::string> list) {
    std::sort(list.begin(), list.end());
    return list;
}

std::string changes(const char* kind, const std::vector<std::string>& before,
                    const std::vector<std::string>& after) {
    std::string text;
    const auto report = [&text, kind](const char* change, const std::vector<std::string>& from,
                                      const std::vector<std::string>& without) {
        std::vector<std::string> items;
        std::set_difference(from.begin(), from.end(), without.begin(), without.end(),
                            std::back_inserter(items));
        for (const std::string& item : items) {
            text += std::string(change) + " " + kind + ": " + item + "\n";
        }
    };
    report("additional", after, before);
    report("missing", before, after);
    return text;
}

// The connection of all bridges and children. It is the bus library's, which a test has from the
// library under test if it has it at all. One that was lost is given up for the next one.
void connect_to_session_bus() {
    typedef void* get_function(int type, GError** error);
    typedef void unref_function(void* connection);
    static void* kept = nullptr;
    void* const library = dlopen("libdbus-glib-1.so.2", RTLD_LAZY);
    void* const get = library ? dlsym(library, "dbus_g_bus_get") : nullptr;
    void* const unref = library ? dlsym(library, "dbus_g_connection_unref") : nullptr;
    if (!get || !unref) {
        return;
    }
    GError* error = nullptr;
    void* const connection = reinterpret_cast<get_function*>(get)(DBUS_BUS_SESSION, &error);
    g_clear_error(&error);
    if (kept) {
        reinterpret_cast<unref_function*>(unref)(kept);
    }
    kept = connection;
}

}  // namespace

resource_count resource_count::of(pid_t pid) {
    resource_count result;
    result.descriptors = sorted(open_descriptors(pid));
    result.children = sorted(children_of(pid));
    result.shared_objects = sorted(files_in("/dev/shm"));
    return result;
}

resource_count resource_count::take() {
    resource_count result = of(getpid());
    result.sources = sorted(attached_sources());
    return result;
}

resource_count resource_count::without_library_objects() const {
    resource_count result = *this;
    std::vector<std::string>& objects = result.shared_objects;
    objects.erase(std::remove_if(objects.begin(), objects.end(), is_library_object), objects.end());
    return result;
}

std::string resource_count::difference(const resource_count& later) const {
    return changes("descriptor", descriptors, later.descriptors) +
           changes("child", children, later.children) +
           changes("shared object", shared_objects, later.shared_objects) +
           changes("main loop source", sources, later.sources);
}

void PrintTo(const resource_count& count, std::ostream* out) {
    *out << count.descriptors.size() << " descriptors and " << count.children.size() << " children";
}

void warm_up_process_resources() {
    g_main_context_default();
    // A signal source is what makes GLib start its worker thread.
    g_source_unref(g_unix_signal_source_new(SIGUSR2));

    connect_to_session_bus();
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

}  // namespace vask_test
