// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "bridge/recording_bridge.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;

namespace {

constexpr bool without_bus = true;

const std::string refusal_begin = "Invalid URI: '";
const std::string refusal_end = "'.";

std::string refusal_of_length(std::size_t length) {
    const std::size_t uri_length = length - refusal_begin.size() - refusal_end.size();
    return refusal_begin + std::string(uri_length, 'u') + refusal_end;
}

std::string uri_of(const std::string& refusal) {
    return refusal.substr(refusal_begin.size(),
                          refusal.size() - refusal_begin.size() - refusal_end.size());
}

class base_uri : public testing::Test {
protected:
    bool set_base(std::string uri, vask_error* err = nullptr) {
        return bridge.set_base_uri(uri, err);
    }

    std::string message_about(const std::string& uri) {
        vask_error err;
        EXPECT_FALSE(set_base(uri, &err));
        EXPECT_EQ(err.get_code(), VASK_ERR_INVALID_URI);
        return err.get_message();
    }

    std::string convert(const std::string& base, const std::string& fname) {
        EXPECT_TRUE(set_base(base));
        vask_error err;
        const std::string uri = bridge.convert_to_uri(fname, &err);
        EXPECT_EQ(err.get_code(), VASK_ERR_NONE);
        return uri;
    }

    recording_bridge bridge{without_bus};
};

}  // namespace

TEST_F(base_uri, Is_empty_at_first) {
    EXPECT_EQ(bridge.get_base_uri(), "");
}

TEST_F(base_uri, Is_stored_when_it_holds_a_scheme_separator) {
    log_catcher log;
    vask_error err;

    EXPECT_TRUE(set_base("https://host/dir/page.html", &err));

    EXPECT_EQ(bridge.get_base_uri(), "https://host/dir/page.html");
    EXPECT_EQ(err.get_code(), VASK_ERR_NONE);
    EXPECT_EQ(err.get_message(), "");
    EXPECT_EQ(log.text(), "");
}

TEST_F(base_uri, Is_a_copy_of_what_was_given) {
    const std::string text = "https://host/" + std::string(100, 'p');
    std::string given = text;

    EXPECT_TRUE(bridge.set_base_uri(given, nullptr));

    EXPECT_EQ(given, text);
    EXPECT_EQ(bridge.get_base_uri(), text);
}

TEST_F(base_uri, Is_not_checked_any_further) {
    EXPECT_TRUE(set_base("://"));
    EXPECT_EQ(bridge.get_base_uri(), "://");
    EXPECT_TRUE(set_base("no scheme at all :// nor a path"));
    EXPECT_EQ(bridge.get_base_uri(), "no scheme at all :// nor a path");
}

TEST_F(base_uri, Is_replaced_by_the_next_one) {
    EXPECT_TRUE(set_base("file:///one"));
    EXPECT_TRUE(set_base("file:///two"));
    EXPECT_EQ(bridge.get_base_uri(), "file:///two");
}

TEST_F(base_uri, Refuses_a_plain_path_and_keeps_the_former_one) {
    set_base("file:///one");
    log_catcher log;
    vask_error err;

    EXPECT_FALSE(set_base("/tmp/page", &err));

    EXPECT_EQ(bridge.get_base_uri(), "file:///one");
    EXPECT_EQ(err.get_code(), VASK_ERR_INVALID_URI);
    EXPECT_EQ(err.get_message(), "Invalid URI: '/tmp/page'.");
    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "bridge", "Invalid URI: '/tmp/page'.")));
}

TEST_F(base_uri, Refuses_the_empty_text) {
    vask_error err;
    EXPECT_FALSE(set_base("", &err));
    EXPECT_EQ(err.get_message(), "Invalid URI: ''.");
}

TEST_F(base_uri, Refuses_also_without_an_error_to_fill) {
    log_catcher log;
    EXPECT_FALSE(set_base("page", nullptr));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "bridge", "Invalid URI: 'page'.")));
}

TEST_F(base_uri, Logs_a_text_with_format_characters_as_it_is) {
    log_catcher log;
    vask_error err;

    EXPECT_FALSE(set_base("%s%n%d", &err));

    EXPECT_EQ(err.get_message(), "Invalid URI: '%s%n%d'.");
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "bridge", "Invalid URI: '%s%n%d'.")));
}

TEST_F(base_uri, Is_refused_with_a_whole_message_of_4095_characters) {
    log_catcher log;
    const std::string message = refusal_of_length(4095);
    EXPECT_EQ(message_about(uri_of(message)), message);
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "bridge", message)));
}

