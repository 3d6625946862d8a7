// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <signal.h>

#include <map>

#include "browser_table.h"
#include "engine_page.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;

namespace {

class element_callbacks : public engine_element {};

/** The references to the page's functions that the plug-in takes and gives back, from here on. */
class reference_book {
public:
    reference_book() {
        references.clear();
        has_released_too_often = false;
        functions = browser_table();
        browser_table().retainobject = [](NPObject* object) {
            ++references[object];
            return functions.retainobject(object);
        };
        browser_table().releaseobject = [](NPObject* object) {
            if (--references[object] < 0) {
                has_released_too_often = true;
            }
            functions.releaseobject(object);
        };
    }

    ~reference_book() { browser_table() = functions; }

    static int sum() {
        int sum = 0;
        for (const auto& object : references) {
            sum += object.second;
        }
        return sum;
    }

    static bool has_released_too_often;

private:
    static NPNetscapeFuncs functions;
    static std::map<NPObject*, int> references;
};

bool reference_book::has_released_too_often;
NPNetscapeFuncs reference_book::functions;
std::map<NPObject*, int> reference_book::references;

}  // namespace

TEST_F(element_callbacks, The_plug_in_calls_a_function_that_the_page_has_registered) {
    run("plugin.attachEvent('changed', listener('changed'))");

    run("plugin.title = 'new'");

    EXPECT_EQ(run("heard"), R"([["changed","title","new"]])");
}

TEST_F(element_callbacks, Both_names_for_registering_do_the_same) {
    run("plugin.add_callback('changed', listener('changed'))");

    run("plugin.title = 'new'");

    EXPECT_EQ(run("heard"), R"([["changed","title","new"]])");
}

TEST_F(element_callbacks, A_function_that_was_removed_is_not_called) {
    run("window.changed = listener('changed')");
    run("plugin.attachEvent('changed', changed)");
    run("plugin.detachEvent('changed', changed)");

    run("plugin.title = 'new'");

    EXPECT_EQ(run("heard"), "[]");
}

TEST_F(element_callbacks, A_function_that_was_removed_has_got_its_reference_back) {
    run("window.changed = listener('changed')");
    const reference_book book;
    run("plugin.attachEvent('changed', changed)");
    EXPECT_EQ(book.sum(), 1);

    run("plugin.detachEvent('changed', changed)");

    EXPECT_EQ(book.sum(), 0);
    EXPECT_FALSE(book.has_released_too_often);
}

TEST_F(element_callbacks, A_page_cannot_take_references_from_another_function) {
    run("window.changed = listener('changed'); window.other = listener('other')");
    const reference_book book;

    for (const char* method : {"detachEvent", "del_callback"}) {
        run("plugin.attachEvent('changed', changed)");
        run(std::string("plugin.") + method + "('changed', other)");
        run(std::string("plugin.") + method + "('changed', other)");
    }

    EXPECT_EQ(book.sum(), 0);
    EXPECT_FALSE(book.has_released_too_often);
    run("plugin.title = 'new'");
    EXPECT_EQ(run("heard"), "[]");
}

TEST_F(element_callbacks, A_function_may_be_registered_again) {
    run("window.changed = listener('changed')");
    run("plugin.attachEvent('changed', changed)");
    run("plugin.detachEvent('changed', changed)");
    run("plugin.attachEvent('changed', changed)");

    run("plugin.title = 'new'");

    EXPECT_EQ(run("heard"), R"([["changed","title","new"]])");
}

TEST_F(element_callbacks, The_latest_function_of_a_name_is_called) {
    run("plugin.attachEvent('changed', listener('earlier'))");
    run("plugin.attachEvent('changed', listener('later'))");

    run("plugin.title = 'new'");

    EXPECT_EQ(run("heard"), R"([["later","title","new"]])");
}

TEST_F(element_callbacks, A_name_that_the_plug_in_does_not_know_is_refused_with_a_line) {
    log_catcher log;

    EXPECT_EQ(run("plugin.attachEvent('unknown', listener('unknown'))"), "undefined");

    EXPECT_THAT(log.lines(),
                testing::Contains(line("ERR", "demo_plugin",
                                       "Requested callback function 'unknown' is not supported")));
}

TEST_F(element_callbacks, A_function_that_throws_does_no_harm) {
    run("plugin.attachEvent('changed', function () { throw new Error('from the page'); })");

    run("plugin.title = 'new'");

    EXPECT_EQ(run("plugin.title"), "\"new\"");
}

