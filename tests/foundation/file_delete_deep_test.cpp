// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>

#include "support/file_scratch.h"
#include "support/system_calls.h"
#include "vask_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char level_name[] = "directory";

/** Goes down from a directory, making the levels. No path leads to the last one if they are many.
 *  Returns its descriptor. */
int make_levels(int directory, int levels) {
    int fd = dup(directory);
    for (int level = 0; level < levels; ++level) {
        EXPECT_EQ(mkdirat(fd, level_name, 0755), 0) << level;
        const int next = openat(fd, level_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        close(fd);
        fd = next;
    }
    return fd;
}

void make_levels(const std::string& path, int levels) {
    std::filesystem::create_directory(path);
    const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    close(make_levels(directory, levels));
    close(directory);
}

/** So many more descriptors than are open may be opened while it lives. */
class few_descriptors {
public:
    explicit few_descriptors(rlim_t more) {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const int first_free = dup(STDERR_FILENO);
        close(first_free);
        const rlimit limit = {static_cast<rlim_t>(first_free) + more, m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~few_descriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }

private:
    rlimit m_before;
};

void run_with_small_stack(const std::function<void()>& action) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 256 * 1024);
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void* data) -> void* {
                      (*static_cast<const std::function<void()>*>(data))();
                      return nullptr;
                  },
                  const_cast<std::function<void()>*>(&action)),
              0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

class deep_tree : public testing::Test {
protected:
    scratch_directory scratch;
    log_catcher log;
};

/** Those of the removal of a tree that has so many levels. */
int system_calls_of_removal(const std::string& path, int levels) {
    make_levels(path, levels);
    const call_counts counts = count_system_calls([&path] {
        system_call_mark::begin();
        vask_object::delete_path(path.c_str());
        system_call_mark::end();
    });
    EXPECT_TRUE(counts.complete);
    EXPECT_FALSE(exists(path));
    return counts.all;
}

}  // namespace

TEST_F(deep_tree, Goes_with_few_descriptors_where_it_has_more_levels_than_descriptors_are_allowed) {
    make_levels(scratch / "tree", 200);
    const few_descriptors limit(16);
    EXPECT_TRUE(vask_object::delete_path((scratch / "tree").c_str()));
    EXPECT_FALSE(exists(scratch / "tree"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(deep_tree, Goes_where_no_path_is_long_enough_for_it_and_no_stack_would_be_deep_enough) {
    make_levels(scratch / "tree", 3000);
    bool removed = false;
    run_with_small_stack([&] { removed = vask_object::delete_path((scratch / "tree").c_str()); });
    EXPECT_TRUE(removed);
    EXPECT_FALSE(exists(scratch / "tree"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(deep_tree, Goes_with_all_its_branches) {
    make_levels(scratch / "tree", 0);
    std::string path = scratch / "tree";
    for (int level = 0; level < 12; ++level) {
        for (const char* branch : {"/one", "/two", "/three"}) {
            make_levels(path + branch, 12);
        }
        make_file(path + "/file");
        path += "/one";
    }
    EXPECT_TRUE(vask_object::delete_dir((scratch / "tree").c_str()));
    EXPECT_TRUE(std::filesystem::is_empty(scratch / "tree"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(deep_tree, Is_reported_with_the_whole_path_of_what_stays) {
    std::filesystem::create_directory(scratch / "tree");
    const int directory = open((scratch / "tree").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    constexpr int levels = 500;
    const int deepest = make_levels(directory, levels);
    close(openat(deepest, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    ASSERT_EQ(fchmod(deepest, 0555), 0);
    {
        const without_privileges nobody;
        EXPECT_FALSE(vask_object::delete_path((scratch / "tree").c_str()));
    }
    std::string path = scratch / "tree";
    for (int level = 0; level < levels; ++level) {
        path += std::string("/") + level_name;
    }
    EXPECT_THAT(log.lines(), ElementsAre(not_removed(path + "/file", EACCES)));
    ASSERT_EQ(fchmod(deepest, 0755), 0);
    close(deepest);
    close(directory);
    EXPECT_TRUE(vask_object::delete_path((scratch / "tree").c_str()));
}

TEST_F(deep_tree, Costs_eight_system_calls_for_each_level) {
    const int few = system_calls_of_removal(scratch / "tree", 100);
    const int many = system_calls_of_removal(scratch / "tree", 200);
    constexpr int calls_of_allocator = 20;
    EXPECT_LE(many - few, 100 * 8 + calls_of_allocator);
}

TEST_F(deep_tree, Stays_where_no_further_descriptor_is_to_be_had) {
    make_levels(scratch / "tree", 10);
    {
        const few_descriptors limit(3);
        EXPECT_FALSE(vask_object::delete_path((scratch / "tree").c_str()));
    }
    EXPECT_TRUE(exists(scratch / "tree"));
    EXPECT_THAT(log.lines(), ElementsAre(not_opened()));
}
