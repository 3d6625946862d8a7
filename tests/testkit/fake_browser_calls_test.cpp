// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The fake browser counts the calls of its functions, and lets them fail when a test wants it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "vask_test/fake_browser.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class called_browser : public testing::Test {
protected:
    fake_browser browser;
    const NPNetscapeFuncs& functions = browser.functions();
    NPP_t npp{};
};

class failing_browser : public called_browser {
protected:
    NPVariant value{};
    NPP element = browser.open();
    NPObject* const function =
        browser.make_function([](const std::vector<script_value>&) { return script_value(42); });
    const NPIdentifier name = browser.name("name");

    bool invoke() { return functions.invokeDefault(element, function, nullptr, 0, &value); }
};

}  // namespace

TEST_F(called_browser, Lists_the_calls_of_its_functions_in_order) {
    functions.memfree(functions.memalloc(1));
    functions.retainobject(browser.window());
    functions.releaseobject(browser.window());
    functions.getstringidentifier("name");
    EXPECT_THAT(browser.calls(), ElementsAre("MemAlloc", "MemFree", "RetainObject", "ReleaseObject",
                                             "GetStringIdentifier"));
}

TEST_F(called_browser, Counts_the_calls_of_a_function) {
    functions.memfree(functions.memalloc(1));
    functions.memfree(functions.memalloc(2));
    EXPECT_EQ(browser.calls_of("MemAlloc"), 2);
    EXPECT_EQ(browser.calls_of("Invoke"), 0);
}

TEST_F(called_browser, Does_not_count_what_the_page_does) {
    NPObject* function = browser.make_function();
    browser.hold(function);
    browser.drop(function);
    browser.name("name");
    EXPECT_THAT(browser.calls(), IsEmpty());
}

TEST_F(called_browser, Counts_anew_when_it_has_forgotten) {
    functions.memfree(nullptr);
    browser.forget_calls();
    functions.memflush(1);
    EXPECT_THAT(browser.calls(), ElementsAre("MemFlush"));
}

TEST_F(called_browser, Counts_calls_of_another_thread_as_well) {
    std::thread([this] { functions.status(&npp, "hello"); }).join();
    std::thread([this] { functions.pluginthreadasynccall(&npp, nullptr, nullptr); }).join();
    EXPECT_THAT(browser.calls(), ElementsAre("Status", "PluginThreadAsyncCall"));
}

TEST_F(called_browser, Notes_each_identifier_that_the_plug_in_asks_for) {
    const NPIdentifier name = functions.getstringidentifier("name");
    functions.getstringidentifier("name");
    const NPIdentifier number = functions.getintidentifier(7);
    EXPECT_EQ(browser.entries_of(ledger_entry::identified, name).size(), 2u);
    const auto entries = browser.entries_of(ledger_entry::identified, number);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_THAT(entries[0].place.text(), HasSubstr("TestBody"));
    EXPECT_FALSE(entries[0].by_page);
}

TEST_F(called_browser, Notes_nothing_without_a_ledger) {
    browser.keep_no_ledger();
    functions.getstringidentifier("name");
    functions.pluginthreadasynccall(&npp, nullptr, nullptr);
    EXPECT_THAT(browser.ledger(), IsEmpty());
    EXPECT_THAT(browser.calls(), IsEmpty());
}

TEST_F(failing_browser, Lets_all_calls_of_a_function_fail) {
    browser.fail("MemAlloc");
    EXPECT_EQ(functions.memalloc(1), nullptr);
    EXPECT_EQ(functions.memalloc(1), nullptr);
    EXPECT_THAT(browser.unbalanced(), IsEmpty());
    EXPECT_EQ(browser.calls_of("MemAlloc"), 2);
}

TEST_F(failing_browser, Lets_some_calls_fail_after_others) {
    browser.fail("InvokeDefault", 2, 1);
    EXPECT_TRUE(invoke());
    EXPECT_FALSE(invoke());
    EXPECT_FALSE(invoke());
    EXPECT_TRUE(invoke());
}

