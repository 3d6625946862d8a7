// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Static objects of other libraries use the record before the library's own are constructed, and
// after they are destroyed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/shared_objects.h"
#include "vask_object.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

class load_order : public shared_info_test {
protected:
    static std::vector<log_line> run(const char* program) {
        const strlist argv = {std::string(VASK_TEST_PROGRAM_DIR) + "/" + program};
        strlist envs;
        for (char** entry = environ; *entry; ++entry) {
            envs.push_back(*entry);
        }
        int status = -1;
        std::vector<unsigned char> output;
        EXPECT_TRUE(vask_object::spawn_sync(&argv, &envs, &status, &output, nullptr, nullptr));
        EXPECT_EQ(status, 0);
        return parse_log(std::string(output.begin(), output.end()));
    }
};

}  // namespace

TEST_F(load_order, Does_not_matter_to_static_objects_that_use_the_record) {
    EXPECT_THAT(run("shared_info_load_order"),
                ElementsAre(line("", "", "early begins before the library: rotation 5"),
                            line("", "", "late begins after the library: rotation 1"),
                            line("", "", "main: rotation 2"), line("", "", "late ends: rotation 2"),
                            line("", "", "early ends: rotation 3")));
    EXPECT_EQ(record.int_at(0), 4);
    EXPECT_EQ(record.sem_value(), 1);
}
