// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A page registers functions and removes them.

#include <memory>
#include <string>
#include <vector>

#include "recorded_plugin.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

log_line error(const std::string& text) {
    return line("ERR", plugin_object_name, text);
}

class script_callbacks : public in_browser {
protected:
    void SetUp() override {
        instance->add_jscb_func("x");
        instance->add_jscb_func("y");
    }

    void TearDown() override {
        instance.reset();
        in_browser::TearDown();
    }

    /** A method that always succeeds, and writes no result. */
    void call(const char* method, const std::vector<script_value>& values) {
        script_arguments args(values);
        NPVariant result;
        INT32_TO_NPVARIANT(-1, result);
        EXPECT_TRUE(instance->invoke(instance->object(), browser.name(method), args.data(),
                                     args.size(), &result));
        EXPECT_EQ(value_of(result), script_value(-1));
    }

    void expect_refused(const char* method, const std::vector<script_value>& values,
                        const std::string& reason) {
        const auto before = instance->jscb_map;
        log.clear();
        call(method, values);
        EXPECT_THAT(log.lines(), ElementsAre(error(reason)));
        EXPECT_EQ(log.text().back(), '\n');
        EXPECT_EQ(instance->jscb_map, before);
        EXPECT_EQ(browser.references_of_plugin(function), 0);
    }

    std::unique_ptr<recorded_instance> instance{new recorded_instance(plugin_object_name)};
    NPObject* function = browser.make_function();
    NPObject* other_function = browser.make_function();
};

/** The same for both names of a method. */
class adding_callbacks : public script_callbacks,
                         public testing::WithParamInterface<const char*> {};
class deleting_callbacks : public script_callbacks,
                           public testing::WithParamInterface<const char*> {};
class callback_requests : public script_callbacks,
                          public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(by, adding_callbacks, testing::Values("add_callback", "attachEvent"));
INSTANTIATE_TEST_SUITE_P(by, deleting_callbacks, testing::Values("del_callback", "detachEvent"));
INSTANTIATE_TEST_SUITE_P(by, callback_requests,
                         testing::Values("add_callback", "attachEvent", "del_callback",
                                         "detachEvent"));

}  // namespace

