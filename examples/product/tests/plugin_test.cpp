// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The plug-in, in a browser that keeps books, with a child that does what the test says.

#include <stdlib.h>
#include <vask_test/fake_browser.h>
#include <vask_test/googletest.h>
#include <vask_test/main_loop.h>
#include <vask_test/scripted_child.h>

#include "meter_protocol.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class meter : public testing::Test {
protected:
    meter() {
        setenv("METER_CHILD", child.program().c_str(), 1);
        EXPECT_EQ(browser.load(METER_PLUGIN), NPERR_NO_ERROR);
        element = browser.open();
        object = browser.scriptable(element);
    }

    ~meter() override {
        if (element) {
            browser.close(element);
        }
        if (object) {
            browser.drop(object);
        }
        browser.unload();
        EXPECT_THAT(browser.faults(), IsEmpty());
    }

    /** Has a function of the page called for an event, and keeps what it is called with. */
    NPObject* listen(const std::string& event) {
        NPObject* function =
            browser.make_function([this, event](const std::vector<script_value>& arguments) {
                std::string call = event;
                for (const script_value& argument : arguments) {
                    call += " " + std::get<std::string>(argument);
                }
                calls.push_back(call);
                return script_value();
            });
        EXPECT_TRUE(browser.call(object, "attachEvent", {event, function}));
        return function;
    }

    bool measure(const std::string& what) { return browser.call(object, "measure", {what}); }

    bool wait_for_calls(std::size_t count) {
        return wait_until([&] { return calls.size() >= count; });
    }

    scripted_child child;
    fake_browser browser;
    NPP element = nullptr;
    NPObject* object = nullptr;
    std::vector<std::string> calls;
};

}  // namespace

TEST_F(meter, Calls_the_page_with_what_was_measured) {
    child.on_command(METER_MEASURE).emit(METER_MEASURED, "load 7");
    NPObject* function = listen("measured");
    EXPECT_TRUE(measure("load"));
    EXPECT_TRUE(wait_for_calls(1));
    EXPECT_THAT(calls, ElementsAre("measured load 7 "));
    EXPECT_THAT(child.calls(), ElementsAre("command 1 load"));
    browser.drop(function);
}

TEST_F(meter, Calls_the_page_with_what_cannot_be_measured) {
    child.on_command(METER_MEASURE).emit(METER_FAILED, "load");
    NPObject* function = listen("failed");
    measure("load");
    EXPECT_TRUE(wait_for_calls(1));
    EXPECT_THAT(calls, ElementsAre("failed load"));
    browser.drop(function);
}

TEST_F(meter, Survives_a_function_that_detaches_itself) {
    child.on_command(METER_MEASURE).emit(METER_MEASURED, "load 7");
    NPObject* function = nullptr;
    function = browser.make_function([&](const std::vector<script_value>&) {
        calls.push_back("detached");
        // Now nobody but the plug-in has a reference to it.
        browser.call(object, "detachEvent", {std::string("measured"), function});
        browser.drop(function);
        return script_value();
    });
    browser.call(object, "attachEvent", {std::string("measured"), function});
    measure("load");
    EXPECT_TRUE(wait_for_calls(1));
}

TEST_F(meter, Shows_the_last_value) {
    child.on_command(METER_MEASURE).emit(METER_MEASURED, "load 7");
    NPObject* function = listen("measured");
    measure("load");
    ASSERT_TRUE(wait_for_calls(1));
    script_value value;
    EXPECT_TRUE(browser.read(object, "last", &value));
    EXPECT_EQ(value, script_value(std::string("load 7")));
    browser.drop(function);
}

TEST_F(meter, Takes_its_unit_from_the_page) {
    child.on_command(METER_MEASURE).emit(METER_MEASURED, "load 7");
    NPObject* function = listen("measured");
    NPObject* settings = browser.make_function();
    browser.set_member(settings, "unit", std::string("percent"));
    EXPECT_TRUE(browser.call(object, "configure", {settings}));
    measure("load");
    EXPECT_TRUE(wait_for_calls(1));
    EXPECT_THAT(calls, ElementsAre("measured load 7 percent"));
    browser.drop(settings);
    browser.drop(function);
}

TEST_F(meter, Tells_the_page_when_the_child_crashes_and_starts_another_one) {
    child.on_command(METER_MEASURE).crash();
    NPObject* function = listen("failed");
    measure("load");
    EXPECT_TRUE(wait_for_calls(1));
    measure("memory");
    EXPECT_TRUE(wait_for_calls(2));
    EXPECT_THAT(calls, ElementsAre("failed load", "failed memory"));
    browser.drop(function);
}

TEST_F(meter, Survives_a_page_that_removes_it_while_it_is_called) {
    child.on_command(METER_MEASURE).emit(METER_MEASURED, "load 7");
    NPObject* function = browser.make_function([this](const std::vector<script_value>&) {
        calls.push_back("removed");
        browser.close(std::exchange(element, nullptr));
        browser.drop(std::exchange(object, nullptr));
        return script_value();
    });
    browser.call(object, "attachEvent", {std::string("measured"), function});
    measure("load");
    EXPECT_TRUE(wait_for_calls(1));
    browser.drop(function);
}

TEST_F(meter, Does_nothing_for_a_page_that_holds_its_object_after_its_end) {
    child.on_command(METER_MEASURE).emit(METER_MEASURED, "load 7");
    NPObject* function = listen("measured");
    measure("load");
    ASSERT_TRUE(wait_for_calls(1));
    browser.close(std::exchange(element, nullptr));
    EXPECT_FALSE(measure("load"));
    EXPECT_FALSE(wait_until([&] { return calls.size() > 1; }, 500));
    browser.drop(function);
}
