// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// How a script's access to a member finds its handler by name.

#include <stdexcept>
#include <vector>

#include "recorded_plugin.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

constexpr const char* has_method_text =
    "virtual bool vask_script::has_method(NPObject*, NPIdentifier)";
constexpr const char* invoke_text =
    "virtual bool vask_script::invoke(NPObject*, NPIdentifier, const NPVariant*, uint32_t, "
    "NPVariant*)";
constexpr const char* has_property_text =
    "virtual bool vask_script::has_property(NPObject*, NPIdentifier)";
constexpr const char* get_property_text =
    "virtual bool vask_script::get_property(NPObject*, NPIdentifier, NPVariant*)";
constexpr const char* set_property_text =
    "virtual bool vask_script::set_property(NPObject*, NPIdentifier, const NPVariant*)";

/** Has members of every kind, and counts who is called. */
class counter : public vask_script {
public:
    counter() : vask_script("counter") {
        method_map["add"] = static_cast<script_method>(&counter::add);
        method_map["overridden"] = static_cast<script_method>(&counter::to_be_overridden);
        method_map["fail"] = static_cast<script_method>(&counter::fail);
        method_map["throw"] = static_cast<script_method>(&counter::throw_a_number);
        getter_map["sum"] = static_cast<property_getter>(&counter::get_sum);
        getter_map["unreadable"] = static_cast<property_getter>(&counter::cannot_get);
        setter_map["sum"] = static_cast<property_setter>(&counter::set_sum);
        setter_map["start"] = static_cast<property_setter>(&counter::set_sum);
        setter_map["constant"] = static_cast<property_setter>(&counter::cannot_set);
    }

    bool add(const NPVariant* args, uint32_t arg_count, NPVariant* result) {
        for (uint32_t i = 0; i < arg_count; ++i) {
            sum += NPVARIANT_TO_INT32(args[i]);
        }
        INT32_TO_NPVARIANT(sum, *result);
        return true;
    }

    virtual bool to_be_overridden(const NPVariant*, uint32_t, NPVariant*) { return false; }
    bool fail(const NPVariant*, uint32_t, NPVariant*) { return false; }
    bool throw_a_number(const NPVariant*, uint32_t, NPVariant*) { throw 42; }

    bool get_sum(NPVariant* result) {
        INT32_TO_NPVARIANT(sum, *result);
        return true;
    }

    bool set_sum(const NPVariant* value) {
        sum = NPVARIANT_TO_INT32(*value);
        return true;
    }

    bool cannot_get(NPVariant*) { return false; }
    bool cannot_set(const NPVariant*) { return false; }

    using vask_script::getter_map;
    using vask_script::jscb_func_set;
    using vask_script::jscb_map;
    using vask_script::method_map;
    using vask_script::setter_map;

    int sum = 0;
};

class derived_counter : public counter {
public:
    bool to_be_overridden(const NPVariant*, uint32_t, NPVariant*) override { return true; }
};

class script_lookup : public in_browser {
protected:
    bool has_method(const char* name) { return object.has_method(&object, browser.name(name)); }

    bool has_property(const char* name) { return object.has_property(&object, browser.name(name)); }

    bool invoke(const char* name, script_arguments args = {}) {
        return object.invoke(&object, browser.name(name), args.data(), args.size(), &result);
    }

    bool get(const char* name) { return object.get_property(&object, browser.name(name), &result); }

    bool set(const char* name, int number) {
        script_arguments value{number};
        return object.set_property(&object, browser.name(name), value.data());
    }

    void SetUp() override { INT32_TO_NPVARIANT(-1, result); }

    counter object;
    NPVariant result;
};

}  // namespace

TEST_F(script_lookup, Starts_with_the_four_methods_for_callbacks_alone) {
    class bare : public vask_script {
    public:
        bare() : vask_script("bare") {}
        using vask_script::getter_map;
        using vask_script::jscb_func_set;
        using vask_script::jscb_map;
        using vask_script::method_map;
        using vask_script::setter_map;
    } bare;
    EXPECT_THAT(bare.method_map, ElementsAre(Pair("add_callback", &vask_script::add_jscb_request),
                                             Pair("attachEvent", &vask_script::add_jscb_request),
                                             Pair("del_callback", &vask_script::del_jscb_request),
                                             Pair("detachEvent", &vask_script::del_jscb_request)));
    EXPECT_THAT(bare.getter_map, IsEmpty());
    EXPECT_THAT(bare.setter_map, IsEmpty());
    EXPECT_THAT(bare.jscb_func_set, IsEmpty());
    EXPECT_THAT(bare.jscb_map, IsEmpty());
}

