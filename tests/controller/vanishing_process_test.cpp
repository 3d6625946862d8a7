// A process that ends between the moment when the directory shows it and the reading of its entry.

#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "controller/idle_process.h"
#include "support/interpose.h"
#include "support/log_catcher.h"
#include "vask_child_cmd.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

idle_process* ends_when_listed = nullptr;

}  // namespace

extern "C" dirent* readdir(DIR* directory) {
    static const auto next = next_function<dirent*(DIR*)>("readdir");
    dirent* entry = next(directory);
    if (entry && ends_when_listed && entry->d_name == std::to_string(ends_when_listed->pid())) {
        ends_when_listed->kill_now();
        ends_when_listed = nullptr;
    }
    return entry;
}

TEST(vanishing_process, Is_passed_over) {
    log_catcher log;
    idle_process vanishing("wanted");
    const idle_process staying("wanted");

    ends_when_listed = &vanishing;
    const std::vector<int> found = vask_child_cmd_base("finder", "wanted").find_program();

    EXPECT_EQ(ends_when_listed, nullptr) << "It was not listed.";
    EXPECT_THAT(found, ElementsAre(staying.pid()));
    EXPECT_EQ(log.text(), "");
}
