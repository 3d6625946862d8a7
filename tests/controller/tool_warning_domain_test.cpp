// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Built together with the tool's source, with a log domain of the build.

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "controller/open_tool.h"
#include "support/idle_process.h"

#ifndef G_LOG_DOMAIN
#error "The build has to define a log domain."
#endif

using namespace vask_test;
using testing::ElementsAre;

namespace {

void note_domain(const char* domain, GLogLevelFlags, const char* text, gpointer domains) {
    static_cast<std::vector<std::string>*>(domains)->push_back(
        std::string(domain ? domain : "no domain") + ": " + text);
}

}  // namespace

TEST(tool_warning, Has_no_domain) {
    const idle_process target(controller_child_name);
    open_tool tool;
    std::vector<std::string> warnings;
    const GLogFunc former = g_log_set_default_handler(note_domain, &warnings);
    g_warning("of this test");

    EXPECT_EQ(tool.run_with({"tool", "unknown"}), 0);

    g_log_set_default_handler(former, nullptr);
    EXPECT_THAT(warnings, ElementsAre("domain_of_the_build: of this test",
                                      "no domain: The command is not supported\n"));
}
