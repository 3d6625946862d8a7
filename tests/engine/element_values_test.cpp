// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "engine_page.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;

class element_values : public engine_element {};

// Every number of this engine's scripts is a double, 7 as well.
TEST_F(element_values, A_method_receives_arguments_of_every_type) {
    EXPECT_EQ(run("plugin.describe(undefined, null, true, false, 7, -0.5, 'text', '', {}, eval)"),
              R"("void, null, bool true, bool false, double 7, double -0.5, string text, string , )"
              R"(object, object")");
}

TEST_F(element_values, A_method_receives_text_as_UTF_8) {
    EXPECT_EQ(run("plugin.describe('Gr\\u00fc\\u00dfe \\u20ac')"), "\"string Grüße €\"");
}

TEST_F(element_values, A_method_without_arguments_receives_none) {
    EXPECT_EQ(run("plugin.describe()"), "\"\"");
}

TEST_F(element_values, A_method_returns_values_of_every_type) {
    EXPECT_EQ(run("plugin.echo(undefined)"), "undefined");
    EXPECT_EQ(run("plugin.echo(null)"), "null");
    EXPECT_EQ(run("plugin.echo(true)"), "true");
    EXPECT_EQ(run("plugin.echo(false)"), "false");
    EXPECT_EQ(run("plugin.echo(-0.5)"), "-0.5");
    EXPECT_EQ(run("plugin.echo('Gr\\u00fc\\u00dfe')"), "\"Grüße\"");
    EXPECT_EQ(run("plugin.echo('')"), "\"\"");
}

TEST_F(element_values, An_object_that_a_method_returns_is_the_one_that_it_was_given) {
    EXPECT_EQ(run("var it = {}; plugin.echo(it) === it"), "true");
    EXPECT_EQ(run("plugin.echo(document) === document"), "true");
}

TEST_F(element_values, A_whole_number_of_the_plug_in_is_a_number_of_the_script) {
    EXPECT_EQ(run("typeof plugin.width"), "\"number\"");
    EXPECT_EQ(run("plugin.width"), "300");
}

TEST_F(element_values, A_method_that_fails_throws_in_the_script) {
    EXPECT_EQ(run("plugin.echo(1, 2)"), "exception: Error: Error calling method on NPObject.");
}

TEST_F(element_values, A_method_with_the_wrong_arguments_fails_with_a_line) {
    log_catcher log;
    EXPECT_EQ(run("plugin.ring(1)"), "exception: Error: Error calling method on NPObject.");
    EXPECT_THAT(log.lines(),
                testing::Contains(line("ERR", "demo_plugin",
                                       "The type of NPVariant in the 0th argument: 4 is different "
                                       "from the exptected: 5")));
}

TEST_F(element_values, A_method_that_does_not_exist_is_undefined) {
    EXPECT_EQ(run("typeof plugin.nothing"), "\"undefined\"");
    EXPECT_EQ(run("plugin.nothing()").substr(0, 20), "exception: TypeError");
}

TEST_F(element_values, A_property_has_the_value_of_the_elements_attribute) {
    EXPECT_EQ(run("plugin.title"), "\"from the page\"");
}

TEST_F(element_values, A_property_that_was_set_has_the_new_value) {
    EXPECT_EQ(run("plugin.title = 'new'; plugin.title"), "\"new\"");
    EXPECT_EQ(run("plugin.title = ''; plugin.title"), "\"\"");
}

TEST_F(element_values, A_property_refuses_a_value_of_another_type) {
    run("plugin.title = 7");
    EXPECT_EQ(run("plugin.title"), "\"from the page\"");
}

TEST_F(element_values, A_property_without_setter_keeps_its_value) {
    run("plugin.width = 1");
    EXPECT_EQ(run("plugin.width"), "300");
}

TEST_F(element_values, A_member_that_is_a_number_is_undefined) {
    EXPECT_EQ(run("plugin[0]"), "undefined");
    EXPECT_EQ(run("plugin[0] = 1; plugin.title"), "\"from the page\"");
    EXPECT_EQ(run("plugin[0]()").substr(0, 20), "exception: TypeError");
}
