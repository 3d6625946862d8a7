// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What a script does to a plug-in while the plug-in calls it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "vask_test/fake_browser.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::vector<std::string> events;

/** The object of an element: its method "call" calls a function of the page. */
struct calling_object : NPObject {
    ~calling_object() { events.push_back("deleted"); }

    NPObject* function = nullptr;
    NPP npp = nullptr;
};

fake_browser* the_browser = nullptr;

NPObject* allocate(NPP npp, NPClass*) {
    calling_object* object = new calling_object();
    object->npp = npp;
    return object;
}

void deallocate(NPObject* object) {
    delete static_cast<calling_object*>(object);
}

void invalidate(NPObject*) {
    events.push_back("invalidated");
}

bool call_function(NPObject* object, NPIdentifier, const NPVariant*, uint32_t, NPVariant* result) {
    calling_object* self = static_cast<calling_object*>(object);
    events.push_back("calls");
    NPVariant ignored{};
    the_browser->functions().invokeDefault(self->npp, self->function, nullptr, 0, &ignored);
    // Whoever has deleted the object meanwhile is found out here by the address sanitizer.
    events.push_back(self->function ? "goes on" : "");
    VOID_TO_NPVARIANT(*result);
    return true;
}

NPClass* its_class() {
    static NPClass result = [] {
        NPClass made{};
        made.structVersion = NP_CLASS_STRUCT_VERSION;
        made.allocate = allocate;
        made.deallocate = deallocate;
        made.invalidate = invalidate;
        made.invoke = call_function;
        return made;
    }();
    return &result;
}

NPError destroy(NPP, NPSavedData**) {
    events.push_back("destroyed");
    return NPERR_NO_ERROR;
}

NPError get_value(NPP npp, NPPVariable, void* value) {
    *static_cast<NPObject**>(value) = the_browser->functions().createobject(npp, its_class());
    return NPERR_NO_ERROR;
}

class scripted_page : public testing::Test {
protected:
    scripted_page() {
        events.clear();
        the_browser = &browser;
        NPPluginFuncs plugin{};
        plugin.destroy = destroy;
        plugin.getvalue = get_value;
        plugin.urlnotify = [](NPP, const char* url, NPReason reason, void*) {
            events.push_back(std::string(url) + " ends with " + std::to_string(reason));
        };
        browser.load(plugin);
    }

    ~scripted_page() override { browser.leave_page(); }

    /** An element whose object calls a function of the page. */
    NPObject* open_element(const std::function<void()>& body) {
        element = browser.open();
        calling_object* object = static_cast<calling_object*>(browser.scriptable(element));
        object->function = browser.make_function([body](const std::vector<script_value>&) {
            body();
            return script_value("a text that the browser copies");
        });
        return object;
    }

    fake_browser browser;
    NPP element = nullptr;
};

}  // namespace

TEST_F(scripted_page, Calls_the_plug_in_back) {
    int depth = 0;
    NPObject* object = nullptr;
    object = open_element([&] {
        if (++depth < 3) {
            EXPECT_TRUE(browser.call(object, "call", {}));
        }
    });
    EXPECT_TRUE(browser.call(object, "call", {}));
    EXPECT_EQ(depth, 3);
    EXPECT_THAT(browser.complaints(), IsEmpty());
}

TEST_F(scripted_page, Deletes_the_element_that_calls_it) {
    NPObject* object = open_element([&] { browser.close(element); });
    EXPECT_TRUE(browser.call(object, "call", {}));
    EXPECT_THAT(events, ElementsAre("calls", "destroyed", "goes on"));
    EXPECT_FALSE(browser.is_open(element));
    EXPECT_THAT(browser.complaints(), IsEmpty());
}

TEST_F(scripted_page, Complains_of_calls_for_an_element_that_it_has_deleted) {
    open_element([] {});
    browser.close(element);
    browser.functions().status(element, "late");
    browser.functions().forceredraw(element);
    EXPECT_THAT(browser.complaints(),
                ElementsAre(HasSubstr("Status: for an element that is closed"),
                            HasSubstr("an element that is closed")));
}

TEST_F(scripted_page, Complains_of_an_element_that_is_deleted_twice) {
    open_element([] {});
    browser.close(element);
    EXPECT_EQ(browser.close(element), NPERR_INVALID_INSTANCE_ERROR);
    EXPECT_EQ(browser.complaints().size(), 1u);
    EXPECT_THAT(events, ElementsAre("destroyed"));
}

