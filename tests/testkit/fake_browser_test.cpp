// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The fake browser notices what would crash a real one, and knows which references are still held.

#include "vask_test/fake_browser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/sanitizers.h"

using namespace vask_test;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

/** An object of a plug-in of its own, which it deletes with the last reference. */
struct plugin_object : NPObject {
    static int alive;
    plugin_object() : NPObject() { ++alive; }
    ~plugin_object() { --alive; }
};

int plugin_object::alive = 0;
NPObject* the_object = nullptr;

NPObject* make_object(NPP, NPClass*) {
    return new plugin_object;
}

NPObject* give_the_object(NPP, NPClass*) {
    return the_object;
}

void delete_object(NPObject* object) {
    delete static_cast<plugin_object*>(object);
}

class browser_for_tests : public testing::Test {
protected:
    static NPClass class_that(NPAllocateFunctionPtr allocate) {
        NPClass result{};
        result.structVersion = NP_CLASS_STRUCT_VERSION;
        result.allocate = allocate;
        result.deallocate = delete_object;
        return result;
    }

    fake_browser browser;
    const NPNetscapeFuncs& functions = browser.functions();
    NPP_t npp{};
};

void expect_count_after_second_creation(object_counts counts, uint32_t expected) {
    // The browser looks at it once more when it ends.
    plugin_object object;
    the_object = &object;
    fake_browser browser(counts);
    NPClass its_class{};
    its_class.allocate = give_the_object;
    NPP_t npp{};
    browser.functions().createobject(&npp, &its_class);
    browser.functions().retainobject(&object);
    browser.functions().createobject(&npp, &its_class);
    EXPECT_EQ(object.referenceCount, expected);
}

}  // namespace

TEST_F(browser_for_tests, Has_a_function_in_every_entry) {
    const std::size_t header = sizeof(void*);
    std::vector<void*> entries((sizeof functions - header) / sizeof(void*));
    std::memcpy(entries.data(), reinterpret_cast<const char*>(&functions) + header,
                sizeof functions - header);
    EXPECT_EQ(entries.size(), 45u);
    EXPECT_THAT(entries, testing::Each(testing::NotNull()));
    EXPECT_EQ(functions.size, sizeof functions);
}

TEST_F(browser_for_tests, Starts_without_complaints) {
    EXPECT_THAT(browser.complaints(), IsEmpty());
    EXPECT_THAT(browser.unbalanced(), IsEmpty());
}

TEST_F(browser_for_tests, Misses_memory_that_is_not_freed) {
    void* memory = functions.memalloc(42);
    EXPECT_THAT(browser.unbalanced(),
                ElementsAre(AllOf(HasSubstr("42 bytes from "), HasSubstr("TestBody"))));
    functions.memfree(memory);
    EXPECT_THAT(browser.unbalanced(), IsEmpty());
    EXPECT_THAT(browser.complaints(), IsEmpty());
}

TEST_F(browser_for_tests, Complains_of_memory_that_is_freed_twice) {
    void* memory = functions.memalloc(1);
    functions.memfree(memory);
    functions.memfree(memory);
    EXPECT_THAT(browser.complaints(), ElementsAre(HasSubstr("is no memory of the browser")));
}

TEST_F(browser_for_tests, Complains_of_memory_of_somebody_else) {
    int mine = 0;
    functions.memfree(&mine);
    EXPECT_THAT(browser.complaints(), ElementsAre(HasSubstr("is no memory of the browser")));
}

TEST_F(browser_for_tests, Misses_a_reference_with_the_place_that_took_it) {
    functions.retainobject(browser.window());
    EXPECT_THAT(browser.unbalanced(),
                ElementsAre(AllOf(HasSubstr("1 references to an object"), HasSubstr("TestBody"))));
    functions.releaseobject(browser.window());
    EXPECT_THAT(browser.unbalanced(), IsEmpty());
}

TEST_F(browser_for_tests, Complains_of_the_release_of_a_reference_of_the_page) {
    functions.retainobject(browser.window());
    functions.releaseobject(browser.window());
    functions.releaseobject(browser.window());
    EXPECT_THAT(browser.faults(),
                ElementsAre(AllOf(HasSubstr("ReleaseObject: "), HasSubstr("the plug-in has none"),
                                  HasSubstr("TestBody"))));
    EXPECT_TRUE(browser.is_alive(browser.window()));
}

