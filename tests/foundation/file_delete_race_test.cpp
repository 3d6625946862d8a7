// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <utility>

#include "support/file_scratch.h"
#include "support/interpose.h"
#include "support/private_mounts.h"
#include "support/system_calls.h"
#include "vask_object.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

/** What happens to a tree while it is being removed. */
namespace {

bool types_are_unknown = false;
size_t most_to_read = SIZE_MAX;
std::function<void()> after_reading;

typedef bool operation(const char* path);

class restless_tree : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(scratch / "elsewhere/directory");
        for (const char* name : {"1", "2", "directory/3"}) {
            make_file(scratch / "elsewhere/" + name);
        }
        std::filesystem::create_directory(scratch / "elsewhere/empty");
    }

    void TearDown() override {
        types_are_unknown = false;
        most_to_read = SIZE_MAX;
        after_reading = nullptr;
    }

    void expect_everything_elsewhere() const {
        for (const char* name : {"1", "2", "directory/3", "empty"}) {
            EXPECT_TRUE(exists(scratch / "elsewhere/" + name)) << name;
        }
    }

    void make_tree() const {
        std::filesystem::create_directories(scratch / "tree/upper/lower");
        for (const char* name : {"1", "upper/1", "upper/lower/1", "upper/lower/2"}) {
            make_file(scratch / "tree/" + name);
        }
        make_link(scratch / "elsewhere", scratch / "link");
    }

    void forget_trees() const {
        for (const char* name : {"tree", "link", "elsewhere/moved"}) {
            std::filesystem::remove_all(scratch / name);
        }
    }

    /** Runs an operation on the tree again and again, with the event one system call later each
     *  time. */
    void expect_harmless_at_any_time(operation* remove, const std::function<void()>& make,
                                     const std::function<void()>& event) {
        for (int call = 0;; ++call) {
            SCOPED_TRACE(call);
            make();
            const interrupted_run run = interrupt_before_call(
                call,
                [&] {
                    system_call_mark::begin();
                    _exit(remove((scratch / "tree").c_str()) ? 0 : 1);
                },
                event);
            EXPECT_TRUE(WIFEXITED(run.status)) << run.status;
            expect_everything_elsewhere();
            forget_trees();
            if (!run.reached) {
                EXPECT_GT(call, 10);
                return;
            }
            ASSERT_FALSE(HasFailure());
        }
    }

    void exchange_with_link(const std::string& directory) const {
        renameat2(AT_FDCWD, (scratch / directory).c_str(), AT_FDCWD, (scratch / "link").c_str(),
                  RENAME_EXCHANGE);
    }

    void expect_harmless_exchange(operation* remove, const std::string& directory) {
        expect_harmless_at_any_time(
            remove, [this] { make_tree(); }, [this, directory] { exchange_with_link(directory); });
    }

    /** Deeper than a removal keeps descriptors for. */
    void make_chain() const {
        const without_privileges nobody;
        std::string path = scratch / "tree";
        for (int level = 0; level < chain_levels; ++level) {
            path += "/empty";
        }
        std::filesystem::create_directories(path);
    }

    /** To where there is a directory of the name that has to go next. */
    void move_out_of_chain() const {
        rename((scratch / "tree/empty/empty").c_str(), (scratch / "elsewhere/moved").c_str());
    }

    static void when_the_deepest_is_read(const std::function<void()>& event, int levels = 0) {
        after_reading = [event, levels] {
            if (levels == chain_levels) {
                event();
            } else {
                when_the_deepest_is_read(event, levels + 1);
            }
        };
    }

    bool emptied() const { return vask_object::delete_dir((scratch / "tree").c_str()); }

    static constexpr int chain_levels = 12;

    scratch_directory scratch;
    log_catcher log;
};

/** The right to trace is needed to stop a process between two system calls. */
class stopped_removal : public restless_tree {
protected:
    void SetUp() override {
        if (!interrupt_before_call(
                 0, [] { system_call_mark::begin(); }, [] {})
                 .reached) {
            GTEST_SKIP() << "needs the right to trace a child";
        }
        restless_tree::SetUp();
    }
};

}  // namespace

extern "C" ssize_t getdents64(int fd, void* buffer, size_t size) noexcept {
    const ssize_t length = next_function<ssize_t(int, void*, size_t)>("getdents64")(
        fd, buffer, std::min(size, most_to_read));
    for (ssize_t offset = 0; types_are_unknown && offset < length;) {
        auto* entry = reinterpret_cast<dirent64*>(static_cast<char*>(buffer) + offset);
        entry->d_type = DT_UNKNOWN;
        offset += entry->d_reclen;
    }
    if (const auto event = std::exchange(after_reading, nullptr)) {
        event();
    }
    return length;
}

TEST_F(stopped_removal, Is_not_led_elsewhere_when_a_directory_becomes_a_link) {
    expect_harmless_exchange(vask_object::delete_dir, "tree/upper");
}

TEST_F(stopped_removal, Is_not_led_elsewhere_when_a_lower_directory_becomes_a_link) {
    expect_harmless_exchange(vask_object::delete_dir, "tree/upper/lower");
}

