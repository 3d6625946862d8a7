// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What random programs have found, each as short as it can be.

#include <gmock/gmock.h>

#include <cstdio>
#include <memory>
#include <string>

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