TEST_F(scripted_page, Complains_of_an_element_that_there_never_was) {
    NPP_t stranger{};
    browser.functions().setvalue(&stranger, NPPVpluginWindowBool, nullptr);
    EXPECT_THAT(browser.complaints(), ElementsAre(HasSubstr("an NPP that does not exist")));
}

TEST_F(scripted_page, Destroys_an_element_once_when_its_end_runs_the_script) {
    static NPObject* object;
    NPPluginFuncs plugin{};
    plugin.getvalue = get_value;
    plugin.destroy = [](NPP, NPSavedData**) -> NPError {
        events.push_back("destroyed");
        EXPECT_TRUE(the_browser->call(object, "call", {}));
        return NPERR_NO_ERROR;
    };
    browser.load(plugin);
    object = open_element([&] {
        browser.close(element);
        browser.leave_page();
    });
    browser.close(element);
    EXPECT_THAT(events, ElementsAre("destroyed", "calls", "goes on", "invalidated", "deleted"));
    EXPECT_FALSE(browser.is_open(element));
}

TEST_F(scripted_page, Breaks_off_the_requests_of_an_element_that_is_deleted) {
    open_element([] {});
    browser.functions().geturlnotify(element, "http://host/", nullptr, nullptr);
    browser.close(element);
    EXPECT_THAT(events, ElementsAre("http://host/ ends with 2", "destroyed"));
    EXPECT_THAT(browser.requests, IsEmpty());
}

TEST_F(scripted_page, Ends_all_elements_and_objects_when_it_is_left) {
    NPObject* object = open_element([] {});
    NPObject* function = static_cast<calling_object*>(object)->function;
    NPObject* window = browser.window();
    browser.open();
    browser.leave_page();
    EXPECT_THAT(events, ElementsAre("destroyed", "destroyed", "invalidated", "deleted"));
    EXPECT_FALSE(browser.is_alive(object));
    EXPECT_FALSE(browser.is_alive(function));
    EXPECT_FALSE(browser.is_alive(window));
    EXPECT_TRUE(browser.is_alive(browser.window()));
    EXPECT_THAT(browser.faults(), IsEmpty());
}

TEST_F(scripted_page, Lets_the_object_that_calls_it_live_until_it_returns_when_it_is_left) {
    NPObject* object = open_element([&] { browser.leave_page(); });
    EXPECT_TRUE(browser.call(object, "call", {}));
    EXPECT_THAT(events, ElementsAre("calls", "destroyed", "goes on", "invalidated", "deleted"));
    EXPECT_FALSE(browser.is_alive(object));
}

TEST_F(scripted_page, Still_misses_references_when_it_was_left) {
    NPObject* object = open_element([] {});
    browser.functions().retainobject(static_cast<calling_object*>(object)->function);
    browser.functions().retainobject(browser.window());
    browser.leave_page();
    EXPECT_THAT(browser.unbalanced(), ElementsAre(HasSubstr("1 references to an object"),
                                                  HasSubstr("1 references to an object")));
}

TEST_F(scripted_page, Complains_of_the_use_of_its_objects_when_it_was_left) {
    NPObject* function = static_cast<calling_object*>(open_element([] {}))->function;
    browser.functions().retainobject(function);
    browser.leave_page();
    browser.functions().releaseobject(function);
    EXPECT_THAT(browser.complaints(), ElementsAre(HasSubstr("ReleaseObject")));
}

TEST_F(scripted_page, Gives_no_new_object_the_address_of_one_that_is_gone) {
    NPObject* gone = browser.make_function();
    browser.drop(gone);
    for (int i = 0; i < 100; ++i) {
        ASSERT_NE(browser.make_function(), gone);
    }
}

TEST_F(scripted_page, Can_be_opened_anew_by_the_script_that_leaves_it) {
    NPP next = nullptr;
    NPObject* object = open_element([&] {
        browser.leave_page();
        next = browser.open();
    });
    browser.call(object, "call", {});
    EXPECT_TRUE(browser.is_open(next));
    EXPECT_NE(browser.scriptable(next), nullptr);
    EXPECT_THAT(browser.complaints(), IsEmpty());
}

TEST_F(scripted_page, Gives_an_element_its_window) {
    static NPWindow* given;
    NPPluginFuncs plugin{};
    plugin.setwindow = [](NPP, NPWindow* window) -> NPError {
        given = window;
        return NPERR_OUT_OF_MEMORY_ERROR;
    };
    NPWindow window{};
    EXPECT_EQ(browser.set_window(browser.open(), &window), NPERR_NO_ERROR);
    browser.load(plugin);
    EXPECT_EQ(browser.set_window(browser.open(), &window), NPERR_OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(given, &window);
}
