// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SOAK_REPORT_H
#define VASK_TEST_SOAK_REPORT_H

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace vask_test {

/**
 * Tells the supervisor of a soak what a program has measured. The file is shared by all of them:
 * a line is written by one call, and lines do not mix.
 */
class soak_report {
public:
    soak_report() {
        const char* path = std::getenv("VASK_SOAK_REPORT");
        m_file = path ? open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644) : -1;
    }
    ~soak_report() { close(m_file); }
    soak_report(const soak_report&) = delete;
    soak_report& operator=(const soak_report&) = delete;

    static gint64 now() { return g_get_monotonic_time(); }

    void add(const std::string& what, gint64 since) {
        m_latencies[what].push_back(now() - since);
        if (now() - m_last_line > line_interval_usec) {
            write_out();
        }
    }

    /** Something that must not happen. */
    void complain(const std::string& text) { write_line("COMPLAINT " + text); }

private:
    static constexpr gint64 line_interval_usec = 5 * G_USEC_PER_SEC;

    void write_out() {
        for (auto& entry : m_latencies) {
            std::vector<gint64>& all = entry.second;
            std::sort(all.begin(), all.end());
            write_line("LATENCY " + entry.first + " " + std::to_string(all.size()) + " " +
                       std::to_string(all[all.size() / 2]) + " " + std::to_string(all.back()));
        }
        m_latencies.clear();
        m_last_line = now();
    }

    void write_line(const std::string& text) const {
        const std::string line = text + " pid " + std::to_string(getpid()) + " at " +
                                 std::to_string(now() / G_USEC_PER_SEC) + "\n";
        if (write(m_file, line.data(), line.size()) < 0) {
            std::perror("soak_report");
        }
    }

    int m_file;
    gint64 m_last_line = now();
    std::map<std::string, std::vector<gint64>> m_latencies;
};

}  // namespace vask_test

#endif
