// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <signal.h>

#include "demo_picture.h"
#include "engine_page.h"
#include "met_children.h"

using namespace vask_test;

namespace {

// Where the pages have their element, and how it is divided.
constexpr int left = 8;
constexpr int top = 8;
constexpr int panel_height = 90;

unsigned int rgb(demo_colour colour) {
    return static_cast<unsigned int>(colour.red << 16 | colour.green << 8 | colour.blue);
}

unsigned int dark_cell_of(int pid) {
    return rgb(demo_picture::colour_of_process(pid));
}

}  // namespace

class element_pages : public engine_page {
protected:
    int child(const std::string& element) { return std::stoi(run(element + ".child")); }

    bool wait_for_end(int pid) {
        return host.wait_until([pid] { return kill(pid, 0) != 0; });
    }
};

TEST_F(element_pages, An_element_is_told_its_size) {
    load("one_element.html");

    EXPECT_EQ(run("plugin.width"), "300");
    EXPECT_EQ(run("plugin.height"), "120");
}

TEST_F(element_pages, An_element_is_told_a_new_size) {
    load("one_element.html");

    run("plugin.style.width = '150px'; plugin.style.height = '80px'");

    EXPECT_TRUE(host.wait_until("plugin.width == 150 && plugin.height == 80"));
}

TEST_F(element_pages, An_element_shows_what_the_plug_in_draws) {
    load("one_element.html");

    const unsigned int panel_colour = 0x204880;
    EXPECT_TRUE(host.wait_until([&] { return host.pixel(left + 2, top + 2) == panel_colour; }));
    EXPECT_EQ(host.pixel(left + 299, top + panel_height - 1), panel_colour);
    EXPECT_EQ(host.pixel(left + 300, top + panel_height - 1), 0xffffffU);
}

TEST_F(element_pages, An_element_shows_what_its_child_draws) {
    load("one_element.html");
    const unsigned int childs_colour = dark_cell_of(child("plugin"));
    const int middle_of_cell = demo_picture::cell_size / 2;
    const int picture = top + panel_height;

    EXPECT_TRUE(host.wait_until([&] {
        return host.pixel(left + middle_of_cell, picture + middle_of_cell) == childs_colour;
    }));
    EXPECT_EQ(host.pixel(left + demo_picture::cell_size + middle_of_cell, picture + middle_of_cell),
              rgb(demo_picture::light_cell_colour));
    EXPECT_EQ(host.pixel(left + middle_of_cell, top + 120), 0xffffffU);
}

TEST_F(element_pages, The_child_draws_again_when_the_element_gets_a_new_size) {
    load("one_element.html");
    const unsigned int band_colour = rgb(demo_picture::band_colour);
    const int in_the_band = top + panel_height + demo_picture::band_top + 2;
    ASSERT_NE(host.pixel(left + 2, in_the_band), band_colour);

    run("plugin.style.height = '290px'");

    EXPECT_TRUE(host.wait_until([&] { return host.pixel(left + 2, in_the_band) == band_colour; }));
}

TEST_F(element_pages, A_child_that_was_started_again_draws_as_well) {
    load("one_element.html");
    run("plugin.attachEvent('crashed', function () { plugin.start(); heard.push('started'); })");
    wait_for_child();

    kill(child("plugin"), SIGKILL);

    ASSERT_TRUE(host.wait_until("heard.length == 1"));
    const unsigned int childs_colour = dark_cell_of(child("plugin"));
    EXPECT_TRUE(host.wait_until(
        [&] { return host.pixel(left + 2, top + panel_height + 2) == childs_colour; }));
}

TEST_F(element_pages, Two_elements_of_a_page_have_their_own_properties_and_children) {
    load("two_elements.html");

    run("first.title = 'changed'");

    EXPECT_EQ(run("[first.title, first.width, first.height]"), R"(["changed",200,60])");
    EXPECT_EQ(run("[second.title, second.width, second.height]"), R"(["second",100,40])");
    EXPECT_GT(child("first"), 0);
    EXPECT_GT(child("second"), 0);
    EXPECT_NE(child("first"), child("second"));
}

TEST_F(element_pages, Two_elements_of_a_page_hear_of_their_own_child) {
    load("two_elements.html");
    run("first.attachEvent('rang', listener('first'))");
    run("second.attachEvent('rang', listener('second'))");

    run("second.ring('one')");
    ASSERT_TRUE(host.wait_until("heard.length == 1"));
    run("first.ring('two')");
    ASSERT_TRUE(host.wait_until("heard.length == 2"));

    EXPECT_EQ(run("heard"), R"([["second","one",1],["first","two",1]])");
}

TEST_F(element_pages, Removing_one_of_two_elements_leaves_the_other_one_at_work) {
    load("two_elements.html");
    run("second.attachEvent('rang', listener('second'))");
    const int first_child = child("first");

    run("first.parentNode.removeChild(first)");

    ASSERT_TRUE(wait_for_end(first_child));
    run("second.ring('still here')");
    ASSERT_TRUE(host.wait_until("heard.length == 1"));
    EXPECT_EQ(run("heard"), R"([["second","still here",1]])");
}

TEST_F(element_pages, Leaving_a_page_ends_its_child) {
    load("one_element.html");
    run("plugin.attachEvent('rang', listener('rang'))");
    const int first_child = child("plugin");

    load("no_element.html");

    EXPECT_TRUE(wait_for_end(first_child));
}

TEST_F(element_pages, A_page_that_is_entered_again_has_a_new_element) {
    load("one_element.html");
    run("plugin.title = 'changed'");
    const int first_child = child("plugin");
    load("no_element.html");

    ASSERT_TRUE(host.go_back());

    EXPECT_EQ(run("plugin.title"), "\"from the page\"");
    EXPECT_NE(child("plugin"), first_child);
    run("plugin.attachEvent('rang', listener('rang'))");
    run("plugin.ring('back')");
    ASSERT_TRUE(host.wait_until("heard.length == 1"));
    EXPECT_EQ(run("heard"), R"([["rang","back",1]])");
}

TEST_F(element_pages, An_element_that_was_made_ahead_of_time_has_its_child_ready_at_once) {
    const met_children met;
    load("one_element.html");
    // The page's own, and two to four seconds later the one of the next element.
    ASSERT_TRUE(host.wait_until([&] { return met.count() == 2; }));

    load("one_element.html");

    EXPECT_EQ(run("was_ready_at_once"), "true");
}

TEST_F(element_pages, The_samples_page_shows_what_happens) {
    ASSERT_TRUE(host.load(VASK_TEST_SAMPLE_PAGE));
    ASSERT_TRUE(host.wait_until("$('log').textContent.indexOf('greet') >= 0"));

    const std::string pid = run("plugin.child");
    EXPECT_EQ(run("$('log').textContent"),
              "\"describe: void, null, bool true, double 7, double 0.5, string text, object\\n"
              "the element is 360x450, its child is process " +
                  pid +
                  "\\n"
                  "changed: title is The page has set this title\\n"
                  "rang: hello from the child (1)\\n"
                  "greet: Hello page, I am process " +
                  pid + "\\n\"");
}