TEST_F(browser_for_tests, Complains_of_an_object_of_an_element_that_is_gone) {
    static NPObject* given = nullptr;
    given = browser.make_function();
    browser.drop(given);
    NPPluginFuncs plugin{};
    plugin.getvalue = [](NPP, NPPVariable, void* value) -> NPError {
        *static_cast<NPObject**>(value) = given;
        return NPERR_NO_ERROR;
    };
    browser.load(plugin);
    EXPECT_EQ(browser.scriptable(browser.open()), nullptr);
    EXPECT_FALSE(browser.is_alive(given));
    EXPECT_THAT(browser.faults(), ElementsAre(HasSubstr("is no object that lives")));
}

TEST_F(browser_for_tests, Complains_of_a_result_that_is_gone) {
    static NPObject* given = nullptr;
    given = browser.make_function();
    browser.drop(given);
    NPClass its_class = class_that(make_object);
    its_class.getProperty = [](NPObject*, NPIdentifier, NPVariant* result) {
        OBJECT_TO_NPVARIANT(given, *result);
        return true;
    };
    NPObject* object = functions.createobject(&npp, &its_class);
    script_value result;
    EXPECT_FALSE(browser.read(object, "name", &result));
    functions.releaseobject(object);
    EXPECT_THAT(browser.faults(), ElementsAre(HasSubstr("is no object that lives")));
}

TEST_F(browser_for_tests, Keeps_an_object_that_is_a_member_until_there_is_another_value) {
    NPClass its_class = class_that(make_object);
    NPObject* object = functions.createobject(&npp, &its_class);
    const NPIdentifier name = functions.getstringidentifier("api");
    script_arguments member{object}, other{1};
    EXPECT_TRUE(functions.setproperty(&npp, browser.window(), name, member.data()));
    functions.releaseobject(object);
    EXPECT_EQ(plugin_object::alive, 1);
    EXPECT_TRUE(functions.setproperty(&npp, browser.window(), name, other.data()));
    EXPECT_EQ(plugin_object::alive, 0);
    EXPECT_THAT(browser.faults(), IsEmpty());
}

TEST_F(browser_for_tests, Keeps_an_object_that_is_a_member_until_that_is_removed) {
    NPClass its_class = class_that(make_object);
    NPObject* object = functions.createobject(&npp, &its_class);
    const NPIdentifier name = functions.getstringidentifier("api");
    script_arguments member{object};
    EXPECT_TRUE(functions.setproperty(&npp, browser.window(), name, member.data()));
    functions.releaseobject(object);
    EXPECT_TRUE(functions.removeproperty(&npp, browser.window(), name));
    EXPECT_EQ(plugin_object::alive, 0);
}

TEST_F(browser_for_tests, Ends_an_object_that_is_a_member_with_the_object_that_has_it) {
    NPClass its_class = class_that(make_object);
    NPObject* object = functions.createobject(&npp, &its_class);
    NPObject* owner = browser.make_function();
    script_arguments member{object};
    functions.setproperty(&npp, owner, functions.getstringidentifier("api"), member.data());
    functions.releaseobject(object);
    browser.drop(owner);
    EXPECT_EQ(plugin_object::alive, 0);
    EXPECT_THAT(browser.faults(), IsEmpty());
}

TEST_F(browser_for_tests, Ends_an_object_that_is_a_member_with_the_page) {
    NPClass its_class = class_that(make_object);
    NPObject* object = functions.createobject(&npp, &its_class);
    script_arguments member{object};
    functions.setproperty(&npp, browser.window(), functions.getstringidentifier("api"),
                          member.data());
    functions.releaseobject(object);
    browser.leave_page();
    EXPECT_EQ(plugin_object::alive, 0);
    EXPECT_THAT(browser.faults(), IsEmpty());
}

TEST_F(browser_for_tests, Complains_of_the_use_of_an_object_that_is_gone) {
    NPObject* function = browser.make_function();
    browser.drop(function);
    functions.retainobject(function);
    functions.releaseobject(function);
    EXPECT_FALSE(functions.invokeDefault(&npp, function, nullptr, 0, nullptr));
    EXPECT_THAT(browser.complaints(),
                ElementsAre(HasSubstr("RetainObject"), HasSubstr("ReleaseObject"),
                            HasSubstr("InvokeDefault")));
}

TEST_F(browser_for_tests, Complains_of_a_count_that_somebody_else_changes) {
    ++browser.window()->referenceCount;
    functions.retainobject(browser.window());
    EXPECT_THAT(browser.complaints(), ElementsAre(HasSubstr("changed the count")));
}

TEST_F(browser_for_tests, Complains_of_a_call_on_another_thread) {
    std::thread([this] { functions.status(&npp, "hello"); }).join();
    EXPECT_THAT(browser.complaints(), ElementsAre(HasSubstr("Status: called on another thread")));
}

