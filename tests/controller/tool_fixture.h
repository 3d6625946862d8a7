// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_TOOL_FIXTURE_H
#define VASK_TEST_TOOL_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "controller/open_tool.h"
#include "support/glib_log_catcher.h"
#include "vask_test/log_catcher.h"

namespace vask_test {

/** A tool in a process in which nobody has asked for anything yet. */
class tool_test : public testing::Test {
protected:
    tool_test() { vask_child_cmd::options = {0, 0, 0, 0}; }

    static constexpr const char* usage =
        "Usage\n"
        "\n"
        "  $ tool command [arguments]\n"
        "\n"
        "  Supported commands are\n"
        "    test : Internal test. This does not actually send a message.\n"
        "    note [WORD]... : Notes the words\n"
        "    fail : Fails\n"
        "    pid : Asks for the process id\n"
        "    refused : Is refused\n"
        "\n";
    static constexpr const char* not_found = "Not found 'wanted_child' in this computer\n";

    log_catcher log;
    glib_log_catcher glib_log;
    open_tool tool;
};

}  // namespace vask_test

#endif
