// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The record and the functions through which a browser reaches an object.

#include <cstdio>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "recorded_plugin.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(!std::is_polymorphic<NPObject>::value, "it lies behind the virtual table");

namespace {

/** Remembers which operation was called with what. */
class listening_script : public vask_script {
public:
    listening_script() : vask_script("listening") {}

    struct call {
        std::string operation;
        NPObject* object = nullptr;
        const void* name = nullptr;
        const void* arguments = nullptr;
        uint32_t count = 0;
        const void* result = nullptr;

        bool operator==(const call& other) const {
            return operation == other.operation && object == other.object && name == other.name &&
                   arguments == other.arguments && count == other.count && result == other.result;
        }
    };

    void invalidate(NPObject* object) override { last = {"invalidate", object}; }

    bool has_method(NPObject* object, NPIdentifier name) override {
        last = {"has_method", object, name};
        return answer;
    }

    bool invoke(NPObject* object, NPIdentifier name, const NPVariant* args, uint32_t count,
                NPVariant* result) override {
        last = {"invoke", object, name, args, count, result};
        return answer;
    }

    bool invoke_default(NPObject* object, const NPVariant* args, uint32_t count,
                        NPVariant* result) override {
        last = {"invoke_default", object, nullptr, args, count, result};
        return answer;
    }

    bool has_property(NPObject* object, NPIdentifier name) override {
        last = {"has_property", object, name};
        return answer;
    }

    bool get_property(NPObject* object, NPIdentifier name, NPVariant* result) override {
        last = {"get_property", object, name, nullptr, 0, result};
        return answer;
    }

    bool set_property(NPObject* object, NPIdentifier name, const NPVariant* value) override {
        last = {"set_property", object, name, value};
        return answer;
    }

    bool remove_property(NPObject* object, NPIdentifier name) override {
        last = {"remove_property", object, name};
        return answer;
    }

    bool enumerate(NPObject* object, NPIdentifier** names, uint32_t* count) override {
        last = {"enumerate", object, names, nullptr, 0, count};
        return answer;
    }

    call last;
    bool answer = true;
};

class script_class : public testing::TestWithParam<bool> {
protected:
    script_class() { script.answer = GetParam(); }

    NPObject* object() { return &script; }

    const NPClass& record = vask_script_class;
    listening_script script;
    NPIdentifier name = reinterpret_cast<NPIdentifier>(0x1000);
    NPVariant arguments[2];
    NPVariant result;
};

INSTANTIATE_TEST_SUITE_P(with_either_answer, script_class, testing::Bool());

}  // namespace

TEST(script_class_record, Is_of_the_version_that_can_enumerate) {
    EXPECT_EQ(vask_script_class.structVersion, 2u);
    EXPECT_TRUE(NP_CLASS_STRUCT_VERSION_HAS_ENUM(&vask_script_class));
    EXPECT_EQ(vask_script_class.construct, nullptr);
}

TEST(script_class_record, Has_the_librarys_functions) {
    EXPECT_EQ(vask_script_class.allocate, &_vask_allocate);
    EXPECT_EQ(vask_script_class.deallocate, &_vask_deallocate);
    EXPECT_EQ(vask_script_class.invalidate, &vask_invalidate);
    EXPECT_EQ(vask_script_class.hasMethod, &vask_has_method);
    EXPECT_EQ(vask_script_class.invoke, &vask_invoke);
    EXPECT_EQ(vask_script_class.invokeDefault, &vask_invoke_default);
    EXPECT_EQ(vask_script_class.hasProperty, &vask_has_property);
    EXPECT_EQ(vask_script_class.getProperty, &vask_get_property);
    EXPECT_EQ(vask_script_class.setProperty, &vask_set_property);
    EXPECT_EQ(vask_script_class.removeProperty, &vask_remove_property);
    EXPECT_EQ(vask_script_class.enumerate, &vask_enumerate);
}

TEST(script_class_record, Is_reached_by_another_address_than_the_object) {
    listening_script script;
    NPObject* object = &script;
    EXPECT_NE(static_cast<void*>(object), static_cast<void*>(&script));
    EXPECT_EQ(static_cast<vask_script*>(object), &script);
}