TEST_F(failing_browser, Lets_nothing_fail_any_more) {
    browser.fail("InvokeDefault");
    browser.fail_nothing();
    EXPECT_TRUE(invoke());
}

TEST_F(failing_browser, Answers_as_a_browser_does_that_fails) {
    for (const char* each : {"GetURL", "GetURLNotify", "PostURL", "PostURLNotify", "NewStream",
                             "Write", "GetValue", "SetValue", "CreateObject", "GetStringIdentifier",
                             "GetIntIdentifier", "UTF8FromIdentifier"}) {
        browser.fail(each);
    }
    NPClass its_class{};
    NPStream* stream = nullptr;
    NPObject* object = nullptr;
    char type[] = "text/plain";
    EXPECT_EQ(functions.geturl(element, "a", nullptr), NPERR_GENERIC_ERROR);
    EXPECT_EQ(functions.geturlnotify(element, "a", nullptr, nullptr), NPERR_GENERIC_ERROR);
    EXPECT_EQ(functions.posturl(element, "a", nullptr, 0, "", 0), NPERR_GENERIC_ERROR);
    EXPECT_EQ(functions.posturlnotify(element, "a", nullptr, 0, "", 0, nullptr),
              NPERR_GENERIC_ERROR);
    EXPECT_EQ(functions.newstream(element, type, nullptr, &stream), NPERR_GENERIC_ERROR);
    EXPECT_EQ(functions.write(element, stream, 0, nullptr), -1);
    EXPECT_EQ(functions.getvalue(element, NPNVWindowNPObject, &object), NPERR_GENERIC_ERROR);
    EXPECT_EQ(functions.setvalue(element, NPPVpluginWindowBool, nullptr), NPERR_GENERIC_ERROR);
    EXPECT_EQ(functions.createobject(element, &its_class), nullptr);
    EXPECT_EQ(functions.getstringidentifier("a"), nullptr);
    EXPECT_EQ(functions.getintidentifier(1), nullptr);
    EXPECT_EQ(functions.utf8fromidentifier(name), nullptr);
    EXPECT_THAT(browser.requests, IsEmpty());
    EXPECT_THAT(browser.faults(), IsEmpty());
}

TEST_F(failing_browser, Lets_calls_of_scripts_fail) {
    for (const char* each :
         {"Invoke", "InvokeDefault", "Evaluate", "GetProperty", "SetProperty", "RemoveProperty",
          "HasProperty", "HasMethod", "Enumerate", "Construct"}) {
        browser.fail(each);
    }
    browser.set_member(function, "name", function);
    browser.on_evaluate = [](const std::string&, script_value*) { return true; };
    NPString script = {"1", 1};
    NPIdentifier* names = nullptr;
    uint32_t count = 0;
    EXPECT_FALSE(functions.invoke(element, function, name, nullptr, 0, &value));
    EXPECT_FALSE(invoke());
    EXPECT_FALSE(functions.evaluate(element, function, &script, &value));
    EXPECT_FALSE(functions.getproperty(element, function, name, &value));
    EXPECT_FALSE(functions.setproperty(element, function, name, &value));
    EXPECT_FALSE(functions.removeproperty(element, function, name));
    EXPECT_FALSE(functions.hasproperty(element, function, name));
    EXPECT_FALSE(functions.hasmethod(element, function, name));
    EXPECT_FALSE(functions.enumerate(element, function, &names, &count));
    EXPECT_FALSE(functions.construct(element, function, nullptr, 0, &value));
}

TEST_F(failing_browser, Refuses_to_let_fail_what_cannot) {
    EXPECT_THROW(browser.fail("ReleaseObject"), std::invalid_argument);
    EXPECT_THROW(browser.fail("NPN_MemAlloc"), std::invalid_argument);
}
