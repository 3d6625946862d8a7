// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_ENGINE_PAGE_H
#define VASK_TEST_ENGINE_PAGE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "vask_test/googletest.h"
#include "vask_test/process_list.h"
#include "web_host.h"

namespace vask_test {

inline std::string page_file(const std::string& name) {
    return std::string(VASK_TEST_PAGE_DIR "/") + name;
}

/** A test in the engine. */
class engine_page : public testing::Test {
protected:
    engine_page() {
        // The engine keeps connections and threads, and the plug-in a ready instance, until the
        // process ends. What has to be given back, tests count themselves.
        leak_listener::accept_leftovers();
    }

    void load(const std::string& page) { ASSERT_TRUE(host.load(page_file(page))); }

    std::string run(const std::string& script) { return host.run(script); }

    // When this returns, the child of "plugin" has painted its window. One that was killed
    // meanwhile could leave the shared record locked, and the next would wait for ever.
    void wait_for_child() {
        ASSERT_TRUE(host.wait_until("plugin.is_ready"));
        ASSERT_THAT(run("plugin.greet('test')"), testing::HasSubstr("Hello test"));
    }

    web_host host;
};

/** A test with a page that has the variable "plugin", an element of 300x120, and page.js. */
class engine_element : public engine_page {
protected:
    void SetUp() override { load("one_element.html"); }

    int child() { return std::stoi(run("plugin.child")); }
};

/** The process ids of this process's children. */
inline std::vector<pid_t> own_children() {
    std::vector<pid_t> result;
    for (const process_entry& process : list_processes()) {
        if (process.parent == getpid() && process.state != 'Z') {
            result.push_back(process.pid);
        }
    }
    return result;
}

}  // namespace vask_test

#endif
