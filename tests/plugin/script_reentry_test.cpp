// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The browser calls the plug-in again, or deletes its object, inside a call of that object.

#include <memory>
#include <stdexcept>
#include <string>

#include "recorded_plugin.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

/** An element whose plug-in takes functions named "x", "y" and "z". */
class script_reentry : public in_browser_with_plugin {
protected:
    void SetUp() override {
        real_release = vask_np_base::NPNFuncs.releaseobject;
        vask_np_base::NPNFuncs.releaseobject = [](NPObject* released) {
            real_release(released);
            if (on_release) {
                on_release(released);
            }
        };
        npp = browser.open();
        instance = instance_of(npp);
        object = instance->object();
        for (const char* name : {"x", "y", "z"}) {
            instance->add_jscb_func(name);
        }
        ASSERT_EQ(browser.scriptable(npp), object);
    }

    void TearDown() override {
        on_release = nullptr;
        in_browser_with_plugin::TearDown();
    }

    bool add(const char* name, NPObject* function) {
        return browser.call(object, "add_callback", {name, function});
    }

    bool remove(const char* name, NPObject* function) {
        return browser.call(object, "del_callback", {name, function});
    }

    /** The page leaves, and its script lets go of the object. */
    void end_instance() {
        browser.close(npp);
        browser.drop(object);
    }

    bool is_deleted() const { return recorded_instance::alive == 0; }

    /** The plug-in's; -1 when it has taken the page's as well. */
    int references_to(NPObject* function) {
        return browser.is_alive(function) ? browser.references_of_plugin(function) : -1;
    }

    static NPN_ReleaseObjectProcPtr real_release;
    static std::function<void(NPObject*)> on_release;

    NPP npp = nullptr;
    recorded_instance* instance = nullptr;
    NPObject* object = nullptr;
    NPObject* first = browser.make_function();
    NPObject* second = browser.make_function();
    NPObject* third = browser.make_function();
};

NPN_ReleaseObjectProcPtr script_reentry::real_release;
std::function<void(NPObject*)> script_reentry::on_release;

}  // namespace

TEST_F(script_reentry, A_page_may_remove_the_last_reference_to_the_object_in_place_of_a_function) {
    add("x", first);
    browser.close(npp);

    EXPECT_TRUE(remove("x", object));

    EXPECT_TRUE(is_deleted());
    EXPECT_EQ(references_to(first), 1);
    vask_np_base::NPNFuncs.releaseobject(first);
}

TEST_F(script_reentry, A_page_may_register_and_remove_the_object_itself) {
    add("x", object);
    browser.close(npp);
    browser.drop(object);
    EXPECT_FALSE(is_deleted());

    EXPECT_TRUE(remove("x", object));

    EXPECT_TRUE(is_deleted());
}

TEST_F(script_reentry, An_object_that_is_torn_down_does_not_release_itself) {
    add("x", object);
    add("y", first);
    browser.close(npp);

    browser.tear_down(object);

    EXPECT_TRUE(is_deleted());
    EXPECT_EQ(references_to(first), 0);
}

TEST_F(script_reentry, Functions_that_were_released_together_are_not_released_again_at_the_end) {
    add("x", first);

    instance->delete_jscb_map();
    instance->delete_jscb_map();
    end_instance();

    EXPECT_EQ(references_to(first), 0);
}

TEST_F(script_reentry, Functions_that_were_released_together_are_not_released_again_by_the_page) {
    add("x", first);
    instance->delete_jscb_map();

    EXPECT_TRUE(remove("x", first));

    EXPECT_EQ(references_to(first), 0);
    EXPECT_THAT(instance->jscb_map, IsEmpty());
    end_instance();
}

TEST_F(script_reentry, A_function_that_comes_again_after_the_release_is_released_at_the_end) {
    add("x", first);
    instance->delete_jscb_map();
    add("x", first);
    EXPECT_EQ(references_to(first), 1);

    end_instance();

    EXPECT_EQ(references_to(first), 0);
}

TEST_F(script_reentry, A_function_that_a_product_has_stored_by_itself_is_released_too) {
    add("x", first);
    instance->delete_jscb_map();
    instance->jscb_map["x"] = vask_np_base::NPNFuncs.retainobject(second);

    end_instance();

    EXPECT_EQ(references_to(first), 0);
    EXPECT_EQ(references_to(second), 0);
}

TEST_F(script_reentry, A_release_of_all_functions_may_remove_those_that_follow) {
    add("x", first);
    add("y", second);
    on_release = [this](NPObject* released) {
        if (released == first) {
            EXPECT_TRUE(remove("y", second));
        }
    };

    instance->delete_jscb_map();

    EXPECT_EQ(references_to(first), 0);
    EXPECT_EQ(references_to(second), 0);
    EXPECT_THAT(instance->jscb_map, ElementsAre(Pair("x", first)));
    end_instance();
}