TEST_F(script_lookup, Shows_the_life_of_an_object) {
    show_everything();
    { vask_script script("script"); }
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "script",
                                 "vask_script::vask_script(const char*)(const "
                                 "char*)"),
                            line("DBG", "script", "virtual vask_script::~vask_script()"),
                            line("DBG", "script", "vask_np_base::~vask_np_base"),
                            line("DBG", "script", "virtual vask_object::~vask_object()")));
}

TEST_F(script_lookup, Knows_its_methods) {
    EXPECT_TRUE(has_method("add"));
    EXPECT_TRUE(has_method("attachEvent"));
}

TEST_F(script_lookup, Takes_neither_properties_nor_other_names_for_methods) {
    EXPECT_FALSE(has_method("sum"));
    EXPECT_FALSE(has_method("ad"));
    EXPECT_FALSE(has_method("Add"));
    EXPECT_FALSE(has_method(""));
}

TEST_F(script_lookup, Calls_a_method_with_its_arguments) {
    EXPECT_TRUE(invoke("add", {20, 22}));
    EXPECT_EQ(object.sum, 42);
    EXPECT_EQ(value_of(result), script_value(42));
}

TEST_F(script_lookup, Calls_what_a_derived_class_has_overridden) {
    derived_counter derived;
    EXPECT_TRUE(derived.invoke(&derived, browser.name("overridden"), nullptr, 0, &result));
}

TEST_F(script_lookup, Passes_on_the_failure_of_a_method) {
    EXPECT_FALSE(invoke("fail"));
}

TEST_F(script_lookup, Fails_a_call_of_an_unknown_method_and_leaves_the_result_alone) {
    EXPECT_FALSE(invoke("sum"));
    EXPECT_EQ(value_of(result), script_value(-1));
}

TEST_F(script_lookup, Leaves_the_result_of_a_silent_method_alone) {
    EXPECT_TRUE(invoke("attachEvent"));
    EXPECT_EQ(value_of(result), script_value(-1));
}

TEST_F(script_lookup, Lets_through_what_a_method_throws) {
    EXPECT_THROW(invoke("throw"), int);
}

TEST_F(script_lookup, Takes_a_later_registration_of_the_same_name) {
    object.method_map["attachEvent"] = static_cast<vask_script::script_method>(&counter::add);
    EXPECT_TRUE(invoke("attachEvent", {1}));
    EXPECT_EQ(object.sum, 1);
}

TEST_F(script_lookup, Knows_a_property_that_can_be_read) {
    EXPECT_TRUE(has_property("unreadable"));
}

TEST_F(script_lookup, Knows_a_property_that_can_only_be_written) {
    EXPECT_TRUE(has_property("start"));
}

TEST_F(script_lookup, Takes_neither_methods_nor_other_names_for_properties) {
    EXPECT_FALSE(has_property("add"));
    EXPECT_FALSE(has_property("nothing"));
}

TEST_F(script_lookup, Reads_a_property) {
    object.sum = 42;
    EXPECT_TRUE(get("sum"));
    EXPECT_EQ(value_of(result), script_value(42));
}

TEST_F(script_lookup, Passes_on_the_failure_of_a_getter) {
    EXPECT_FALSE(get("unreadable"));
}

TEST_F(script_lookup, Cannot_read_a_property_that_can_only_be_written) {
    EXPECT_FALSE(get("start"));
    EXPECT_EQ(value_of(result), script_value(-1));
}

TEST_F(script_lookup, Writes_a_property) {
    EXPECT_TRUE(set("start", 42));
    EXPECT_EQ(object.sum, 42);
}

TEST_F(script_lookup, Passes_on_the_failure_of_a_setter) {
    EXPECT_FALSE(set("constant", 1));
}

TEST_F(script_lookup, Cannot_write_a_property_that_can_only_be_read) {
    EXPECT_FALSE(set("unreadable", 1));
}

TEST_F(script_lookup, Does_not_invoke_the_object_itself) {
    show_everything();
    EXPECT_FALSE(object.invoke_default(&object, nullptr, 0, &result));
    EXPECT_EQ(value_of(result), script_value(-1));
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("DBG", "counter",
                         "virtual bool vask_script::invoke_default(NPObject*, const NPVariant*, "
                         "uint32_t, NPVariant*)")));
}

TEST_F(script_lookup, Does_not_remove_a_property) {
    show_everything();
    EXPECT_FALSE(object.remove_property(&object, browser.name("sum")));
    EXPECT_TRUE(has_property("sum"));
    EXPECT_EQ(log.lines().front(),
              line("DBG", "counter",
                   "virtual bool vask_script::remove_property(NPObject*, NPIdentifier)"));
}