TEST_P(adding_callbacks, Keeps_the_function_with_one_reference) {
    call(GetParam(), {"x", function});
    EXPECT_EQ(instance->get_jscb_npobj("x"), function);
    EXPECT_EQ(browser.references_of_plugin(function), 1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(adding_callbacks, Keeps_functions_of_several_names_apart) {
    call(GetParam(), {"x", function});
    call(GetParam(), {"y", other_function});
    EXPECT_THAT(instance->jscb_map, ElementsAre(Pair("x", function), Pair("y", other_function)));
}

TEST_P(adding_callbacks, Takes_one_function_under_two_names_with_two_references) {
    call(GetParam(), {"x", function});
    call(GetParam(), {"y", function});
    EXPECT_EQ(browser.references_of_plugin(function), 2);
}

TEST_P(adding_callbacks, Ignores_further_arguments) {
    call(GetParam(), {"x", function, 1, "more"});
    EXPECT_EQ(instance->get_jscb_npobj("x"), function);
}

TEST_P(adding_callbacks, Replaces_the_function_and_keeps_the_reference_of_the_first_one) {
    call(GetParam(), {"x", function});
    call(GetParam(), {"x", other_function});
    EXPECT_THAT(instance->jscb_map, ElementsAre(Pair("x", other_function)));
    EXPECT_EQ(browser.references_of_plugin(function), 1);
    EXPECT_EQ(browser.references_of_plugin(other_function), 1);
    vask_np_base::NPNFuncs.releaseobject(function);
}

TEST_P(deleting_callbacks, Releases_the_function) {
    call("add_callback", {"x", function});
    call(GetParam(), {"x", function});
    EXPECT_EQ(instance->get_jscb_npobj("x"), nullptr);
    EXPECT_THAT(instance->jscb_map, IsEmpty());
    EXPECT_EQ(browser.references_of_plugin(function), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_P(deleting_callbacks, Leaves_other_names_alone) {
    call("add_callback", {"x", function});
    call("add_callback", {"y", other_function});
    call(GetParam(), {"x", function});
    EXPECT_THAT(instance->jscb_map, ElementsAre(Pair("y", other_function)));
}

TEST_P(deleting_callbacks, Releases_the_function_that_is_given_and_forgets_the_registered_one) {
    call("add_callback", {"x", function});
    vask_np_base::NPNFuncs.retainobject(other_function);
    call(GetParam(), {"x", other_function});
    EXPECT_THAT(instance->jscb_map, IsEmpty());
    EXPECT_EQ(browser.references_of_plugin(function), 1);
    EXPECT_EQ(browser.references_of_plugin(other_function), 0);
    vask_np_base::NPNFuncs.releaseobject(function);
}

TEST_P(deleting_callbacks, Refuses_a_name_without_function) {
    expect_refused(GetParam(), {"x", function},
                   "Requested callback function 'x' is not registered");
}

TEST_P(deleting_callbacks, Refuses_a_second_time) {
    call("add_callback", {"x", function});
    call(GetParam(), {"x", function});
    expect_refused(GetParam(), {"x", function},
                   "Requested callback function 'x' is not registered");
}

TEST_P(callback_requests, Need_two_arguments) {
    expect_refused(GetParam(), {}, "The number of argc must be greater than one.");
    expect_refused(GetParam(), {"x"}, "The number of argc must be greater than one.");
}

TEST_P(callback_requests, Need_a_text_as_name) {
    expect_refused(GetParam(), {1, function},
                   "The first argument must be string, but NPVariantType_Int32 is given.");
    expect_refused(GetParam(), {std::monostate(), function},
                   "The first argument must be string, but NPVarintType_Void is given.");
}

TEST_P(callback_requests, Need_an_object_as_function) {
    expect_refused(GetParam(), {"x", 2},
                   "The second argument must be object, but NPVariantType_Int32 is given.");
    expect_refused(GetParam(), {"x", script_null()},
                   "The second argument must be object, but NPVariantType_Null is given.");
}

TEST_P(callback_requests, Look_at_the_name_before_the_function) {
    expect_refused(GetParam(), {1, 2},
                   "The first argument must be string, but NPVariantType_Int32 is given.");
}

TEST_P(callback_requests, Need_a_name_that_is_allowed) {
    expect_refused(GetParam(), {"z", function}, "Requested callback function 'z' is not supported");
}

TEST_P(callback_requests, Look_at_the_whole_name) {
    expect_refused(GetParam(), {std::string("x\0z", 3), function},
                   "Requested callback function 'x' is not supported");
    expect_refused(GetParam(), {"xx", function},
                   "Requested callback function 'xx' is not supported");
}

TEST_F(script_callbacks, Allow_a_name_once) {
    instance->add_jscb_func("x");
    EXPECT_THAT(instance->jscb_func_set, ElementsAre("x", "y"));
}

TEST_F(script_callbacks, Have_no_function_at_first) {
    EXPECT_EQ(instance->get_jscb_npobj("x"), nullptr);
    EXPECT_EQ(instance->get_jscb_npobj("unknown"), nullptr);
    EXPECT_THAT(instance->jscb_map, IsEmpty());
}

TEST_F(script_callbacks, Are_looked_up_without_a_reference) {
    call("add_callback", {"x", function});
    EXPECT_EQ(instance->get_jscb_npobj("x"), function);
    EXPECT_EQ(browser.references_of_plugin(function), 1);
}

TEST_F(script_callbacks, Are_taken_where_they_were_added) {
    call("add_callback", {"x", function});
    const auto taken = browser.entries_of(ledger_entry::retained, function);
    ASSERT_EQ(taken.size(), 1u);
    EXPECT_EQ(taken[0].place.function(), "vask_script::add_jscb_request");
}

TEST_F(script_callbacks, Are_released_once_each_in_the_order_of_their_names) {
    call("add_callback", {"y", function});
    call("add_callback", {"x", other_function});
    instance.reset();
    std::vector<const void*> released;
    for (const ledger_entry& entry : browser.ledger()) {
        if (entry.action == ledger_entry::released) {
            released.push_back(entry.subject);
        }
    }
    EXPECT_THAT(released, ElementsAre(other_function, function));
    EXPECT_EQ(browser.references_of_plugin(function), 0);
    EXPECT_EQ(browser.references_of_plugin(other_function), 0);
}

TEST_F(script_callbacks, Are_released_after_the_line_that_shows_the_end) {
    call("add_callback", {"x", function});
    static NPN_ReleaseObjectProcPtr release;
    release = vask_np_base::NPNFuncs.releaseobject;
    vask_np_base::NPNFuncs.releaseobject = [](NPObject* object) {
        vask_object::vask_p("browser", VASK_P_DBG, "released\n");
        release(object);
    };
    show_everything();
    instance.reset();
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            line("DBG", plugin_object_name, "virtual vask_np_instance::~vask_np_instance()"),
            line("DBG", plugin_object_name, "virtual vask_script::~vask_script()"),
            line("DBG", "browser", "released"),
            line("DBG", plugin_object_name, "vask_np_base::~vask_np_base"),
            line("DBG", plugin_object_name, "virtual vask_object::~vask_object()")));
}

TEST_F(script_callbacks, Stay_in_the_map_when_they_are_released_together) {
    call("add_callback", {"x", function});
    instance->delete_jscb_map();
    EXPECT_EQ(browser.references_of_plugin(function), 0);
    EXPECT_THAT(instance->jscb_map, ElementsAre(Pair("x", function)));
    instance->jscb_map.clear();
}

TEST_F(script_callbacks, Outlive_the_page_that_drops_them) {
    call("add_callback", {"x", function});
    browser.drop(function);
    EXPECT_TRUE(browser.is_alive(function));
    instance.reset();
    EXPECT_FALSE(browser.is_alive(function));
}

TEST_F(script_callbacks, Are_taken_apart_into_name_and_function) {
    script_arguments args{"x", function};
    std::string name;
    NPObject* given = nullptr;
    EXPECT_TRUE(instance->chk_jscb_request_param(args.data(), args.size(), name, given));
    EXPECT_EQ(name, "x");
    EXPECT_EQ(given, function);
    EXPECT_EQ(browser.references_of_plugin(function), 0);
}

TEST_F(script_callbacks, Give_no_function_when_the_name_is_not_allowed) {
    script_arguments args{"z", function};
    std::string name;
    NPObject* given = other_function;
    EXPECT_FALSE(instance->chk_jscb_request_param(args.data(), args.size(), name, given));
    EXPECT_EQ(name, "z");
    EXPECT_EQ(given, other_function);
}
