// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Runs this program again, with a list of tests to skip.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

class skip_list : public testing::Test {
protected:
    void SetUp() override {
        if (getenv("VASK_TEST_SKIP_LIST") != nullptr) {
            saved = getenv("VASK_TEST_SKIP_LIST");
        }
        std::ofstream(path) << "# a comment: of no test\n\n"
                            << "skip_list.Is_run_by_others: a reason of its own\n";
        setenv("VASK_TEST_SKIP_LIST", path.c_str(), 1);
    }

    void TearDown() override {
        unlink(path.c_str());
        unsetenv("VASK_TEST_SKIP_LIST");
        if (!saved.empty()) {
            setenv("VASK_TEST_SKIP_LIST", saved.c_str(), 1);
        }
    }

    static std::string run_again(const std::string& filter) {
        return run(own_path() + " --gtest_filter='" + filter + "' 2>&1");
    }

    // Of each process its own.
    std::string path = std::string(getenv("TMPDIR")) + "/skip_list." + std::to_string(getpid());
    std::string saved;

private:
    static std::string own_path() {
        char target[4096];
        const ssize_t length = readlink("/proc/self/exe", target, sizeof(target));
        return length > 0 ? std::string(target, static_cast<size_t>(length)) : std::string();
    }

    static std::string run(const std::string& command) {
        std::string output;
        FILE* pipe = popen(command.c_str(), "r");
        for (int c; (c = fgetc(pipe)) != EOF;) {
            output += static_cast<char>(c);
        }
        pclose(pipe);
        return output;
    }
};

}  // namespace

TEST_F(skip_list, Is_run_by_others) {
    SUCCEED();
}

TEST_F(skip_list, Is_run_by_others_too) {
    SUCCEED();
}

TEST_F(skip_list, Keeps_a_test_from_running_and_tells_why) {
    EXPECT_THAT(run_again("skip_list.Is_run_by_others"),
                AllOf(HasSubstr("[  SKIPPED ] skip_list.Is_run_by_others: a reason of its own\n"),
                      HasSubstr("[  PASSED  ] 0 tests.")));
}

TEST_F(skip_list, Lets_all_other_tests_run) {
    EXPECT_THAT(run_again("skip_list.Is_run_by_others_too"),
                AllOf(Not(HasSubstr("SKIPPED")), HasSubstr("[  PASSED  ] 1 test.")));
    EXPECT_THAT(run_again("skip_list.Is_run_by_others*"), HasSubstr("[  PASSED  ] 1 test."));
}

TEST_F(skip_list, Fails_every_test_when_it_is_not_there) {
    unlink(path.c_str());
    EXPECT_THAT(run_again("skip_list.Is_run_by_others"),
                AllOf(HasSubstr("No list of tests to skip: "), Not(HasSubstr("PASSED"))));
}