TEST_P(script_class, Forwards_invalidate) {
    record.invalidate(object());
    EXPECT_TRUE((script.last == listening_script::call{"invalidate", object()}));
}

TEST_P(script_class, Forwards_hasMethod) {
    EXPECT_EQ(record.hasMethod(object(), name), GetParam());
    EXPECT_TRUE((script.last == listening_script::call{"has_method", object(), name}));
}

TEST_P(script_class, Forwards_invoke) {
    EXPECT_EQ(record.invoke(object(), name, arguments, 2, &result), GetParam());
    EXPECT_TRUE(
        (script.last == listening_script::call{"invoke", object(), name, arguments, 2, &result}));
}

TEST_P(script_class, Forwards_invokeDefault) {
    EXPECT_EQ(record.invokeDefault(object(), arguments, 2, &result), GetParam());
    EXPECT_TRUE((script.last == listening_script::call{"invoke_default", object(), nullptr,
                                                       arguments, 2, &result}));
}

TEST_P(script_class, Forwards_hasProperty) {
    EXPECT_EQ(record.hasProperty(object(), name), GetParam());
    EXPECT_TRUE((script.last == listening_script::call{"has_property", object(), name}));
}

TEST_P(script_class, Forwards_getProperty) {
    EXPECT_EQ(record.getProperty(object(), name, &result), GetParam());
    EXPECT_TRUE((script.last ==
                 listening_script::call{"get_property", object(), name, nullptr, 0, &result}));
}

TEST_P(script_class, Forwards_setProperty) {
    EXPECT_EQ(record.setProperty(object(), name, arguments), GetParam());
    EXPECT_TRUE((script.last == listening_script::call{"set_property", object(), name, arguments}));
}

TEST_P(script_class, Forwards_removeProperty) {
    EXPECT_EQ(record.removeProperty(object(), name), GetParam());
    EXPECT_TRUE((script.last == listening_script::call{"remove_property", object(), name}));
}

TEST_P(script_class, Forwards_enumerate) {
    NPIdentifier* names = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(record.enumerate(object(), &names, &count), GetParam());
    EXPECT_TRUE(
        (script.last == listening_script::call{"enumerate", object(), &names, nullptr, 0, &count}));
}

namespace {

/** Every operation throws. */
class throwing_script : public vask_script {
public:
    throwing_script() : vask_script("throwing") {}

    void invalidate(NPObject*) override { fail(); }
    bool has_method(NPObject*, NPIdentifier) override { return fail(); }
    bool invoke(NPObject*, NPIdentifier, const NPVariant*, uint32_t, NPVariant*) override {
        return fail();
    }
    bool invoke_default(NPObject*, const NPVariant*, uint32_t, NPVariant*) override {
        return fail();
    }
    bool has_property(NPObject*, NPIdentifier) override { return fail(); }
    bool get_property(NPObject*, NPIdentifier, NPVariant*) override { return fail(); }
    bool set_property(NPObject*, NPIdentifier, const NPVariant*) override { return fail(); }
    bool remove_property(NPObject*, NPIdentifier) override { return fail(); }
    bool enumerate(NPObject*, NPIdentifier**, uint32_t*) override { return fail(); }

private:
    static bool fail() { throw std::runtime_error("out of order"); }
};

class throwing_script_class : public in_browser {
protected:
    void expect_line(const char* operation) {
        EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "vask",
                                                  std::string(operation) +
                                                      ": An exception was thrown: out of order")));
    }

    const NPClass& record = vask_script_class;
    throwing_script script;
    NPObject* object = &script;
    NPIdentifier name = browser.name("name");
    NPVariant result;
};

}  // namespace

TEST_F(throwing_script_class, Survives_invalidate) {
    record.invalidate(object);
    expect_line("vask_script::invalidate()");
}

TEST_F(throwing_script_class, Fails_hasMethod) {
    EXPECT_FALSE(record.hasMethod(object, name));
    expect_line("vask_script::has_method()");
}

TEST_F(throwing_script_class, Fails_invoke) {
    EXPECT_FALSE(record.invoke(object, name, nullptr, 0, &result));
    expect_line("vask_script::invoke()");
}

TEST_F(throwing_script_class, Fails_invokeDefault) {
    EXPECT_FALSE(record.invokeDefault(object, nullptr, 0, &result));
    expect_line("vask_script::invoke_default()");
}