TEST_F(browser_for_tests, Takes_an_async_call_from_any_thread_and_runs_it_on_its_own) {
    std::thread::id ran_on;
    std::thread([&] {
        functions.pluginthreadasynccall(
            &npp,
            [](void* data) { *static_cast<std::thread::id*>(data) = std::this_thread::get_id(); },
            &ran_on);
    }).join();
    browser.run_async_calls();
    EXPECT_EQ(ran_on, std::this_thread::get_id());
    EXPECT_THAT(browser.complaints(), IsEmpty());
}

TEST_F(browser_for_tests, Complains_of_an_identifier_that_it_never_gave) {
    int mine = 0;
    functions.identifierisstring(&mine);
    EXPECT_THAT(browser.complaints(), ElementsAre(HasSubstr("is no identifier")));
}

TEST_F(browser_for_tests, Knows_names_and_numbers) {
    const NPIdentifier name = functions.getstringidentifier("name");
    EXPECT_EQ(functions.getstringidentifier("name"), name);
    EXPECT_TRUE(functions.identifierisstring(name));
    NPUTF8* text = functions.utf8fromidentifier(name);
    EXPECT_STREQ(text, "name");
    functions.memfree(text);

    const NPIdentifier number = functions.getintidentifier(7);
    EXPECT_FALSE(functions.identifierisstring(number));
    EXPECT_EQ(functions.intfromidentifier(number), 7);
    EXPECT_EQ(functions.utf8fromidentifier(number), nullptr);
}

TEST_F(browser_for_tests, Ends_an_object_with_its_last_reference) {
    NPClass its_class = class_that(make_object);
    NPObject* object = functions.createobject(&npp, &its_class);
    EXPECT_EQ(object->referenceCount, 1u);
    EXPECT_EQ(plugin_object::alive, 1);
    functions.releaseobject(object);
    EXPECT_EQ(plugin_object::alive, 0);
}

TEST_F(browser_for_tests, Makes_and_frees_an_object_of_a_class_that_does_not_do_so_itself) {
    NPClass its_class{};
    NPObject* object = functions.createobject(&npp, &its_class);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->_class, &its_class);
    functions.releaseobject(object);
    EXPECT_THAT(browser.faults(), IsEmpty());
}

TEST_F(browser_for_tests, Gives_no_object_when_its_class_makes_none) {
    the_object = nullptr;
    NPClass its_class = class_that(give_the_object);
    EXPECT_EQ(functions.createobject(&npp, &its_class), nullptr);
    EXPECT_THAT(browser.faults(), IsEmpty());
}

TEST_F(browser_for_tests, Fails_what_the_page_wants_of_an_object_whose_class_cannot_do_it) {
    NPClass its_class = class_that(make_object);
    NPObject* object = functions.createobject(&npp, &its_class);
    EXPECT_FALSE(browser.call(object, "name", {}));
    EXPECT_FALSE(browser.read(object, "name"));
    EXPECT_FALSE(browser.write(object, "name", 1));
    functions.releaseobject(object);
}

TEST(browser_without_memory, Gives_none_and_ends) {
#ifdef VASK_TEST_HAS_ADDRESS_SANITIZER
    GTEST_SKIP() << "its allocator ends the process instead";
#endif
    const auto run_out_of_memory = [] {
        // Nobody waits for a browser that does not end.
        alarm(60);
        const rlimit little = {1 << 30, 1 << 30};
        setrlimit(RLIMIT_AS, &little);
        bool has_memory = true;
        {
            fake_browser browser;
            has_memory = browser.functions().memalloc(0xf0000000) || !browser.unbalanced().empty();
        }
        _exit(has_memory ? 1 : 0);
    };
    EXPECT_EXIT(run_out_of_memory(), testing::ExitedWithCode(0), "");
}

TEST(browser_that_counts_anew, Forgets_earlier_references_when_an_object_is_created_again) {
    expect_count_after_second_creation(object_counts::reset, 1);
}

TEST(browser_that_counts_on, Adds_to_earlier_references_when_an_object_is_created_again) {
    expect_count_after_second_creation(object_counts::kept, 3);
}

TEST_F(browser_for_tests, Gives_texts_without_an_end_to_be_released) {
    NPObject* object = browser.make_function();
    browser.set_member(object, "name", "text");
    NPVariant value;
    EXPECT_TRUE(functions.getproperty(&npp, object, functions.getstringidentifier("name"), &value));
    EXPECT_EQ(value_of(value), script_value("text"));
    EXPECT_THAT(browser.unbalanced(), ElementsAre(HasSubstr("4 bytes")));
    functions.releasevariantvalue(&value);
    EXPECT_TRUE(NPVARIANT_IS_VOID(value));
    EXPECT_THAT(browser.unbalanced(), IsEmpty());
}

