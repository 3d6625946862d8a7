// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The objects that an instance gives to the browser and asks it for.

#include "recorded_plugin.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class instance_object : public in_browser_with_plugin {
protected:
    void SetUp() override {
        npp = browser.open();
        instance = instance_of(npp);
    }

    void TearDown() override {
        browser.close(npp);
        in_browser_with_plugin::TearDown();
    }

    NPError ask_for_object(NPP of) {
        return instance->get_value(of, NPPVpluginScriptableNPObject, &given);
    }

    NPP npp = nullptr;
    recorded_instance* instance = nullptr;
    NPObject* const untouched = reinterpret_cast<NPObject*>(0x1000);
    NPObject* given = untouched;
};

}  // namespace

TEST_F(instance_object, Is_the_instance_itself) {
    NPObject* object = browser.scriptable(npp);
    EXPECT_EQ(object, instance->object());
    EXPECT_EQ(object->_class, &vask_script_class);
    EXPECT_TRUE(instance->npobj_allocated);
    browser.drop(object);
}

TEST_F(instance_object, Comes_with_one_reference_more_than_the_browser_has_set) {
    NPObject* object = browser.scriptable(npp);
    EXPECT_EQ(object->referenceCount, 2u);
    EXPECT_EQ(browser.entries_of(ledger_entry::created, object).size(), 1u);
    EXPECT_EQ(browser.entries_of(ledger_entry::retained, object).size(), 1u);
    browser.drop(object);
}

TEST_F(instance_object, Is_created_again_with_every_question) {
    browser.drop(browser.scriptable(npp));
    browser.drop(browser.scriptable(npp));
    EXPECT_EQ(browser.entries_of(ledger_entry::created, instance->object()).size(), 2u);
    EXPECT_EQ(browser.entries_of(ledger_entry::retained, instance->object()).size(), 2u);
}

TEST_F(instance_object, Is_shown_in_the_log) {
    show_everything();
    browser.drop(browser.scriptable(npp));
    EXPECT_EQ(log.lines().front(),
              line("DBG", plugin_object_name,
                   "virtual NPError vask_np_instance::get_value(NPP, NPPVariable, void*): 15 "
                   "(NPPVpluginScriptableNPObject)"));
}

TEST_F(instance_object, Is_refused_without_an_npp) {
    EXPECT_EQ(ask_for_object(nullptr), NPERR_GENERIC_ERROR);
    EXPECT_EQ(given, untouched);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", plugin_object_name, "instance or instace->pdata is NULL")));
    EXPECT_EQ(log.text().back(), '\n');
}

TEST_F(instance_object, Is_refused_for_an_npp_without_an_instance) {
    NPP_t empty{};
    EXPECT_EQ(ask_for_object(&empty), NPERR_GENERIC_ERROR);
    EXPECT_EQ(given, untouched);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", plugin_object_name, "instance or instace->pdata is NULL")));
}

TEST_F(instance_object, Is_refused_when_the_browser_makes_none) {
    NPClass* asked = nullptr;
    browser.on_create_object = [&](NPP, NPClass* its_class) -> NPObject* {
        asked = its_class;
        return nullptr;
    };
    EXPECT_EQ(ask_for_object(npp), NPERR_GENERIC_ERROR);
    EXPECT_EQ(asked, &vask_script_class);
    EXPECT_EQ(given, untouched);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", plugin_object_name, "failed to create scriptable")));
    EXPECT_EQ(log.text().back(), '\n');
}

TEST_F(instance_object, Calls_a_function_of_the_page) {
    std::vector<script_value> heard;
    NPObject* function = browser.make_function([&](const std::vector<script_value>& arguments) {
        heard = arguments;
        return script_value("thanks");
    });
    instance->add_jscb_func("ready");
    NPObject* object = browser.scriptable(npp);
    EXPECT_TRUE(browser.call(object, "attachEvent", {"ready", function}));

    script_arguments arguments{1, "text"};
    NPVariant result;
    EXPECT_TRUE(instance->NPN_InvokeDefault(npp, instance->get_jscb_npobj("ready"),
                                            arguments.data(), arguments.size(), &result));
    EXPECT_EQ(value_of(result), script_value("thanks"));
    EXPECT_THAT(heard, ElementsAre(script_value(1), script_value("text")));

    instance->NPN_ReleaseVariantValue(&result);
    EXPECT_TRUE(browser.call(object, "detachEvent", {"ready", function}));
    browser.drop(object);
}

namespace {

/** What an instance asks for by a script. */
class object_by_script : public instance_object {
protected:
    void answer_with(const script_value& value) {
        browser.on_evaluate = [this, value](const std::string& text, script_value* result) {
            script = text;
            *result = value;
            return true;
        };
    }

    int references_to_window() { return browser.references_of_plugin(browser.window()); }

    std::string script = "(none)";
};

}  // namespace

