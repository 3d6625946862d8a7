// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Query, release, destruction and deallocation of an instance's object, in every order in which a
// browser can bring them.

#include "recorded_plugin.h"

using namespace vask_test;
using testing::IsEmpty;

namespace {

class destroy_order : public in_browser_with_plugin,
                      public testing::WithParamInterface<object_counts> {
protected:
    destroy_order() : in_browser_with_plugin(GetParam()) {}

    void SetUp() override {
        npp = browser.open();
        object = instance_of(npp)->object();
    }

    void query() { ASSERT_EQ(browser.scriptable(npp), object); }
    void drop() { browser.drop(object); }
    void destroy() { EXPECT_EQ(browser.close(npp), NPERR_NO_ERROR); }
    bool is_deleted() const { return recorded_instance::alive == 0; }

    NPP npp = nullptr;
    NPObject* object = nullptr;
};

class in_any_browser : public destroy_order {};
class in_a_browser_that_counts_anew : public destroy_order {};
class in_a_browser_that_counts_on : public destroy_order {};

INSTANTIATE_TEST_SUITE_P(with, in_any_browser,
                         testing::Values(object_counts::reset, object_counts::kept));
INSTANTIATE_TEST_SUITE_P(with, in_a_browser_that_counts_anew,
                         testing::Values(object_counts::reset));
INSTANTIATE_TEST_SUITE_P(with, in_a_browser_that_counts_on, testing::Values(object_counts::kept));

}  // namespace

TEST_P(in_any_browser, Destruction_alone_deletes) {
    destroy();
    EXPECT_TRUE(is_deleted());
}

TEST_P(in_any_browser, Destruction_after_the_page_has_let_go_deletes_within_its_release) {
    query();
    drop();
    EXPECT_FALSE(is_deleted());
    destroy();
    EXPECT_TRUE(is_deleted());
    const auto deallocated = browser.entries_of(ledger_entry::deallocated, object);
    ASSERT_EQ(deallocated.size(), 1u);
    EXPECT_EQ(deallocated[0].place.function(), "vask_np_factory::destroy_instance");
}

TEST_P(in_any_browser, Destruction_while_the_page_holds_the_object_leaves_it_to_the_page) {
    query();
    destroy();
    EXPECT_FALSE(is_deleted());
    EXPECT_TRUE(static_cast<vask_np_instance*>(object)->destroy_pending);
    EXPECT_EQ(object->referenceCount, 1u);
    drop();
    EXPECT_TRUE(is_deleted());
}

TEST_P(in_any_browser, Destruction_while_the_page_holds_more_references_waits_for_the_last) {
    query();
    browser.hold(object);
    destroy();
    drop();
    EXPECT_FALSE(is_deleted());
    drop();
    EXPECT_TRUE(is_deleted());
}

TEST_P(in_any_browser, Deallocation_before_destruction_keeps_the_instance) {
    query();
    browser.tear_down(object);
    EXPECT_FALSE(is_deleted());
    EXPECT_TRUE(instance_of(npp)->npobj_deallocated);
    EXPECT_FALSE(instance_of(npp)->destroy_pending);
    destroy();
    EXPECT_TRUE(is_deleted());
}

TEST_P(in_any_browser, Deallocation_after_destruction_deletes_whatever_references_are_left) {
    query();
    browser.hold(object);
    destroy();
    browser.tear_down(object);
    EXPECT_TRUE(is_deleted());
}

TEST_P(in_any_browser, Destruction_after_a_deallocation_deletes_even_an_object_held_again) {
    query();
    browser.tear_down(object);
    query();
    destroy();
    EXPECT_TRUE(is_deleted());
    EXPECT_THAT(browser.entries_of(ledger_entry::released, object), IsEmpty());
    browser.forget(object);
}

TEST_P(in_any_browser, The_flags_are_never_cleared) {
    query();
    browser.tear_down(object);
    query();
    EXPECT_TRUE(instance_of(npp)->npobj_allocated);
    EXPECT_TRUE(instance_of(npp)->npobj_deallocated);
    destroy();
    browser.forget(object);
}

TEST_P(in_any_browser, A_failed_query_counts_as_none) {
    browser.on_create_object = [](NPP, NPClass*) -> NPObject* { return nullptr; };
    EXPECT_EQ(browser.scriptable(npp), nullptr);
    destroy();
    EXPECT_TRUE(is_deleted());
}

TEST_P(in_any_browser, Callbacks_are_released_when_the_page_deletes_the_instance) {
    NPObject* function = browser.make_function();
    instance_of(npp)->add_jscb_func("x");
    query();
    browser.call(object, "attachEvent", {"x", function});
    destroy();
    EXPECT_EQ(browser.references_of_plugin(function), 1);
    drop();
    EXPECT_EQ(browser.references_of_plugin(function), 0);
}

TEST_P(in_any_browser, An_instance_may_be_destroyed_by_a_script_call_of_its_own) {
    NPObject* function = browser.make_function([this](const std::vector<script_value>&) {
        destroy();
        return script_value();
    });
    recorded_instance* instance = instance_of(npp);
    instance->add_jscb_func("x");
    query();
    browser.call(object, "attachEvent", {"x", function});
    // A browser holds an object while it calls it.
    browser.hold(object);
    EXPECT_TRUE(browser.call(object, "call_back", {"x"}));
    drop();
    drop();
    EXPECT_TRUE(is_deleted());
}

TEST_P(in_a_browser_that_counts_anew, Two_queries_and_two_releases_deallocate) {
    query();
    query();
    EXPECT_EQ(object->referenceCount, 2u);
    drop();
    drop();
    EXPECT_TRUE(instance_of(npp)->npobj_deallocated);
    EXPECT_FALSE(is_deleted());
    destroy();
    EXPECT_TRUE(is_deleted());
}

TEST_P(in_a_browser_that_counts_anew, A_second_query_after_a_release_is_like_the_first_one) {
    query();
    drop();
    query();
    destroy();
    EXPECT_FALSE(is_deleted());
    drop();
    EXPECT_TRUE(is_deleted());
}

TEST_P(in_a_browser_that_counts_on, Every_further_query_keeps_a_reference) {
    query();
    drop();
    query();
    drop();
    EXPECT_EQ(browser.references_of_plugin(object), 2);
    destroy();
    EXPECT_FALSE(is_deleted());
    EXPECT_EQ(browser.references_of_plugin(object), 1);
    browser.tear_down(object);
    EXPECT_TRUE(is_deleted());
}
