// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <functional>

#include "support/file_scratch.h"
#include "support/interpose.h"
#include "vask_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::function<void(const char*)> before_mkdir;
int mkdir_error = 0;

int real_mkdir(const char* path, mode_t mode) {
    return next_function<int(const char*, mode_t)>("mkdir")(path, mode);
}

class make_dir_if_necessary : public testing::Test {
protected:
    ~make_dir_if_necessary() override {
        before_mkdir = nullptr;
        mkdir_error = 0;
    }

    static log_line refused(const std::string& path) {
        return line("WARN", "vask_object",
                    "static bool vask_object::make_dir_if_necessary(const char*, bool): dirname "
                    "doesn't begin w/ '/': " +
                        path);
    }

    static log_line failed(const std::string& path, int error) {
        return line("ERR", "vask_object",
                    "static bool vask_object::make_dir_if_necessary(const char*, bool): Failed to "
                    "call mkdir(): " +
                        path + ": " + std::to_string(error));
    }

    bool make(const std::string& path, bool must_be_absolute = true) {
        return vask_object::make_dir_if_necessary(path.c_str(), must_be_absolute);
    }

    scratch_directory scratch;
    log_catcher log;
};

}  // namespace

extern "C" int mkdir(const char* path, mode_t mode) noexcept {
    if (before_mkdir) {
        before_mkdir(path);
    }
    if (mkdir_error != 0) {
        errno = mkdir_error;
        return -1;
    }
    return real_mkdir(path, mode);
}