TEST_F(base_uri, Is_refused_without_a_message_if_that_had_4096_characters) {
    log_catcher log;
    EXPECT_EQ(message_about(uri_of(refusal_of_length(4096))), "");
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "vask_snprintf", "The length of input may be too long."),
                            line("ERR", "bridge", "")));
}

TEST_F(base_uri, Is_refused_with_the_first_4095_characters_of_a_longer_message) {
    log_catcher log;
    const std::string message = refusal_of_length(5000);
    EXPECT_EQ(message_about(uri_of(message)), message.substr(0, 4095));
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "bridge", message.substr(0, 4095))));
}

TEST_F(base_uri, Gives_an_absolute_name_its_scheme_and_authority) {
    EXPECT_EQ(convert("https://host/dir/page", "/x"), "https://host/x");
    EXPECT_EQ(convert("https://host:80/", "/x/y.png"), "https://host:80/x/y.png");
}

TEST_F(base_uri, With_an_empty_authority_is_cut_right_behind_the_separator) {
    EXPECT_EQ(convert("file:///dir/page.html", "/img/a.png"), "file:///img/a.png");
}

TEST_F(base_uri, Without_a_path_is_kept_whole_before_an_absolute_name) {
    EXPECT_EQ(convert("file://box", "/x"), "file://box/x");
}

TEST_F(base_uri, Is_kept_whole_before_a_relative_name) {
    EXPECT_EQ(convert("file:///dir/page.html", "a.png"), "file:///dir/page.htmla.png");
    EXPECT_EQ(convert("https://host", "x"), "https://hostx");
}

TEST_F(base_uri, Is_the_conversion_of_the_empty_name) {
    EXPECT_EQ(convert("file:///dir/page.html", ""), "file:///dir/page.html");
}

TEST_F(base_uri, Resolves_and_escapes_nothing) {
    EXPECT_EQ(convert("file:///dir/", "../a b%/./c"), "file:///dir/../a b%/./c");
    EXPECT_EQ(convert("file:///dir/page", "/../x"), "file:///../x");
}

TEST_F(base_uri, Is_found_by_its_first_separator) {
    EXPECT_EQ(convert("view://a://b/c", "/x"), "view://a:/x");
}

TEST_F(base_uri, Stays_what_it_is_over_a_conversion) {
    convert("https://host/dir/page", "/x");
    EXPECT_EQ(bridge.get_base_uri(), "https://host/dir/page");
}

TEST_F(base_uri, Logs_the_steps_of_a_conversion) {
    set_base("https://host/dir/page");
    vask_object::print_msg_level = VASK_P_DBG;
    log_catcher log;

    bridge.convert_to_uri("/x", nullptr);

    EXPECT_EQ(log.text().back(), '\n');
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "bridge", "uri: https://host"),
                                         line("DBG", "bridge", "fname: /x"),
                                         line("DBG", "bridge", "uri: https://host/x")));
}

TEST_F(base_uri, Leaves_the_error_alone_when_a_conversion_succeeds) {
    set_base("file:///dir/");
    vask_error err;
    err.set_code(VASK_ERR_NOT_SPAWNED);
    err.set_message("an earlier one");

    EXPECT_EQ(bridge.convert_to_uri("x", &err), "file:///dir/x");

    EXPECT_EQ(err.get_code(), VASK_ERR_NOT_SPAWNED);
    EXPECT_EQ(err.get_message(), "an earlier one");
}

TEST_F(base_uri, That_is_empty_makes_every_conversion_fail) {
    for (const char* fname : {"/x", "x", "", "file:///x"}) {
        log_catcher log;
        vask_error err;

        EXPECT_EQ(bridge.convert_to_uri(fname, &err), "");

        EXPECT_EQ(err.get_code(), VASK_ERR_INVALID_URI);
        EXPECT_EQ(err.get_message(), "Wrong call of conver_to_uri: ''");
        EXPECT_EQ(log.text().back(), '\n');
        EXPECT_THAT(log.lines(),
                    ElementsAre(line("ERR", "bridge", "Wrong call of conver_to_uri: ''")));
    }
}

TEST_F(base_uri, That_lacks_a_separator_is_named_in_the_failure) {
    bridge.m_base_uri = "host/%s";
    log_catcher log;

    EXPECT_EQ(bridge.convert_to_uri("x", nullptr), "");

    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "bridge", "Wrong call of conver_to_uri: 'host/%s'")));
}
