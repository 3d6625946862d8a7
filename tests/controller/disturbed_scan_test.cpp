// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What may happen while the process table is read.

#include <dirent.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/idle_process.h"
#include "support/interpose.h"
#include "vask_child_cmd.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

idle_process* ends_when_listed = nullptr;
bool is_proc_missing = false;

}  // namespace

extern "C" DIR* opendir(const char* path) {
    static const auto next = next_function<DIR*(const char*)>("opendir");
    if (is_proc_missing && path == std::string("/proc")) {
        errno = ENOENT;
        return nullptr;
    }
    return next(path);
}

extern "C" dirent* readdir(DIR* directory) {
    static const auto next = next_file_function<dirent*(DIR*)>("readdir");
    dirent* entry = next(directory);
    if (entry && ends_when_listed && entry->d_name == std::to_string(ends_when_listed->pid())) {
        ends_when_listed->kill_now();
        ends_when_listed = nullptr;
    }
    return entry;
}

TEST(disturbed_scan, Passes_over_a_process_that_ends_when_it_was_listed) {
    log_catcher log;
    idle_process vanishing("wanted");
    const idle_process staying("wanted");

    ends_when_listed = &vanishing;
    const std::vector<int> found = vask_child_cmd_base("finder", "wanted").find_program();

    EXPECT_EQ(ends_when_listed, nullptr) << "It was not listed.";
    EXPECT_THAT(found, ElementsAre(staying.pid()));
    EXPECT_EQ(log.text(), "");
}

TEST(disturbed_scan, Says_on_standard_output_that_there_is_no_process_table) {
    log_catcher log;
    // It is no diagnostic message.
    vask_object::print_msg_level = VASK_P_EMERG;
    const vask_child_cmd_base finder("finder", "wanted");

    is_proc_missing = true;
    const std::vector<int> found = finder.find_program();
    is_proc_missing = false;
    vask_object::set_print_msg_level();

    EXPECT_THAT(found, IsEmpty());
    EXPECT_EQ(log.text(), "Failed to open directory: '/proc'\n");
}

TEST(disturbed_scan, Makes_a_tool_say_that_it_has_found_nobody) {
    log_catcher log;
    vask_child_cmd tool("tool", "wanted", "1", true);
    char name[] = "tool";
    char list[] = "-l";
    char* argv[] = {name, list, nullptr};

    is_proc_missing = true;
    const int status = tool.run(2, argv);
    is_proc_missing = false;
    vask_child_cmd::options = {0, 0, 0, 0};

    EXPECT_EQ(status, 1);
    EXPECT_EQ(log.text(),
              "Failed to open directory: '/proc'\nNot found 'wanted' in this computer\n");
}
