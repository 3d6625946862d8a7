// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What random programs have found, each as short as it can be.

#include <gmock/gmock.h>

#include <cstdio>
#include <memory>
#include <string>

using testing::HasSubstr;

namespace {

/** What is wrong at the end of a program, with everything that it has printed. */
std::string fault_of(const std::string& program) {
    const std::string command = std::string(VASK_TEST_LIVES " --play '") + program + "' 2>&1";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "re"), pclose);
    std::string output;
    for (int c; (c = std::fgetc(pipe.get())) != EOF;) {
        output += static_cast<char>(c);
    }
    const int status = pclose(pipe.release());
    return status == 0 ? output : output + "status " + std::to_string(status);
}

}  // namespace

TEST(found_life, Is_told_from_one_without_fault) {
    EXPECT_EQ(fault_of("bridge 0 1; spawn 0 0; meet 0 0; ask 0 0; terminate 0 0"), "");
    EXPECT_NE(fault_of("no_such_step 0 0"), "");
}

TEST(found_life, Is_told_whatever_is_wrong_in_it) {
    EXPECT_THAT(fault_of("wrong 0 0"), HasSubstr("WRONG AT THE END: on purpose"));
    EXPECT_THAT(fault_of("wrong 0 1"), HasSubstr("heap-use-after-free"));
    EXPECT_THAT(fault_of("wrong 0 2"), HasSubstr("runtime error: signed integer overflow"));
    EXPECT_THAT(fault_of("wrong 0 3"), HasSubstr("detected memory leaks"));
    EXPECT_THAT(fault_of("wrong 0 5"), HasSubstr("on purpose"));
    EXPECT_THAT(fault_of("wrong 0 6"), HasSubstr("signal 15"));
    EXPECT_THAT(fault_of("wrong 0 7"), HasSubstr("status 0"));
}

// For some time a life waits for what a child that ends late may still have.
TEST(found_life, Is_told_when_it_leaves_a_descriptor) {
    EXPECT_THAT(fault_of("wrong 0 4"), HasSubstr("/dev/null"));
}

// The sanitizer traces a process at its end.
TEST(found_life, Of_a_child_that_is_killed_while_it_is_traced) {
    EXPECT_EQ(
        fault_of("bridge 0 1; spawn 0 0; meet 0 0; quit 0 1; bridge 2 11; kill 0 8; loop 2 4"), "");
}
