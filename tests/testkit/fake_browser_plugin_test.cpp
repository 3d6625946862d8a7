// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The fake browser loads the shared object of a plug-in as a browser does.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "vask_test/fake_browser.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::string odd_plugin(const std::string& oddity) {
    return std::string(VASK_TEST_PROGRAM_DIR) + "/odd_plugin" + oddity + ".so";
}

bool is_loaded(const std::string& path) {
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (library) {
        dlclose(library);
    }
    return library != nullptr;
}

void call_odd_plugin(const char* function) {
    void* library = dlopen(odd_plugin("").c_str(), RTLD_NOW | RTLD_NOLOAD);
    reinterpret_cast<void (*)()>(dlsym(library, function))();
    dlclose(library);
}

std::string reason_not_to_load(const std::string& path) {
    fake_browser browser;
    try {
        browser.load(path);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "none";
}

}  // namespace

TEST(loaded_plugin, Is_asked_for_its_texts) {
    fake_browser browser;
    EXPECT_EQ(browser.load(odd_plugin("")), NPERR_NO_ERROR);
    EXPECT_EQ(browser.plugin_types(), "application/x-odd:odd:Odd;application/x-odder::");
    EXPECT_EQ(browser.plugin_name(), "Odd");
    EXPECT_EQ(browser.plugin_description(), "Not even");
}

TEST(loaded_plugin, Is_initialized_with_the_functions_of_the_browser) {
    fake_browser browser;
    browser.load(odd_plugin(""));
    EXPECT_EQ(browser.status_text, "initialized");
    EXPECT_THAT(browser.calls(), ElementsAre("Status"));
}

TEST(loaded_plugin, Has_elements) {
    fake_browser browser;
    browser.load(odd_plugin(""));
    NPError answer = NPERR_GENERIC_ERROR;
    NPP element = browser.open({}, &answer);
    EXPECT_EQ(answer, NPERR_NO_ERROR);
    EXPECT_EQ(browser.close(element), NPERR_NO_ERROR);
    EXPECT_THAT(browser.faults(), IsEmpty());
}

TEST(loaded_plugin, Is_shut_down_and_unloaded) {
    unsetenv("ODD_PLUGIN");
    fake_browser browser;
    browser.load(odd_plugin(""));
    NPP element = browser.open();
    EXPECT_TRUE(is_loaded(odd_plugin("")));
    EXPECT_EQ(browser.unload(), NPERR_NO_ERROR);
    EXPECT_STREQ(getenv("ODD_PLUGIN"), "shut down");
    EXPECT_FALSE(browser.is_open(element));
    EXPECT_FALSE(is_loaded(odd_plugin("")));
    EXPECT_EQ(browser.unload(), NPERR_NO_ERROR);
}

TEST(loaded_plugin, Is_named_in_faults_when_it_is_unloaded) {
    fake_browser browser;
    browser.load(odd_plugin(""));
    call_odd_plugin("odd_plugin_leaks");
    browser.unload();
    ASSERT_FALSE(is_loaded(odd_plugin("")));
    EXPECT_THAT(browser.faults(), ElementsAre(HasSubstr("42 bytes from odd_plugin_leaks")));
}

TEST(loaded_plugin, Is_not_called_later_when_it_is_unloaded) {
    fake_browser browser;
    browser.load(odd_plugin(""));
    call_odd_plugin("odd_plugin_calls_later");
    browser.unload();
    ASSERT_FALSE(is_loaded(odd_plugin("")));
    browser.run_async_calls();
}

TEST(loaded_plugin, Is_unloaded_with_the_browser) {
    unsetenv("ODD_PLUGIN");
    { fake_browser().load(odd_plugin("")); }
    EXPECT_STREQ(getenv("ODD_PLUGIN"), "shut down");
    EXPECT_FALSE(is_loaded(odd_plugin("")));
}

TEST(loaded_plugin, Makes_room_for_the_next_one) {
    unsetenv("ODD_PLUGIN");
    fake_browser browser;
    browser.load(odd_plugin(""));
    browser.load(odd_plugin("_without_texts"));
    EXPECT_STREQ(getenv("ODD_PLUGIN"), "shut down");
    EXPECT_EQ(browser.plugin_name(), "");
    EXPECT_EQ(browser.plugin_description(), "");
}

TEST(loaded_plugin, May_refuse_the_browser) {
    fake_browser browser;
    EXPECT_EQ(browser.load(odd_plugin("_without_answer")), NPERR_INCOMPATIBLE_VERSION_ERROR);
    EXPECT_FALSE(is_loaded(odd_plugin("_without_answer")));
    EXPECT_EQ(browser.unload(), NPERR_NO_ERROR);
}

TEST(loaded_plugin, Has_to_be_there) {
    EXPECT_THAT(reason_not_to_load("/nonexistent/plugin.so"), HasSubstr("/nonexistent/plugin.so"));
}

TEST(loaded_plugin, Has_to_have_all_entry_points) {
    EXPECT_THAT(reason_not_to_load(odd_plugin("_without_shutdown")),
                HasSubstr("has no NP_Shutdown"));
    EXPECT_FALSE(is_loaded(odd_plugin("_without_shutdown")));
}

TEST(loaded_plugin, Has_to_fill_in_the_functions_for_elements) {
    EXPECT_THAT(reason_not_to_load(odd_plugin("_without_functions")), HasSubstr("NPP_New"));
    EXPECT_FALSE(is_loaded(odd_plugin("_without_functions")));
}
