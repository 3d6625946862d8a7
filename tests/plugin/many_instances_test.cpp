// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Pages come and go.

#include <malloc.h>

#include "recorded_plugin.h"
#include "vask_test/main_loop.h"

using namespace vask_test;

namespace {

constexpr int cycles = 10000;

class many_instances : public in_browser_with_plugin,
                       public testing::WithParamInterface<object_counts> {
protected:
    many_instances() : in_browser_with_plugin(GetParam()) {
        // The ledger itself would grow with every event.
        browser.keep_no_ledger();
    }

    /** A page that uses everything and is left before its script has let go of the object, or
     *  after that. */
    void visit(bool holds_on) {
        NPP npp = browser.open({{"src", "a.html"}});
        recorded_instance* instance = instance_of(npp);
        instance->add_jscb_func("x");
        instance->bytes_at_a_time = 7;
        NPObject* object = browser.scriptable(npp);
        NPObject* function = browser.make_function();
        browser.call(object, "attachEvent", {"x", function});
        browser.call(object, "attachEvent", {"unknown", function});
        browser.stream_to(npp, "http://host/", "some bytes of text");
        if (holds_on) {
            browser.close(npp);
            browser.drop(object);
        } else {
            browser.call(object, "detachEvent", {"x", function});
            browser.drop(object);
            browser.close(npp);
        }
        browser.drop(function);
    }

    static size_t bytes_in_use() { return mallinfo2().uordblks; }
};

INSTANTIATE_TEST_SUITE_P(with, many_instances,
                         testing::Values(object_counts::reset, object_counts::kept));

}  // namespace

TEST_P(many_instances, Leave_nothing_behind) {
    vask_object::print_msg_level = VASK_P_EMERG;
    visit(true);
    visit(false);
    const size_t before = bytes_in_use();
    for (int i = 0; i < cycles; ++i) {
        visit(i % 2 == 0);
    }
    EXPECT_EQ(recorded_instance::alive, 0);
    EXPECT_EQ(factory.created, cycles + 2);
    EXPECT_LE(bytes_in_use(), before + 4096);
}

TEST_P(many_instances, Leave_nothing_behind_with_preloading) {
    vask_object::print_msg_level = VASK_P_EMERG;
    factory.set_preload(2);
    const auto visit_and_refill = [this](bool holds_on) {
        visit(holds_on);
        return wait_until([this] { return factory.pending_spawns == 0; });
    };
    ASSERT_TRUE(visit_and_refill(true));
    const size_t before = bytes_in_use();
    for (int i = 0; i < cycles; ++i) {
        ASSERT_TRUE(visit_and_refill(i % 2 == 0));
    }
    EXPECT_EQ(recorded_instance::alive, 2);
    EXPECT_EQ(factory.preload_queue.size(), 2u);
    EXPECT_LE(bytes_in_use(), before + 4096);
}
