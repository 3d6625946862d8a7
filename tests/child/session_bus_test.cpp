// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "bus/session_bus.h"

#include <dbus/dbus-glib-lowlevel.h>
#include <gtest/gtest.h>

#include <string>

#include "bus/bus_names.h"

TEST(bus_names, Are_agreed_upon) {
    EXPECT_STREQ(VASK_CHILD_INTERFACE, "com.example.vask.Child");
    EXPECT_STREQ(VASK_CHILD_PATH, "/com/example/vask/Child");
    EXPECT_STREQ(VASK_CHILD_SIGNAL, "ChildSignal");
    EXPECT_STREQ(VASK_CHILD_NAME_FORMAT, "com.example.vask.Child_%d");
}

TEST(text_for_the_bus, May_be_any_utf8) {
    EXPECT_EQ(find_text_problem(""), nullptr);
    EXPECT_EQ(find_text_problem("gr\xc3\xbc\xc3\x9f dich \xf0\x9f\x99\x82\n"), nullptr);
}

TEST(text_for_the_bus, May_be_null) {
    EXPECT_EQ(find_text_problem(nullptr), nullptr);
    EXPECT_STREQ(null_as_empty(nullptr), "");
    EXPECT_STREQ(null_as_empty("text"), "text");
}

TEST(text_for_the_bus, May_not_be_anything_else) {
    const char* const texts[] = {
        "caf\xe9",           // another encoding
        "\xc3",              // cut off in the middle of a character
        "\xc0\xaf",          // longer than needed
        "\xed\xa0\x80",      // half of a surrogate pair
        "\xf4\x90\x80\x80",  // behind the last character
    };
    for (const char* text : texts) {
        EXPECT_STREQ(find_text_problem(text), "The text is not valid UTF-8");
    }
}

TEST(text_for_the_bus, Leaves_room_for_a_header_in_the_longest_message) {
    std::string text(DBUS_MAXIMUM_MESSAGE_LENGTH - 64 * 1024, 'x');
    EXPECT_EQ(find_text_problem(text.c_str()), nullptr);
    text += 'x';
    EXPECT_STREQ(find_text_problem(text.c_str()), "The text is too long for the bus");
}

TEST(no_connection, Is_not_connected) {
    EXPECT_FALSE(is_bus_connected(nullptr));
}

TEST(session_bus, Is_not_opened_without_a_bus) {
    GError* error = nullptr;
    EXPECT_EQ(open_session_bus(&error), nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain, DBUS_GERROR);
    g_error_free(error);
}