TEST_F(throwing_script_class, Fails_hasProperty) {
    EXPECT_FALSE(record.hasProperty(object, name));
    expect_line("vask_script::has_property()");
}

TEST_F(throwing_script_class, Fails_getProperty) {
    EXPECT_FALSE(record.getProperty(object, name, &result));
    expect_line("vask_script::get_property()");
}

TEST_F(throwing_script_class, Fails_setProperty) {
    EXPECT_FALSE(record.setProperty(object, name, nullptr));
    expect_line("vask_script::set_property()");
}

TEST_F(throwing_script_class, Fails_removeProperty) {
    EXPECT_FALSE(record.removeProperty(object, name));
    expect_line("vask_script::remove_property()");
}

TEST_F(throwing_script_class, Fails_enumerate) {
    NPIdentifier* names = nullptr;
    uint32_t count = 0;
    EXPECT_FALSE(record.enumerate(object, &names, &count));
    expect_line("vask_script::enumerate()");
}

namespace {

/** Has a method that ends its object and throws then, and one that answers. */
class self_ending_instance : public vask_np_instance {
public:
    self_ending_instance() : vask_np_instance("self-ending") {
        method_map["end"] = static_cast<script_method>(&self_ending_instance::end);
        method_map["fail"] = static_cast<script_method>(&self_ending_instance::fail);
        method_map["succeed"] = static_cast<script_method>(&self_ending_instance::succeed);
    }

    bool end(const NPVariant*, uint32_t, NPVariant*) {
        delete this;
        throw std::runtime_error("gone");
    }

    bool fail(const NPVariant*, uint32_t, NPVariant*) { throw 42; }
    bool succeed(const NPVariant*, uint32_t, NPVariant*) { return true; }
};

}  // namespace

TEST_F(throwing_script_class, Fails_a_method_that_has_deleted_its_object_before_it_throws) {
    object = new self_ending_instance;
    EXPECT_FALSE(record.invoke(object, browser.name("end"), nullptr, 0, &result));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "vask",
                                              "vask_script::invoke(): An exception was thrown: "
                                              "gone")));
}

TEST_F(throwing_script_class, Serves_the_next_call_after_one_that_has_thrown) {
    self_ending_instance instance;
    EXPECT_FALSE(record.invoke(&instance, browser.name("fail"), nullptr, 0, &result));
    EXPECT_TRUE(record.invoke(&instance, browser.name("succeed"), nullptr, 0, &result));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "vask",
                                              "vask_script::invoke(): An exception was thrown: "
                                              "unknown")));
}

namespace {

/** The entries that the browser calls when it makes and ends the object. */
class script_object_life : public in_browser {
protected:
    void SetUp() override {
        instance = new recorded_instance("instance");
        npp.pdata = static_cast<vask_np_instance*>(instance);
        show_everything();
    }

    static std::string address(const void* pointer) {
        char text[32];
        std::snprintf(text, sizeof text, "%p", pointer);
        return text;
    }

    recorded_instance* instance = nullptr;
    NPP_t npp{};
};

}  // namespace

TEST_F(script_object_life, Begins_with_the_object_of_the_instance) {
    NPObject* object = _vask_allocate(&npp, &vask_script_class);
    EXPECT_EQ(object, instance->object());
    EXPECT_TRUE(instance->npobj_allocated);
    EXPECT_FALSE(instance->npobj_deallocated);
    EXPECT_FALSE(instance->destroy_pending);
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "vask",
                                              "NPObject* _vask_allocate(NPP, NPClass*): aNPP: " +
                                                  address(&npp))));
    delete instance;
}

TEST_F(script_object_life, Does_not_end_the_instance_while_that_is_needed) {
    _vask_deallocate(instance->object());
    EXPECT_EQ(recorded_instance::alive, 1);
    EXPECT_TRUE(instance->npobj_deallocated);
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "vask",
                                              "void _vask_deallocate(NPObject*): aObject: " +
                                                  address(instance->object()))));
    delete instance;
}

TEST_F(script_object_life, Ends_the_instance_whose_destruction_is_pending) {
    instance->destroy_pending = true;
    _vask_deallocate(instance->object());
    EXPECT_EQ(recorded_instance::alive, 0);
}
