// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_GLIB_LOG_CATCHER_H
#define VASK_TEST_GLIB_LOG_CATCHER_H

#include <glib.h>

#include <ostream>
#include <string>
#include <vector>

namespace vask_test {

/** Collects what is logged through GLib while the object lives. */
class glib_log_catcher {
public:
    struct entry {
        GLogLevelFlags level;
        std::string text;
        bool operator==(const entry& other) const {
            return level == other.level && text == other.text;
        }
        friend void PrintTo(const entry& shown, std::ostream* out) {
            *out << shown.level << " \"" << shown.text << "\"";
        }
    };

    glib_log_catcher() : m_former(g_log_set_default_handler(add, this)) {}
    ~glib_log_catcher() { g_log_set_default_handler(m_former, nullptr); }
    glib_log_catcher(const glib_log_catcher&) = delete;
    glib_log_catcher& operator=(const glib_log_catcher&) = delete;

    std::vector<entry> entries;

private:
    static void add(const char*, GLogLevelFlags level, const char* text, gpointer data) {
        static_cast<glib_log_catcher*>(data)->entries.push_back({level, text});
    }

    GLogFunc m_former;
};

}  // namespace vask_test

#endif
