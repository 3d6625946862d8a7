// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A browser that is left on for long: opens pages with plug-in elements, uses them, and leaves
// them. Ends properly at SIGTERM.
//
// usage: soak_pages DIRECTORY_OF_PAGES

#include <csignal>
#include <cstdio>
#include <string>

#include "soak_report.h"
#include "web_host.h"

namespace {

constexpr int stay_msec = 4000;
constexpr int answer_msec = 30000;
constexpr int loads_between_cleanings = 20;

volatile std::sig_atomic_t is_over = 0;

class soak_pages {
public:
    explicit soak_pages(const std::string& directory) : m_directory(directory) {}

    void visit(const std::string& page, const std::string& element) {
        const gint64 begin = vask_test::soak_report::now();
        if (!m_host.load(m_directory + "/" + page)) {
            m_report.complain("cannot load " + page);
            return;
        }
        m_host.run(element + ".attachEvent('rang', listener('rang'))");
        m_host.run(element + ".ring('one')");
        const bool has_rung = m_host.wait_until(
            [this] { return is_over || m_host.run("heard.length == 1") == "true"; }, answer_msec);
        // The child may have been killed.
        m_report.add(has_rung ? "page" : "silent-page", begin);
        m_host.wait_until([] { return is_over != 0; }, stay_msec);
    }

    void run() {
        for (int i = 1; !is_over; ++i) {
            visit("one_element.html", "plugin");
            visit("two_elements.html", i % 2 == 0 ? "first" : "second");
            m_host.load(m_directory + "/no_element.html");
            if (i % loads_between_cleanings == 0) {
                m_host.drop_caches();
            }
        }
    }

private:
    const std::string m_directory;
    vask_test::soak_report m_report;
    vask_test::web_host m_host;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: soak_pages DIRECTORY_OF_PAGES\n");
        return 2;
    }
    std::signal(SIGTERM, [](int) { is_over = 1; });
    soak_pages(argv[1]).run();
    return 0;
}
