// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "page_loads.h"

#include <vask_object.h>

#include <algorithm>
#include <regex>

#include "met_children.h"
#include "vask_test/log_catcher.h"
#include "vask_test/resource_count.h"

using namespace vask_test;

namespace {

resource_count resources() {
    resource_count result = resource_count::take();
    // The one of the ready instance is another one each time, and the source that waits for its end
    // has its process id in the name.
    result.children.clear();
    for (std::string& source : result.sources) {
        source = std::regex_replace(source, std::regex("child \\d+"), "child");
    }
    std::sort(result.sources.begin(), result.sources.end());
    return result;
}

}  // namespace

TEST_F(page_loads, Two_hundred_leave_no_descriptor_child_or_source_behind) {
    {
        const met_children met;
        load_and_leave(1);
        // Until then a question to the bus is under way.
        ASSERT_TRUE(host.wait_until([&] { return met.count() == 2; }));
    }
    const resource_count before = resources();

    load_and_leave(200);

    settle();
    host.wait_until([&] { return before.difference(resources()).empty(); });
    EXPECT_EQ(before.difference(resources()), "");
}

TEST_F(page_loads, Each_element_is_destroyed_with_its_page) {
    log_catcher log;
    setenv("VASK_MSG_LV", "DBG", 1);
    vask_object::set_print_msg_level_level();

    load_and_leave(20);
    settle();

    const auto lines = log.lines();
    const auto count = [&lines](const std::string& text) {
        return std::count(lines.begin(), lines.end(), line("DBG", "demo_plugin", text));
    };
    const auto made = count("vask_script::vask_script(const char*)(const char*)");
    EXPECT_GE(made, 21);
    EXPECT_EQ(count("virtual vask_np_instance::~vask_np_instance()"), made - 1);
}
