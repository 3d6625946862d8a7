// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dlfcn.h>
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "vask_object.h"
#include "vask_test/googletest.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

struct spawn_call {
    const char* directory;
    std::vector<std::string> argv;
    char** envp;
    GSpawnFlags flags;
    GSpawnChildSetupFunc child_setup;
    gpointer user_data;
    GPid* pid;
};

std::vector<spawn_call> calls;
bool spawn_fails = false;

}  // namespace

// Stands between the library and the machine: nothing is started in this program.
extern "C" gboolean g_spawn_async(const gchar* directory, gchar** argv, gchar** envp,
                                  GSpawnFlags flags, GSpawnChildSetupFunc child_setup,
                                  gpointer user_data, GPid* pid, GError** error) {
    spawn_call call = {directory, {}, envp, flags, child_setup, user_data, pid};
    for (char** argument = argv; *argument; ++argument) {
        call.argv.push_back(*argument);
    }
    calls.push_back(call);
    if (!spawn_fails) {
        return TRUE;
    }
    g_set_error(error, G_SPAWN_ERROR, G_SPAWN_ERROR_FORK, "no more processes");
    return FALSE;
}

namespace {

class power : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(dlsym(RTLD_DEFAULT, "g_spawn_async"), reinterpret_cast<void*>(&g_spawn_async))
            << "would shut the machine down";
    }
};

/**
 * The text of the library whose address was printed at the end of the line, as an int. That is half
 * of the address at most, but the text is not far behind the library's beginning.
 */
std::string text_at_printed_address(const log_line& printed) {
    Dl_info library;
    if (dladdr(reinterpret_cast<void*>(vask_object::shutdown_system), &library) == 0) {
        return "no library";
    }
    const auto begin = reinterpret_cast<std::uintptr_t>(library.dli_fbase);
    const auto address =
        static_cast<std::uint32_t>(std::atoi(&printed.text[printed.text.find(": ") + 2]));
    const std::uint32_t distance = address - static_cast<std::uint32_t>(begin);
    return reinterpret_cast<const char*>(begin + distance);
}

void expect_plain_call(const spawn_call& call) {
    EXPECT_EQ(call.directory, nullptr);
    EXPECT_EQ(call.envp, nullptr);
    EXPECT_EQ(call.flags, static_cast<GSpawnFlags>(0));
    EXPECT_EQ(call.child_setup, nullptr);
    EXPECT_EQ(call.user_data, nullptr);
    EXPECT_EQ(call.pid, nullptr);
}

}  // namespace

TEST_F(power, Is_switched_off_by_one_command_in_the_environment_of_the_caller) {
    log_catcher log;
    EXPECT_TRUE(vask_object::shutdown_system());
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_THAT(calls[0].argv, ElementsAre("/sbin/shutdown", "-h", "now"));
    expect_plain_call(calls[0]);
    EXPECT_EQ(log.text(), "");
}

TEST_F(power, Is_cycled_by_one_command_in_the_environment_of_the_caller) {
    log_catcher log;
    EXPECT_TRUE(vask_object::reboot_system());
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_THAT(calls[0].argv, ElementsAre("/sbin/shutdown", "-r", "now"));
    expect_plain_call(calls[0]);
    EXPECT_EQ(log.text(), "");
}

// The name is a conversion and the number is the address of a text: both are kept on purpose.
TEST_F(power, That_cannot_be_switched_off_is_logged_under_an_odd_name) {
    spawn_fails = true;
    log_catcher log;
    EXPECT_FALSE(vask_object::shutdown_system());
    EXPECT_EQ(calls.size(), 1U);
    ASSERT_THAT(log.lines(),
                ElementsAre(logged("ERR", "%s",
                                   MatchesRegex("Failed to call g_spawn_async\\(\\): -?[0-9]+"))));
    EXPECT_EQ(text_at_printed_address(log.lines()[0]),
              "static bool vask_object::shutdown_system()");
}

TEST_F(power, That_cannot_be_cycled_is_logged_under_an_odd_name) {
    spawn_fails = true;
    log_catcher log;
    EXPECT_FALSE(vask_object::reboot_system());
    EXPECT_EQ(calls.size(), 1U);
    ASSERT_THAT(log.lines(),
                ElementsAre(logged("ERR", "%s",
                                   MatchesRegex("Failed to call g_spawn_async\\(\\): -?[0-9]+"))));
    EXPECT_EQ(text_at_printed_address(log.lines()[0]), "static bool vask_object::reboot_system()");
}