TEST_F(stopped_removal, Of_a_path_is_not_led_elsewhere_when_the_path_becomes_a_link) {
    expect_harmless_exchange(vask_object::delete_path, "tree");
}

TEST_F(stopped_removal, Of_a_path_is_not_led_elsewhere_when_a_directory_in_it_becomes_a_link) {
    expect_harmless_exchange(vask_object::delete_path, "tree/upper");
}

TEST_F(stopped_removal, Does_not_come_back_to_another_directory_than_it_has_left) {
    expect_harmless_at_any_time(
        vask_object::delete_dir, [this] { make_chain(); }, [this] { move_out_of_chain(); });
}

TEST_F(restless_tree, Goes_where_the_file_system_does_not_tell_the_kinds_of_entries) {
    make_tree();
    make_link(scratch / "elsewhere", scratch / "tree/link");
    types_are_unknown = true;
    EXPECT_TRUE(emptied());
    EXPECT_TRUE(std::filesystem::is_empty(scratch / "tree"));
    expect_everything_elsewhere();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(restless_tree, Goes_where_the_file_system_tells_few_entries_at_a_time) {
    make_tree();
    most_to_read = 64;
    EXPECT_TRUE(emptied());
    EXPECT_TRUE(std::filesystem::is_empty(scratch / "tree"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(restless_tree, Goes_though_a_file_becomes_a_directory) {
    make_tree();
    after_reading = [this] {
        std::filesystem::remove(scratch / "tree/1");
        std::filesystem::create_directory(scratch / "tree/1");
        make_file(scratch / "tree/1/file");
    };
    EXPECT_TRUE(emptied());
    EXPECT_TRUE(std::filesystem::is_empty(scratch / "tree"));
}

TEST_F(restless_tree, Goes_though_a_directory_becomes_a_file) {
    make_tree();
    after_reading = [this] {
        std::filesystem::remove_all(scratch / "tree/upper");
        make_file(scratch / "tree/upper");
    };
    EXPECT_TRUE(emptied());
    EXPECT_TRUE(std::filesystem::is_empty(scratch / "tree"));
}

TEST_F(restless_tree, Goes_with_a_link_that_a_directory_has_become) {
    make_tree();
    after_reading = [this] { exchange_with_link("tree/upper"); };
    EXPECT_TRUE(emptied());
    EXPECT_TRUE(std::filesystem::is_empty(scratch / "tree"));
    expect_everything_elsewhere();
}

TEST_F(restless_tree, Stays_from_an_entry_on_that_somebody_else_removes) {
    make_tree();
    after_reading = [this] { std::filesystem::remove(scratch / "tree/1"); };
    EXPECT_FALSE(emptied());
    EXPECT_TRUE(exists(scratch / "tree/upper"));
    EXPECT_THAT(log.lines(), ElementsAre(not_removed(scratch / "tree/1", ENOENT)));
}

TEST_F(restless_tree, Stays_from_a_directory_on_that_somebody_else_removes) {
    make_tree();
    after_reading = [this] { std::filesystem::remove_all(scratch / "tree/upper"); };
    EXPECT_FALSE(emptied());
    EXPECT_THAT(log.lines(), ElementsAre(not_removed(scratch / "tree/upper", ENOENT)));
}

TEST_F(restless_tree, Stays_when_a_directory_deep_in_it_is_moved_out_of_it) {
    make_chain();
    when_the_deepest_is_read([this] { move_out_of_chain(); });
    EXPECT_FALSE(emptied());
    expect_everything_elsewhere();
    EXPECT_THAT(log.lines(), ElementsAre(not_removed(scratch / "tree/empty/empty", ENOENT)));
}

TEST_F(restless_tree, Stays_when_a_directory_deep_in_it_may_not_be_searched_any_more) {
    make_chain();
    const std::string upper = scratch / "tree/empty/empty";
    when_the_deepest_is_read([upper] { EXPECT_EQ(chmod(upper.c_str(), 0), 0); });
    {
        const without_privileges nobody;
        EXPECT_FALSE(emptied());
    }
    EXPECT_EQ(chmod(upper.c_str(), 0700), 0);
    EXPECT_THAT(log.lines(), ElementsAre(not_removed(upper + "/empty", EACCES)));
}

TEST_F(restless_tree, Is_emptied_with_what_is_mounted_in_it_and_stays) {
    make_tree();
    const pid_t pid = fork();
    if (pid == 0) {
        const std::string mounted = scratch / "tree/upper";
        if (!enter_private_mounts() || mount("none", mounted.c_str(), "tmpfs", 0, nullptr) != 0) {
            _exit(77);
        }
        make_file(mounted + "/file");
        const bool result = emptied();
        _exit(!result && std::filesystem::is_empty(mounted) ? 0 : 1);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "needs the right to mount";
    }
    EXPECT_EQ(status, 0);
    EXPECT_THAT(log.lines(), ElementsAre(not_removed(scratch / "tree/upper", EBUSY)));
}