TEST_F(browser_for_tests, Has_objects_whose_members_can_be_used) {
    NPObject* object = browser.make_function();
    NPObject* twice = browser.make_function([](const std::vector<script_value>& arguments) {
        return script_value(2 * std::get<int>(arguments.at(0)));
    });
    const NPIdentifier name = functions.getstringidentifier("twice");
    script_arguments member{twice}, number{21};
    EXPECT_FALSE(functions.hasproperty(&npp, object, name));
    EXPECT_TRUE(functions.setproperty(&npp, object, name, member.data()));
    EXPECT_TRUE(functions.hasproperty(&npp, object, name));
    EXPECT_TRUE(functions.hasmethod(&npp, object, name));

    NPVariant result;
    EXPECT_TRUE(functions.invoke(&npp, object, name, number.data(), 1, &result));
    EXPECT_EQ(value_of(result), script_value(42));
    EXPECT_TRUE(functions.construct(&npp, twice, number.data(), 1, &result));
    EXPECT_EQ(value_of(result), script_value(42));

    NPIdentifier* names = nullptr;
    uint32_t count = 0;
    EXPECT_TRUE(functions.enumerate(&npp, object, &names, &count));
    EXPECT_EQ(std::vector<NPIdentifier>(names, names + count), std::vector<NPIdentifier>{name});
    functions.memfree(names);

    EXPECT_TRUE(functions.removeproperty(&npp, object, name));
    EXPECT_FALSE(functions.hasproperty(&npp, object, name));
    EXPECT_THAT(browser.unbalanced(), IsEmpty());
}

TEST_F(browser_for_tests, Takes_no_text_for_an_empty_one) {
    NPStream* stream = nullptr;
    functions.status(&npp, nullptr);
    functions.setexception(browser.window(), nullptr);
    functions.geturl(&npp, nullptr, nullptr);
    EXPECT_EQ(functions.getstringidentifier(nullptr), browser.name(""));
    EXPECT_EQ(functions.newstream(&npp, nullptr, nullptr, &stream), NPERR_NO_ERROR);
    functions.destroystream(&npp, stream, NPRES_DONE);
    EXPECT_THAT(browser.faults(), IsEmpty());
}

TEST_F(browser_for_tests, Keeps_what_is_written_into_a_stream) {
    char type[] = "text/plain", text[] = "written";
    NPStream* stream = nullptr;
    EXPECT_EQ(functions.newstream(&npp, type, "_self", &stream), NPERR_NO_ERROR);
    EXPECT_EQ(functions.write(&npp, stream, 7, text), 7);
    EXPECT_EQ(browser.streams.at(stream)->written, "written");
    EXPECT_THAT(browser.unbalanced(), ElementsAre("a stream to _self"));
    EXPECT_EQ(functions.destroystream(&npp, stream, NPRES_DONE), NPERR_NO_ERROR);
    EXPECT_THAT(browser.unbalanced(), IsEmpty());
}

TEST_F(browser_for_tests, Complains_of_a_stream_that_is_closed) {
    char type[] = "text/plain", text[] = "late";
    NPStream* stream = nullptr;
    functions.newstream(&npp, type, nullptr, &stream);
    functions.destroystream(&npp, stream, NPRES_DONE);
    EXPECT_EQ(functions.write(&npp, stream, 4, text), -1);
    EXPECT_EQ(functions.destroystream(&npp, stream, NPRES_DONE), NPERR_INVALID_PARAM);
    EXPECT_EQ(browser.complaints().size(), 2u);
}