TEST_F(element_callbacks, A_function_may_remove_itself_while_it_is_called) {
    run("window.once = function () { heard.push('once'); plugin.detachEvent('changed', once); }");
    run("plugin.attachEvent('changed', once)");

    run("plugin.title = 'one'");
    run("plugin.title = 'two'");

    EXPECT_EQ(run("heard"), R"(["once"])");
}

TEST_F(element_callbacks, The_page_receives_an_event_that_the_child_raises) {
    run("plugin.attachEvent('rang', listener('rang'))");

    run("plugin.ring('one')");
    run("plugin.ring('two')");

    ASSERT_TRUE(host.wait_until("heard.length == 2"));
    EXPECT_EQ(run("heard"), R"([["rang","one",1],["rang","two",2]])");
}

TEST_F(element_callbacks, The_child_answers_the_page) {
    wait_for_child();

    EXPECT_EQ(run("plugin.greet('page')"),
              "\"Hello page, I am process " + std::to_string(child()) + "\"");
}

TEST_F(element_callbacks, The_page_gets_an_exception_when_there_is_no_child_to_answer) {
    kill(child(), SIGKILL);
    ASSERT_TRUE(host.wait_until("plugin.child == -1"));

    EXPECT_EQ(run("plugin.greet('page')"), "exception: Error: Error calling method on NPObject.");
}

TEST_F(element_callbacks, The_page_hears_that_the_child_has_crashed) {
    run("plugin.attachEvent('crashed', listener('crashed'))");
    wait_for_child();

    kill(child(), SIGKILL);

    ASSERT_TRUE(host.wait_until("heard.length == 1"));
    EXPECT_EQ(run("heard"), R"([["crashed"]])");
    EXPECT_EQ(run("plugin.child"), "-1");
}

TEST_F(element_callbacks, The_page_may_start_another_child_when_it_hears_of_the_crash) {
    run("plugin.attachEvent('rang', listener('rang'))");
    run("plugin.attachEvent('crashed', function () { plugin.start(); plugin.ring('again'); })");
    wait_for_child();
    const int first_child = child();

    kill(first_child, SIGKILL);

    ASSERT_TRUE(host.wait_until("heard.length == 1"));
    EXPECT_EQ(run("heard"), R"([["rang","again",1]])");
    EXPECT_NE(child(), first_child);
}

TEST_F(element_callbacks, Removing_the_element_ends_its_child_and_its_calls) {
    run("plugin.attachEvent('rang', listener('rang'))");
    wait_for_child();
    const int first_child = child();
    run("plugin.ring('too late')");

    run("plugin.parentNode.removeChild(plugin)");

    ASSERT_TRUE(host.wait_until([=] { return kill(first_child, 0) != 0; }));
    host.handle_events();
    EXPECT_EQ(run("heard"), "[]");
}

TEST_F(element_callbacks, A_function_may_remove_the_element_that_calls_it) {
    run("plugin.attachEvent('changed', function () {"
        "  heard.push('changed');"
        "  plugin.parentNode.removeChild(plugin);"
        "})");
    const int first_child = child();

    run("plugin.title = 'new'");

    ASSERT_TRUE(host.wait_until([=] { return kill(first_child, 0) != 0; }));
    EXPECT_EQ(run("heard"), R"(["changed"])");
}

TEST_F(element_callbacks, An_event_of_the_child_may_remove_the_element) {
    run("plugin.attachEvent('rang', function () {"
        "  heard.push('rang');"
        "  plugin.parentNode.removeChild(plugin);"
        "})");
    const int first_child = child();

    run("plugin.ring('one')");
    run("plugin.ring('two')");

    ASSERT_TRUE(host.wait_until([=] { return kill(first_child, 0) != 0; }));
    EXPECT_EQ(run("heard"), R"(["rang"])");
}

TEST_F(element_callbacks, An_element_that_was_removed_does_no_harm_to_a_script_that_keeps_it) {
    run("window.ring = plugin.ring");
    run("plugin.parentNode.removeChild(plugin)");

    EXPECT_EQ(run("plugin.ring('one')").substr(0, 10), "exception:");
    EXPECT_EQ(run("typeof plugin.title"), "\"string\"");
    EXPECT_EQ(run("heard"), "[]");
}