TEST_F(script_lookup, Does_not_enumerate) {
    show_everything();
    NPIdentifier* names = nullptr;
    uint32_t count = 42;
    EXPECT_FALSE(object.enumerate(&object, &names, &count));
    EXPECT_EQ(names, nullptr);
    EXPECT_EQ(count, 42u);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "counter",
                                 "virtual bool vask_script::enumerate(NPObject*, void***, "
                                 "uint32_t*)")));
}

TEST_F(script_lookup, Does_nothing_when_it_is_invalidated) {
    show_everything();
    object.invalidate(&object);
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "counter",
                                              "virtual void vask_script::invalidate(NPObject*)")));
}

TEST_F(script_lookup, Shows_every_name_that_is_looked_up) {
    show_everything();
    has_method("a");
    invoke("b");
    has_property("c");
    get("d");
    set("e", 1);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "counter", std::string(has_method_text) + ": a"),
                            line("DBG", "counter", std::string(invoke_text) + ": b"),
                            line("DBG", "counter", std::string(has_property_text) + ": c"),
                            line("DBG", "counter", std::string(get_property_text) + ": d"),
                            line("DBG", "counter", std::string(set_property_text) + ": e")));
}

namespace {

/** A member that is a number, which has no name. */
class numbered_member : public script_lookup {
protected:
    void SetUp() override {
        script_lookup::SetUp();
        show_everything();
    }

    void expect_lines_of_both(const char* signature, const char* operation) {
        const log_line lookup = line("DBG", "counter", std::string(signature) + ": (null)");
        EXPECT_THAT(log.lines(),
                    ElementsAre(lookup, lookup,
                                line("ERR", "vask",
                                     std::string(operation) +
                                         ": An exception was thrown: a member that is a number has "
                                         "no name")));
    }

    NPIdentifier zero = browser.number(0);
    script_arguments argument{1};
};

}  // namespace

TEST_F(numbered_member, Is_no_question_for_has_method) {
    EXPECT_THROW(object.has_method(&object, zero), std::logic_error);
    EXPECT_FALSE(vask_has_method(&object, zero));
    expect_lines_of_both(has_method_text, "vask_script::has_method()");
}

TEST_F(numbered_member, Cannot_be_invoked) {
    EXPECT_THROW(object.invoke(&object, zero, nullptr, 0, &result), std::logic_error);
    EXPECT_FALSE(vask_invoke(&object, zero, nullptr, 0, &result));
    expect_lines_of_both(invoke_text, "vask_script::invoke()");
}

TEST_F(numbered_member, Is_no_question_for_has_property) {
    EXPECT_THROW(object.has_property(&object, zero), std::logic_error);
    EXPECT_FALSE(vask_has_property(&object, zero));
    expect_lines_of_both(has_property_text, "vask_script::has_property()");
}

TEST_F(numbered_member, Cannot_be_read) {
    EXPECT_THROW(object.get_property(&object, zero, &result), std::logic_error);
    EXPECT_FALSE(vask_get_property(&object, zero, &result));
    expect_lines_of_both(get_property_text, "vask_script::get_property()");
}

TEST_F(numbered_member, Cannot_be_written) {
    EXPECT_THROW(object.set_property(&object, zero, argument.data()), std::logic_error);
    EXPECT_FALSE(vask_set_property(&object, zero, argument.data()));
    expect_lines_of_both(set_property_text, "vask_script::set_property()");
}

namespace {

/** The scriptable object is not where it begins. */
class second_base {
public:
    virtual ~second_base() = default;
    int before = 1;
};

class late_counter : public second_base, public vask_script {
public:
    late_counter() : vask_script("late") {
        method_map["sum"] = static_cast<script_method>(&late_counter::call);
        getter_map["sum"] = static_cast<property_getter>(&late_counter::get);
        setter_map["sum"] = static_cast<property_setter>(&late_counter::set);
    }

    bool call(const NPVariant*, uint32_t, NPVariant* result) { return get(result); }

    bool get(NPVariant* result) {
        INT32_TO_NPVARIANT(before + sum, *result);
        return true;
    }

    bool set(const NPVariant* value) {
        sum = NPVARIANT_TO_INT32(*value);
        return true;
    }

    int sum = 0;
};

}  // namespace

TEST_F(script_lookup, Finds_the_handlers_of_a_class_that_begins_with_another_base) {
    late_counter late;
    script_arguments value{41};

    EXPECT_TRUE(vask_set_property(&late, browser.name("sum"), value.data()));
    EXPECT_TRUE(vask_get_property(&late, browser.name("sum"), &result));
    EXPECT_EQ(value_of(result), script_value(42));
    EXPECT_TRUE(vask_invoke(&late, browser.name("sum"), nullptr, 0, &result));
    EXPECT_EQ(value_of(result), script_value(42));
}