TEST_F(script_reentry, A_release_of_all_functions_may_remove_the_one_that_is_released) {
    add("x", first);
    add("y", second);
    on_release = [this](NPObject* released) {
        if (released == first) {
            EXPECT_TRUE(remove("x", first));
        }
    };

    instance->delete_jscb_map();

    EXPECT_EQ(references_to(first), 0);
    EXPECT_EQ(references_to(second), 0);
    EXPECT_THAT(instance->jscb_map, ElementsAre(Pair("y", second)));
    end_instance();
}

TEST_F(script_reentry, A_release_of_all_functions_keeps_what_it_registers) {
    add("x", first);
    add("y", second);
    on_release = [this](NPObject* released) {
        if (released == first) {
            EXPECT_TRUE(add("y", third));
            EXPECT_TRUE(add("z", third));
        }
    };

    instance->delete_jscb_map();

    EXPECT_EQ(references_to(second), 0);
    EXPECT_EQ(references_to(third), 2);
    EXPECT_EQ(instance->get_jscb_npobj("y"), third);
    on_release = nullptr;
    end_instance();
    EXPECT_EQ(references_to(third), 0);
}

TEST_F(script_reentry, A_release_of_all_functions_may_delete_the_object) {
    add("x", first);
    add("y", second);
    on_release = [this](NPObject* released) {
        if (released == first) {
            end_instance();
        }
    };

    instance->delete_jscb_map();

    EXPECT_TRUE(is_deleted());
    EXPECT_EQ(references_to(first), 0);
    EXPECT_EQ(references_to(second), 0);
}

TEST_F(script_reentry, A_release_at_the_end_finds_an_object_that_does_nothing_more) {
    add("x", first);
    add("y", second);
    bool has_been_called = false;
    on_release = [&](NPObject* released) {
        if (released != first) {
            return;
        }
        has_been_called = true;
        EXPECT_FALSE(add("z", third));
        EXPECT_FALSE(remove("y", second));
        EXPECT_FALSE(browser.call(object, "call_back", {"y"}));
        script_arguments args{"z", third};
        EXPECT_TRUE(instance->add_jscb_request(args.data(), args.size(), nullptr));
        instance->delete_jscb_map();
    };

    end_instance();

    EXPECT_TRUE(has_been_called);
    EXPECT_EQ(references_to(first), 0);
    EXPECT_EQ(references_to(second), 0);
    EXPECT_EQ(references_to(third), 0);
}

TEST_F(script_reentry, A_script_that_yields_an_object_may_delete_the_one_that_runs_it) {
    browser.on_evaluate = [this](const std::string&, script_value* result) {
        end_instance();
        *result = first;
        return true;
    };

    EXPECT_EQ(instance->create_npobj("new Object()"), first);

    EXPECT_TRUE(is_deleted());
    EXPECT_EQ(references_to(browser.window()), 0);
    vask_np_base::NPNFuncs.releaseobject(first);
}

TEST_F(script_reentry, A_script_that_fails_may_delete_the_object_that_runs_it) {
    browser.on_evaluate = [this](const std::string&, script_value*) {
        end_instance();
        return false;
    };

    EXPECT_EQ(instance->create_npobj("new Object()"), nullptr);

    EXPECT_TRUE(is_deleted());
    EXPECT_EQ(references_to(browser.window()), 0);
}

namespace {

/** The page has put a function of its own in the place of "baseURI". */
class page_uri_reentry : public script_reentry {
protected:
    void SetUp() override {
        script_reentry::SetUp();
        dom_object = browser.element(npp).dom_object;
        vask_np_base::NPNFuncs.getproperty = [](NPP, NPObject*, NPIdentifier, NPVariant* result) {
            return on_get_property(result);
        };
    }

    void TearDown() override {
        on_get_property = nullptr;
        vask_np_base::NPNFuncs.releaseobject(dom_object);  // the one that stays
        script_reentry::TearDown();
    }

    static std::function<bool(NPVariant*)> on_get_property;

    NPObject* dom_object = nullptr;
};

std::function<bool(NPVariant*)> page_uri_reentry::on_get_property;

}  // namespace

TEST_F(page_uri_reentry, A_page_may_delete_the_object_that_asks_for_its_URI) {
    on_get_property = [this](NPVariant* result) {
        end_instance();
        STRINGZ_TO_NPVARIANT(
            strcpy(static_cast<char*>(vask_np_base::NPNFuncs.memalloc(16)), "/docs/page.html"),
            *result);
        return true;
    };

    EXPECT_EQ(instance->get_baseURI(npp), "/docs/");

    EXPECT_TRUE(is_deleted());
}

TEST_F(page_uri_reentry, A_page_may_delete_the_object_and_give_no_URI) {
    on_get_property = [this](NPVariant*) {
        end_instance();
        return false;
    };

    EXPECT_THROW(instance->get_baseURI(npp), std::logic_error);

    EXPECT_TRUE(is_deleted());
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", plugin_object_name, "Failed to get the base URI")));
}