TEST_F(object_by_script, Is_what_the_script_yields) {
    NPObject* object = browser.make_function();
    answer_with(object);
    EXPECT_EQ(instance->create_npobj("new Object()"), object);
    EXPECT_EQ(script, "new Object()");
    EXPECT_EQ(references_to_window(), 0);
    EXPECT_EQ(browser.references_of_plugin(object), 1);
    instance->NPN_ReleaseObject(object);
}

TEST_F(object_by_script, Is_looked_for_in_the_window) {
    const auto retained = [this] {
        return browser.entries_of(ledger_entry::retained, browser.window()).size();
    };
    answer_with(1);
    instance->create_npobj("1");
    EXPECT_EQ(retained(), 1u);
    EXPECT_EQ(references_to_window(), 0);
}

TEST_F(object_by_script, Is_looked_for_in_the_window_for_its_own_instance) {
    static NPP asked_npp;
    static NPObject* asked_object;
    vask_np_base::NPNFuncs.evaluate = [](NPP of, NPObject* object, NPString*, NPVariant*) {
        asked_npp = of;
        asked_object = object;
        return false;
    };
    instance->create_npobj("1");
    EXPECT_EQ(asked_npp, npp);
    EXPECT_EQ(asked_object, browser.window());
}

TEST_F(object_by_script, May_come_from_an_empty_script) {
    answer_with(script_null());
    EXPECT_EQ(instance->create_npobj(""), nullptr);
    EXPECT_EQ(script, "");
}

TEST_F(object_by_script, Is_none_when_the_script_yields_a_number) {
    answer_with(42);
    EXPECT_EQ(instance->create_npobj("42"), nullptr);
    EXPECT_EQ(references_to_window(), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(object_by_script, Is_none_when_the_script_yields_a_text_which_stays) {
    answer_with("text");
    EXPECT_EQ(instance->create_npobj("'text'"), nullptr);
    EXPECT_EQ(references_to_window(), 0);
    ASSERT_EQ(browser.unbalanced().size(), 1u);
    EXPECT_THAT(browser.unbalanced()[0], testing::HasSubstr("4 bytes from "));
    browser.free_everything();
}

TEST_F(object_by_script, Is_none_when_the_script_fails) {
    EXPECT_EQ(instance->create_npobj("syntax error"), nullptr);
    EXPECT_EQ(references_to_window(), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(object_by_script, Is_none_when_the_script_fails_and_leaves_an_object) {
    vask_np_base::NPNFuncs.evaluate = [](NPP, NPObject* object, NPString*, NPVariant* result) {
        OBJECT_TO_NPVARIANT(object, *result);
        return false;
    };
    EXPECT_EQ(instance->create_npobj("syntax error"), nullptr);
    EXPECT_EQ(references_to_window(), 0);
}

TEST_F(object_by_script, Is_none_without_a_script) {
    EXPECT_EQ(instance->create_npobj(nullptr), nullptr);
    EXPECT_THAT(browser.entries_of(ledger_entry::retained, browser.window()), IsEmpty());
}

TEST_F(object_by_script, Is_none_when_there_is_no_window) {
    browser.on_get_value = [](NPP, NPNVariable, void*) -> NPError { return NPERR_NO_ERROR; };
    answer_with(42);
    EXPECT_EQ(instance->create_npobj("42"), nullptr);
    EXPECT_EQ(script, "(none)");
}

TEST_F(object_by_script, Asks_for_the_window_of_its_own_page) {
    NPP asked_npp = nullptr;
    int asked_variable = 0;
    browser.on_get_value = [&](NPP of, NPNVariable variable, void*) -> NPError {
        asked_npp = of;
        asked_variable = variable;
        return NPERR_GENERIC_ERROR;
    };
    EXPECT_EQ(instance->create_npobj("1"), nullptr);
    EXPECT_EQ(asked_npp, npp);
    EXPECT_EQ(asked_variable, 15);
}

TEST_F(object_by_script, Gives_a_window_back_that_came_with_an_error) {
    answer_with(42);
    browser.on_get_value = [this](NPP, NPNVariable, void* value) -> NPError {
        *static_cast<NPObject**>(value) = vask_np_base::NPNFuncs.retainobject(browser.window());
        return NPERR_GENERIC_ERROR;
    };
    EXPECT_EQ(instance->create_npobj("42"), nullptr);
    EXPECT_EQ(script, "(none)");
    EXPECT_EQ(references_to_window(), 0);
}

TEST_F(object_by_script, Is_not_asked_for_before_the_instance_is_attached) {
    browser.on_get_value = [](NPP, NPNVariable, void*) -> NPError {
        ADD_FAILURE() << "the browser is called";
        return NPERR_GENERIC_ERROR;
    };
    recorded_instance unattached("unattached");
    EXPECT_EQ(unattached.create_npobj("new Object()"), nullptr);
}