TEST_F(make_dir_if_necessary, Makes_a_directory_and_those_above_it) {
    EXPECT_TRUE(make(scratch / "a/b/c"));
    EXPECT_TRUE(std::filesystem::is_directory(scratch / "a/b/c"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(make_dir_if_necessary, Gives_mode_0755_under_the_umask) {
    const mode_t before = umask(0);
    EXPECT_TRUE(make(scratch / "a/b"));
    umask(0027);
    EXPECT_TRUE(make(scratch / "c"));
    umask(before);
    struct stat info;
    for (const char* name : {"a", "a/b"}) {
        ASSERT_EQ(stat((scratch / name).c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0755U) << name;
    }
    ASSERT_EQ(stat((scratch / "c").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0750U);
}

TEST_F(make_dir_if_necessary, Leaves_an_existing_directory_alone) {
    before_mkdir = [](const char* path) { ADD_FAILURE() << "mkdir of " << path; };
    EXPECT_TRUE(make(scratch.path()));
    EXPECT_TRUE(make("/"));
    EXPECT_TRUE(make("//"));
    EXPECT_TRUE(make(".", false));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(make_dir_if_necessary, Takes_a_link_to_a_directory_for_one) {
    ASSERT_TRUE(make(scratch / "real"));
    make_link("real", scratch / "link");
    EXPECT_TRUE(make(scratch / "link"));
    EXPECT_TRUE(make(scratch / "link/below"));
    EXPECT_TRUE(std::filesystem::is_directory(scratch / "real/below"));
}

TEST_F(make_dir_if_necessary, Ends_directly_below_the_root) {
    std::vector<std::string> made;
    before_mkdir = [&made](const char* path) { made.push_back(path); };
    mkdir_error = EROFS;
    EXPECT_FALSE(make("/nonexistent"));
    EXPECT_THAT(made, ElementsAre("/nonexistent"));
    EXPECT_THAT(log.lines(), ElementsAre(failed("/nonexistent", EROFS)));
}

TEST_F(make_dir_if_necessary, Starts_directly_below_the_root_for_a_deeper_path) {
    std::vector<std::string> made;
    before_mkdir = [&made](const char* path) { made.push_back(path); };
    mkdir_error = EROFS;
    EXPECT_FALSE(make("/nonexistent/deeper/"));
    EXPECT_THAT(made, ElementsAre("/nonexistent"));
    EXPECT_THAT(log.lines(), ElementsAre(failed("/nonexistent", EROFS)));
}

TEST_F(make_dir_if_necessary, Ends_at_a_bare_relative_name) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(scratch.path());
    EXPECT_TRUE(make("bare", false));
    EXPECT_TRUE(make("other/below", false));
    EXPECT_TRUE(make("./third", false));
    EXPECT_TRUE(make("fourth/", false));
    std::filesystem::current_path(before);
    for (const char* name : {"bare", "other/below", "third", "fourth"}) {
        EXPECT_TRUE(std::filesystem::is_directory(scratch / name)) << name;
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(make_dir_if_necessary, Ends_with_trailing_slashes) {
    EXPECT_TRUE(make(scratch / "one/"));
    EXPECT_TRUE(make(scratch / "two/below///"));
    EXPECT_TRUE(make(scratch / "three//below//"));
    for (const char* name : {"one", "two/below", "three/below"}) {
        EXPECT_TRUE(std::filesystem::is_directory(scratch / name)) << name;
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(make_dir_if_necessary, Fails_for_the_empty_path) {
    EXPECT_FALSE(make("", false));
    EXPECT_THAT(log.lines(), ElementsAre(failed("", ENOENT)));
}

TEST_F(make_dir_if_necessary, Refuses_a_relative_path_where_it_must_be_absolute) {
    before_mkdir = [](const char* path) { ADD_FAILURE() << "mkdir of " << path; };
    EXPECT_FALSE(make("relative/path"));
    EXPECT_FALSE(make("."));
    EXPECT_FALSE(make(""));
    EXPECT_THAT(log.lines(), ElementsAre(refused("relative/path"), refused("."), refused("")));
}

TEST_F(make_dir_if_necessary, Takes_an_absolute_path_where_a_relative_one_would_do) {
    EXPECT_TRUE(make(scratch / "a", false));
    EXPECT_TRUE(std::filesystem::is_directory(scratch / "a"));
}

TEST_F(make_dir_if_necessary, Succeeds_when_somebody_else_makes_it_first) {
    before_mkdir = [](const char* path) { ASSERT_EQ(real_mkdir(path, 0700), 0); };
    EXPECT_TRUE(make(scratch / "a/b"));
    EXPECT_TRUE(std::filesystem::is_directory(scratch / "a/b"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(make_dir_if_necessary, Fails_when_somebody_else_makes_a_file_first) {
    before_mkdir = [](const char* path) { make_file(path); };
    EXPECT_FALSE(make(scratch / "a"));
    EXPECT_THAT(log.lines(), ElementsAre(failed(scratch / "a", EEXIST)));
}

TEST_F(make_dir_if_necessary, Fails_once_where_a_file_is_in_the_way) {
    make_file(scratch / "file");
    EXPECT_FALSE(make(scratch / "file/a/b"));
    EXPECT_THAT(log.lines(), ElementsAre(failed(scratch / "file", EEXIST)));
}

TEST_F(make_dir_if_necessary, Fails_where_a_link_leads_nowhere) {
    make_link("nowhere", scratch / "link");
    EXPECT_FALSE(make(scratch / "link"));
    EXPECT_THAT(log.lines(), ElementsAre(failed(scratch / "link", EEXIST)));
}

TEST_F(make_dir_if_necessary, Keeps_what_it_has_made_when_it_fails) {
    before_mkdir = [](const char* path) {
        mkdir_error = std::string(path).find("/a/b") != std::string::npos ? ENOSPC : 0;
    };
    EXPECT_FALSE(make(scratch / "a/b/c"));
    EXPECT_TRUE(std::filesystem::is_directory(scratch / "a"));
    EXPECT_THAT(log.lines(), ElementsAre(failed(scratch / "a/b", ENOSPC)));
}

TEST_F(make_dir_if_necessary, Fails_for_a_path_that_is_too_long_however_deep_it_is) {
    const std::string shallow = scratch / "a/b";
    std::string path = shallow;
    while (path.size() < 200000) {
        path += "/c";
    }
    EXPECT_FALSE(make(path));
    EXPECT_TRUE(std::filesystem::is_directory(shallow));
    const std::string first_refused =
        path.substr(0, shallow.size() + (PATH_MAX - shallow.size() + 1) / 2 * 2);
    EXPECT_THAT(log.lines(), ElementsAre(failed(first_refused, ENAMETOOLONG)));
}

TEST_F(make_dir_if_necessary, Fails_without_permission) {
    ASSERT_EQ(chmod(scratch.path().c_str(), 0555), 0);
    {
        const without_privileges nobody;
        EXPECT_FALSE(make(scratch / "a"));
    }
    EXPECT_THAT(log.lines(), ElementsAre(failed(scratch / "a", EACCES)));
}
