// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "support/file_scratch.h"
#include "vask_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class file_delete : public testing::Test {
protected:
    void make_tree(const std::string& name) {
        std::filesystem::create_directories(scratch / name + "/sub/deeper");
        make_file(scratch / name + "/file");
        make_file(scratch / name + "/.hidden");
        make_file(scratch / name + "/sub/file with blanks");
        make_file(scratch / name + "/sub/deeper/file");
    }

    scratch_directory scratch;
    log_catcher log;
};

using delete_dir = file_delete;
using delete_path = file_delete;

bool emptied(const std::string& path) {
    return vask_object::delete_dir(path.c_str());
}

bool deleted(const std::string& path) {
    return vask_object::delete_path(path.c_str());
}

}  // namespace

TEST_F(delete_dir, Empties_a_directory_and_keeps_it) {
    make_tree("tree");
    EXPECT_TRUE(emptied(scratch / "tree"));
    EXPECT_TRUE(std::filesystem::is_directory(scratch / "tree"));
    EXPECT_TRUE(std::filesystem::is_empty(scratch / "tree"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(delete_dir, Is_content_with_an_empty_directory) {
    std::filesystem::create_directory(scratch / "empty");
    EXPECT_TRUE(emptied(scratch / "empty"));
    EXPECT_TRUE(std::filesystem::is_directory(scratch / "empty"));
}

TEST_F(delete_dir, Empties_a_directory_of_a_thousand_files) {
    std::filesystem::create_directory(scratch / "many");
    for (int i = 0; i < 1000; ++i) {
        make_file(scratch / "many/" + std::to_string(i));
    }
    EXPECT_TRUE(emptied(scratch / "many"));
    EXPECT_TRUE(std::filesystem::is_empty(scratch / "many"));
}

TEST_F(delete_dir, Removes_links_and_not_what_they_lead_to) {
    make_tree("other");
    std::filesystem::create_directory(scratch / "tree");
    make_link("../other", scratch / "tree/directory link");
    make_link("../other/file", scratch / "tree/file link");
    make_link("nowhere", scratch / "tree/broken link");
    make_link(".", scratch / "tree/link to itself");
    EXPECT_TRUE(emptied(scratch / "tree"));
    EXPECT_TRUE(std::filesystem::is_empty(scratch / "tree"));
    EXPECT_TRUE(exists(scratch / "other/sub/deeper/file"));
    EXPECT_TRUE(exists(scratch / "other/file"));
}

TEST_F(delete_dir, Removes_what_is_neither_file_nor_directory) {
    std::filesystem::create_directory(scratch / "tree");
    ASSERT_EQ(mkfifo((scratch / "tree/pipe").c_str(), 0600), 0);
    EXPECT_TRUE(emptied(scratch / "tree"));
    EXPECT_TRUE(std::filesystem::is_empty(scratch / "tree"));
}

TEST_F(delete_dir, Empties_the_directory_that_a_link_as_its_argument_leads_to) {
    make_tree("tree");
    make_link("tree", scratch / "link");
    EXPECT_TRUE(emptied(scratch / "link"));
    EXPECT_TRUE(std::filesystem::is_symlink(scratch / "link"));
    EXPECT_TRUE(std::filesystem::is_empty(scratch / "tree"));
}

TEST_F(delete_dir, Fails_for_a_missing_directory) {
    EXPECT_FALSE(emptied(scratch / "missing"));
    EXPECT_THAT(log.lines(), ElementsAre(not_opened()));
}

TEST_F(delete_dir, Fails_for_a_file) {
    make_file(scratch / "file");
    EXPECT_FALSE(emptied(scratch / "file"));
    EXPECT_TRUE(exists(scratch / "file"));
    EXPECT_THAT(log.lines(), ElementsAre(not_opened()));
}

TEST_F(delete_dir, Stops_at_a_directory_that_cannot_be_read) {
    std::filesystem::create_directories(scratch / "tree/unreadable");
    ASSERT_EQ(chmod((scratch / "tree").c_str(), 0777), 0);
    ASSERT_EQ(chmod((scratch / "tree/unreadable").c_str(), 0), 0);
    {
        const without_privileges nobody;
        EXPECT_FALSE(emptied(scratch / "tree"));
    }
    EXPECT_TRUE(exists(scratch / "tree/unreadable"));
    EXPECT_THAT(log.lines(), ElementsAre(not_opened()));
    ASSERT_EQ(chmod((scratch / "tree/unreadable").c_str(), 0700), 0);
}

TEST_F(delete_dir, Stops_at_the_first_entry_that_cannot_be_removed) {
    std::filesystem::create_directory(scratch / "tree");
    for (const char* name : {"a", "b", "c"}) {
        make_file(scratch / "tree/" + name);
    }
    ASSERT_EQ(chmod((scratch / "tree").c_str(), 0555), 0);
    {
        const without_privileges nobody;
        EXPECT_FALSE(emptied(scratch / "tree"));
    }
    const std::vector<log_line> lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines[0], testing::AnyOf(not_removed(scratch / "tree/a", EACCES),
                                         not_removed(scratch / "tree/b", EACCES),
                                         not_removed(scratch / "tree/c", EACCES)));
    for (const char* name : {"a", "b", "c"}) {
        EXPECT_TRUE(exists(scratch / "tree/" + name)) << name;
    }
    ASSERT_EQ(chmod((scratch / "tree").c_str(), 0755), 0);
}

TEST_F(delete_path, Removes_a_file) {
    make_file(scratch / "file");
    EXPECT_TRUE(deleted(scratch / "file"));
    EXPECT_FALSE(exists(scratch / "file"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(delete_path, Removes_a_directory_with_all_it_holds) {
    make_tree("tree");
    EXPECT_TRUE(deleted(scratch / "tree"));
    EXPECT_FALSE(exists(scratch / "tree"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(delete_path, Takes_a_directory_with_a_trailing_slash) {
    make_tree("tree");
    EXPECT_TRUE(deleted(scratch / "tree/"));
    EXPECT_FALSE(exists(scratch / "tree"));
}

TEST_F(delete_path, Removes_a_link_and_not_what_it_leads_to) {
    make_tree("tree");
    make_link("tree", scratch / "link");
    make_link("nowhere", scratch / "broken");
    EXPECT_TRUE(deleted(scratch / "link"));
    EXPECT_TRUE(deleted(scratch / "broken"));
    EXPECT_FALSE(exists(scratch / "link"));
    EXPECT_FALSE(exists(scratch / "broken"));
    EXPECT_TRUE(exists(scratch / "tree/sub/deeper/file"));
}

TEST_F(delete_path, Joins_a_path_and_its_entries_with_one_slash_in_what_it_reports) {
    std::filesystem::create_directory(scratch / "tree");
    make_file(scratch / "tree/file");
    ASSERT_EQ(chmod((scratch / "tree").c_str(), 0555), 0);
    {
        const without_privileges nobody;
        EXPECT_FALSE(deleted(scratch / "tree//"));
    }
    EXPECT_THAT(log.lines(), ElementsAre(not_removed(scratch / "tree/file", EACCES)));
    ASSERT_EQ(chmod((scratch / "tree").c_str(), 0755), 0);
}

TEST_F(delete_path, Fails_for_what_is_missing) {
    EXPECT_FALSE(deleted(scratch / "missing"));
    EXPECT_THAT(log.lines(), ElementsAre(not_removed(scratch / "missing", ENOENT)));
}

TEST_F(delete_path, Fails_for_the_empty_path) {
    EXPECT_FALSE(deleted(""));
    EXPECT_THAT(log.lines(), ElementsAre(not_removed("", ENOENT)));
}

TEST_F(delete_path, Fails_without_trying_to_remove_a_directory_that_cannot_be_emptied) {
    std::filesystem::create_directory(scratch / "unreadable");
    ASSERT_EQ(chmod((scratch / "unreadable").c_str(), 0), 0);
    {
        const without_privileges nobody;
        EXPECT_FALSE(deleted(scratch / "unreadable"));
    }
    EXPECT_TRUE(exists(scratch / "unreadable"));
    EXPECT_THAT(log.lines(), ElementsAre(not_opened()));
    ASSERT_EQ(chmod((scratch / "unreadable").c_str(), 0700), 0);
}

TEST_F(delete_path, Reports_the_entry_and_not_the_directory_that_it_keeps_from_being_removed) {
    std::filesystem::create_directories(scratch / "tree/sub");
    make_file(scratch / "tree/sub/file");
    ASSERT_EQ(chmod((scratch / "tree/sub").c_str(), 0555), 0);
    {
        const without_privileges nobody;
        EXPECT_FALSE(deleted(scratch / "tree"));
    }
    EXPECT_TRUE(exists(scratch / "tree/sub/file"));
    EXPECT_THAT(log.lines(), ElementsAre(not_removed(scratch / "tree/sub/file", EACCES)));
    ASSERT_EQ(chmod((scratch / "tree/sub").c_str(), 0755), 0);
}
