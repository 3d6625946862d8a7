// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <gtest/gtest.h>

#include "bridge/recording_bridge.h"

using namespace vask_test;

namespace {

constexpr bool without_bus = true;

class error_tools : public testing::Test {
protected:
    recording_bridge bridge{without_bus};
};

vask_error error_with(const char* message) {
    vask_error err;
    err.set_message(message);
    return err;
}

}  // namespace

TEST_F(error_tools, Show_code_and_message_of_a_GLib_error) {
    GError* error = g_error_new_literal(g_quark_from_static_string("test"), 17, "no %s such thing");
    EXPECT_EQ(bridge.build_error_message_from_gerror(error), "17: no %s such thing");
    g_error_free(error);
}

TEST_F(error_tools, Show_negative_codes) {
    GError* error = g_error_new_literal(g_quark_from_static_string("test"), -2, "");
    EXPECT_EQ(bridge.build_error_message_from_gerror(error), "-2: ");
    g_error_free(error);
}

TEST_F(error_tools, Show_long_messages_whole) {
    for (const std::size_t length : {std::size_t{4092}, std::size_t{5000}}) {
        const std::string message(length, 'm');
        GError* error =
            g_error_new_literal(g_quark_from_static_string("test"), 17, message.c_str());
        EXPECT_EQ(bridge.build_error_message_from_gerror(error), "17: " + message);
        g_error_free(error);
    }
}

TEST_F(error_tools, Show_the_code_alone_when_there_is_no_message) {
    GError error = {g_quark_from_static_string("test"), 17, nullptr};
    EXPECT_EQ(bridge.build_error_message_from_gerror(&error), "17: ");
}

TEST_F(error_tools, Have_a_text_for_a_missing_GLib_error) {
    EXPECT_EQ(bridge.build_error_message_from_gerror(nullptr), "Error occured but GError is NULL.");
}

TEST_F(error_tools, Chain_a_copy_of_an_error) {
    vask_error first = error_with("first");
    vask_error second = error_with("second");

    bridge.set_next_error(&first, &second);
    second.set_message("overwritten");

    ASSERT_NE(first.get_next(), nullptr);
    EXPECT_NE(first.get_next(), &second);
    EXPECT_EQ(first.get_next()->get_message(), "second");
}

TEST_F(error_tools, Chain_nothing_behind_a_missing_error) {
    vask_error second = error_with("second");
    bridge.set_next_error(nullptr, &second);
    EXPECT_EQ(second.get_next(), nullptr);
    EXPECT_EQ(second.get_message(), "second");
}

TEST_F(error_tools, Leave_the_chain_alone_when_there_is_nothing_to_chain) {
    vask_error first = error_with("first");
    vask_error second = error_with("second");
    bridge.set_next_error(&first, &second);

    bridge.set_next_error(&first, nullptr);
    bridge.set_next_error(nullptr, nullptr);

    ASSERT_NE(first.get_next(), nullptr);
    EXPECT_EQ(first.get_next()->get_message(), "second");
}
