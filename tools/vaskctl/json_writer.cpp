// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "json_writer.h"

#include <stdio.h>

#include <algorithm>

namespace vaskctl {

json_writer::json_writer() : m_builder(json_builder_new()) {}

void json_writer::begin_object() {
    json_builder_begin_object(m_builder.get());
}

void json_writer::end_object() {
    json_builder_end_object(m_builder.get());
}

void json_writer::begin_array() {
    json_builder_begin_array(m_builder.get());
}

void json_writer::end_array() {
    json_builder_end_array(m_builder.get());
}

void json_writer::name(const char* member) {
    json_builder_set_member_name(m_builder.get(), member);
}

void json_writer::add(const std::string& text) {
    // No reader of JSON has to take a text with a zero in it, and GLib's end there.
    std::string whole = text;
    std::replace(whole.begin(), whole.end(), '\0', ' ');
    gchar* valid = g_utf8_make_valid(whole.c_str(), -1);
    json_builder_add_string_value(m_builder.get(), valid);
    g_free(valid);
}

void json_writer::add(bool value) {
    json_builder_add_boolean_value(m_builder.get(), value ? TRUE : FALSE);
}

void json_writer::add(std::int64_t number) {
    json_builder_add_int_value(m_builder.get(), number);
}

void json_writer::add(double number) {
    json_builder_add_double_value(m_builder.get(), number);
}

void json_writer::add_null() {
    json_builder_add_null_value(m_builder.get());
}

void json_writer::add(const std::vector<std::string>& texts) {
    begin_array();
    for (const std::string& text : texts) {
        add(text);
    }
    end_array();
}

void json_writer::print_line() {
    JsonNode* root = json_builder_get_root(m_builder.get());
    gchar* text = json_to_string(root, FALSE);
    // JSON forbids this character in a text, and the library leaves it as it is.
    for (const char* c = text; *c != '\0'; ++c) {
        if (*c == '\x1f') {
            fputs("\\u001f", stdout);
        } else {
            putchar(*c);
        }
    }
    putchar('\n');
    fflush(stdout);
    g_free(text);
    json_node_unref(root);
}

}  // namespace vaskctl
