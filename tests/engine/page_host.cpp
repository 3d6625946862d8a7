// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Shows a page of the sample plug-in in a real browser engine.

#include <cstdio>
#include <cstring>
#include <string>

#include "web_host.h"

namespace {

struct options {
    std::string page;
    std::string condition = "true";
    std::string screenshot;
};

bool parse(int argc, char** argv, options* result) {
    for (int i = 1; i < argc; ++i) {
        const bool has_value = i + 1 < argc;
        if (std::strcmp(argv[i], "--screenshot") == 0 && has_value) {
            result->screenshot = argv[++i];
        } else if (std::strcmp(argv[i], "--until") == 0 && has_value) {
            result->condition = argv[++i];
        } else if (argv[i][0] != '-' && result->page.empty()) {
            result->page = argv[i];
        } else {
            return false;
        }
    }
    return !result->page.empty();
}

}  // namespace

int main(int argc, char** argv) {
    options wanted;
    if (!parse(argc, argv, &wanted)) {
        std::fprintf(stderr,
                     "usage: page_host [--until SCRIPT] [--screenshot FILE] PAGE\n"
                     "Loads the page, waits until the script is true in it, and writes what it "
                     "looks like then.\n");
        return 2;
    }
    vask_test::web_host host;
    if (!host.load(wanted.page)) {
        std::fprintf(stderr, "page_host: %s cannot be loaded\n", wanted.page.c_str());
        return 1;
    }
    if (!host.wait_until(wanted.condition)) {
        std::fprintf(stderr, "page_host: never true: %s\n", wanted.condition.c_str());
        return 1;
    }
    if (!wanted.screenshot.empty() && !host.save_screenshot(wanted.screenshot)) {
        std::fprintf(stderr, "page_host: %s cannot be written\n", wanted.screenshot.c_str());
        return 1;
    }
    return 0;
}
