// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What the process table may contain, in a table made for the purpose.

#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "support/private_mounts.h"
#include "vask_child_cmd.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* command_line_of_wanted = "/usr/bin/wanted";

/** Takes the place of /proc. */
class process_table : public testing::Test {
protected:
    void SetUp() override {
        // Never beside other processes, wherever this is run.
        if (!enter_private_mounts() || mount("tmpfs", "/proc", "tmpfs", 0, nullptr) != 0) {
            GTEST_SKIP() << "no private mounts";
        }
        m_is_mounted = true;
    }

    void TearDown() override {
        if (m_is_mounted) {
            umount2("/proc", MNT_DETACH);
        }
    }

    static void add_directory(const std::string& name) {
        ASSERT_EQ(mkdir(("/proc/" + name).c_str(), 0755), 0);
    }

    static void add(const std::string& name, const std::string& command_line) {
        add_directory(name);
        std::ofstream(command_line_of(name), std::ios::binary) << command_line;
    }

    static std::string command_line_of(const std::string& name) {
        return "/proc/" + name + "/cmdline";
    }

    static std::vector<int> in_order_of_the_directory() {
        std::vector<int> pids;
        DIR* directory = opendir("/proc");
        while (const dirent* entry = readdir(directory)) {
            if (entry->d_name[0] != '.') {
                pids.push_back(std::stoi(entry->d_name));
            }
        }
        closedir(directory);
        return pids;
    }

    const vask_child_cmd_base finder{"finder", "wanted"};

private:
    bool m_is_mounted = false;
};

}  // namespace

TEST_F(process_table, May_be_empty) {
    log_catcher log;
    EXPECT_THAT(finder.find_program(), IsEmpty());
    EXPECT_EQ(log.text(), "");
}

TEST_F(process_table, Shows_kernel_threads_without_a_command_line) {
    add("2", "");
    add("30", command_line_of_wanted);
    EXPECT_THAT(finder.find_program(), ElementsAre(30));
    EXPECT_THAT(vask_child_cmd_base("finder", "").find_program(), IsEmpty());
}

TEST_F(process_table, Is_read_in_the_order_of_the_directory) {
    const std::vector<int> pids = {5, 30, 4, 2000, 1, 20};
    for (const int pid : pids) {
        add(std::to_string(pid), command_line_of_wanted);
    }
    const std::vector<int> expected = in_order_of_the_directory();
    ASSERT_FALSE(std::is_sorted(expected.begin(), expected.end()));

    EXPECT_EQ(finder.find_program(), expected);
}

TEST_F(process_table, Has_more_than_processes) {
    for (const char* name : {"self", "7a", "a7", "-7", "+7", " 7", "7.0", "0x7"}) {
        add(name, command_line_of_wanted);
    }
    EXPECT_THAT(finder.find_program(), IsEmpty());
}

TEST_F(process_table, Has_the_highest_process_id) {
    add("4194304", command_line_of_wanted);
    EXPECT_THAT(finder.find_program(), ElementsAre(4194304));
}

TEST_F(process_table, Shows_processes_whose_command_line_cannot_be_read) {
    log_catcher log;
    add_directory("10");
    add_directory("11");
    ASSERT_EQ(mkdir(command_line_of("11").c_str(), 0755), 0);
    std::ofstream("/proc/12") << command_line_of_wanted;
    add("13", command_line_of_wanted);

    EXPECT_THAT(finder.find_program(), ElementsAre(13));
    EXPECT_EQ(log.text(), "");
}

TEST_F(process_table, Shows_command_lines_of_one_word_without_an_end) {
    add("10", "wanted");
    EXPECT_THAT(finder.find_program(), ElementsAre(10));
}

TEST_F(process_table, Shows_command_lines_whose_words_end_with_zeros) {
    using namespace std::string_literals;
    add("10", "./wanted\0--first\0second\0"s);
    EXPECT_THAT(finder.find_program(), ElementsAre(10));
}

TEST_F(process_table, Shows_command_lines_with_the_name_in_a_later_word) {
    using namespace std::string_literals;
    add("10", "other\0wanted\0"s);
    add("11", "\0wanted\0"s);
    EXPECT_THAT(finder.find_program(), IsEmpty());
}