TEST_F(browser_for_tests, Complains_where_a_browser_would_read_or_write_at_no_address) {
    char type[] = "text/plain", text[] = "text";
    NPStream* stream = nullptr;
    functions.newstream(&npp, type, nullptr, &stream);
    EXPECT_EQ(functions.newstream(&npp, type, nullptr, nullptr), NPERR_INVALID_PARAM);
    EXPECT_EQ(functions.write(&npp, stream, 5, nullptr), -1);
    EXPECT_EQ(functions.write(&npp, stream, -1, text), -1);
    EXPECT_EQ(functions.posturl(&npp, "http://host", nullptr, 5, nullptr, 0), NPERR_INVALID_PARAM);
    EXPECT_EQ(functions.posturlnotify(&npp, "http://host", nullptr, 5, nullptr, 0, nullptr),
              NPERR_INVALID_PARAM);
    EXPECT_EQ(functions.createobject(&npp, nullptr), nullptr);
    functions.invalidaterect(&npp, nullptr);
    EXPECT_THAT(browser.complaints(),
                ElementsAre(StartsWith("NewStream: no place for the stream, from "),
                            StartsWith("Write: no data, from "),
                            StartsWith("Write: a negative length, from "),
                            StartsWith("PostURL: no data, from "),
                            StartsWith("PostURLNotify: no data, from "),
                            StartsWith("CreateObject: no class, from "),
                            StartsWith("InvalidateRect: no rectangle, from ")));
    EXPECT_THAT(browser.requests, IsEmpty());
    functions.destroystream(&npp, stream, NPRES_DONE);
}

TEST_F(browser_for_tests, Keeps_requests) {
    functions.geturl(&npp, "http://host/a", "_blank");
    functions.posturlnotify(&npp, "http://host/b", nullptr, 4, "data", 0, &npp);
    ASSERT_EQ(browser.requests.size(), 2u);
    EXPECT_EQ(browser.requests[0].url, "http://host/a");
    EXPECT_EQ(browser.requests[0].target, "_blank");
    EXPECT_FALSE(browser.requests[0].notifies);
    EXPECT_EQ(browser.requests[1].data, "data");
    EXPECT_EQ(browser.requests[1].notify_data, &npp);
}

TEST_F(browser_for_tests, Tells_a_plugin_about_the_end_of_its_request) {
    static std::string heard;
    NPPluginFuncs plugin{};
    plugin.urlnotify = [](NPP, const char* url, NPReason reason, void* notify_data) {
        heard = std::string(url) + " " + std::to_string(reason) + " " +
                static_cast<const char*>(notify_data);
    };
    browser.load(plugin);
    char notify_data[] = "data";
    functions.geturlnotify(&npp, "http://host/", nullptr, notify_data);
    browser.finish_request(&npp, NPRES_NETWORK_ERR);
    EXPECT_EQ(heard, "http://host/ 1 data");
    EXPECT_THAT(browser.requests, IsEmpty());
}

TEST_F(browser_for_tests, Tells_each_element_about_its_own_requests) {
    static std::vector<std::pair<NPP, void*>> heard;
    heard.clear();
    NPPluginFuncs plugin{};
    plugin.urlnotify = [](NPP npp, const char*, NPReason, void* data) {
        heard.emplace_back(npp, data);
    };
    browser.load(plugin);
    NPP_t other{};
    functions.geturlnotify(&npp, "http://host/", nullptr, &npp);
    functions.geturlnotify(&other, "http://host/", nullptr, &other);

    browser.finish_request(&other, NPRES_DONE);
    browser.finish_request(&npp, NPRES_DONE);

    EXPECT_THAT(heard, ElementsAre(std::make_pair(&other, static_cast<void*>(&other)),
                                   std::make_pair(&npp, static_cast<void*>(&npp))));
}

TEST_F(browser_for_tests, Leaves_a_plug_in_alone_that_has_no_function_for_what_happens) {
    browser.load(NPPluginFuncs{});
    functions.geturlnotify(&npp, "http://host/", nullptr, nullptr);
    browser.finish_request(&npp, NPRES_DONE);
    EXPECT_THAT(browser.requests, IsEmpty());
    EXPECT_EQ(browser.stream_to(&npp, "http://host/", "text"), 0u);
    EXPECT_THAT(browser.faults(), IsEmpty());
}

TEST_F(browser_for_tests, Keeps_what_an_instance_says_of_itself) {
    NPP element = browser.open();
    NPRect rect = {1, 2, 3, 4};
    functions.setvalue(element, NPPVpluginWindowBool, nullptr);
    functions.invalidaterect(element, &rect);
    functions.forceredraw(element);
    functions.pushpopupsenabledstate(element, 1);
    EXPECT_EQ(browser.element(element).values.count(NPPVpluginWindowBool), 1u);
    EXPECT_EQ(browser.element(element).invalid_rects.size(), 1u);
    EXPECT_EQ(browser.element(element).forced_redraws, 1);
    EXPECT_THAT(browser.element(element).popups_enabled, ElementsAre(true));

    functions.poppopupsenabledstate(element);
    EXPECT_THAT(browser.complaints(), IsEmpty());
    functions.poppopupsenabledstate(element);
    EXPECT_THAT(browser.complaints(), ElementsAre(HasSubstr("PopPopupsEnabledState")));
    browser.close(element);
}
