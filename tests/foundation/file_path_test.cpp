// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include "vask_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;

TEST(build_path, Puts_one_slash_between_elements) {
    EXPECT_EQ(vask_object::build_path("a", "b", "c", nullptr), "a/b/c");
    EXPECT_EQ(vask_object::build_path("/a", "b c", nullptr), "/a/b c");
}

TEST(build_path, Collapses_slashes_at_the_joins) {
    EXPECT_EQ(vask_object::build_path("/a//", "//b", nullptr), "/a/b");
    EXPECT_EQ(vask_object::build_path("/", "b", nullptr), "/b");
}

TEST(build_path, Keeps_slashes_that_are_at_no_join) {
    EXPECT_EQ(vask_object::build_path("a//b", "c", nullptr), "a//b/c");
    EXPECT_EQ(vask_object::build_path("//a", "b/", nullptr), "//a/b/");
}

TEST(build_path, Of_one_element_is_the_element) {
    EXPECT_EQ(vask_object::build_path("a", nullptr), "a");
    EXPECT_EQ(vask_object::build_path("", nullptr), "");
}

TEST(get_dir_name, Is_what_stands_before_the_last_slash) {
    EXPECT_EQ(vask_object::get_dir_name("/a/b"), "/a");
    EXPECT_EQ(vask_object::get_dir_name("a/b/c"), "a/b");
    EXPECT_EQ(vask_object::get_dir_name("a//b"), "a/");
}

TEST(get_dir_name, Is_the_path_itself_when_it_ends_with_a_slash) {
    EXPECT_EQ(vask_object::get_dir_name("/a/b/"), "/a/b/");
    EXPECT_EQ(vask_object::get_dir_name("dir/"), "dir/");
    EXPECT_EQ(vask_object::get_dir_name("/"), "/");
}

TEST(get_dir_name, Is_the_path_itself_when_it_has_no_slash) {
    EXPECT_EQ(vask_object::get_dir_name("name"), "name");
    EXPECT_EQ(vask_object::get_dir_name(""), "");
}

TEST(get_dir_name, Is_empty_directly_below_the_root) {
    EXPECT_EQ(vask_object::get_dir_name("/var"), "");
}

TEST(make_exec_path, Is_in_the_directory_of_programs) {
    EXPECT_EQ(vask_object::make_exec_path("program"), "/usr/bin/program");
}

TEST(make_exec_path, Does_not_examine_the_name) {
    EXPECT_EQ(vask_object::make_exec_path(""), "/usr/bin/");
    EXPECT_EQ(vask_object::make_exec_path("../a b/"), "/usr/bin/../a b/");
}

TEST(file_uri_to_local_path, Is_what_follows_the_scheme) {
    EXPECT_EQ(vask_object::file_uri_to_local_path("file:///tmp/a"), "/tmp/a");
    EXPECT_EQ(vask_object::file_uri_to_local_path("file://"), "");
}

TEST(file_uri_to_local_path, Decodes_percent_escapes) {
    EXPECT_EQ(vask_object::file_uri_to_local_path("file:///tmp/a%20b"), "/tmp/a b");
    EXPECT_EQ(vask_object::file_uri_to_local_path("file:///%C3%A4%2f%25"), "/\xC3\xA4/%");
}

TEST(file_uri_to_local_path, Leaves_a_broken_escape_as_it_is) {
    log_catcher log;
    EXPECT_EQ(vask_object::file_uri_to_local_path("file:///a%zz%"), "/a%zz%");
    EXPECT_EQ(log.text(), "");
}

TEST(file_uri_to_local_path, Keeps_a_host) {
    EXPECT_EQ(vask_object::file_uri_to_local_path("file://host/x"), "host/x");
}

TEST(file_uri_to_local_path, Is_empty_for_any_other_uri) {
    log_catcher log;
    for (const char* uri : {"FILE:///x", "file:/", "file:/x/y/z", "", "/tmp/a", "http://host/x",
                            " file:///x", "file%3A///x"}) {
        EXPECT_EQ(vask_object::file_uri_to_local_path(uri), "") << uri;
    }
    EXPECT_EQ(log.text(), "");
}
