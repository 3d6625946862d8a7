// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_JSON_WRITER_H
#define VASKCTL_JSON_WRITER_H

#include <json-glib/json-glib.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vaskctl {

// Builds one JSON value. Texts that are not valid UTF-8 come out with replacement characters.
class json_writer {
public:
    json_writer();

    void begin_object();
    void end_object();
    void begin_array();
    void end_array();

    // The name of what is added next.
    void name(const char* member);

    void add(const std::string& text);
    void add(const char* text) { add(std::string(text)); }
    void add(bool value);
    void add(std::int64_t number);
    void add(int number) { add(static_cast<std::int64_t>(number)); }
    void add(double number);
    // A key: JSON's readers lose the lower digits of numbers that long, so it is a text.
    void add(std::uint64_t number) { add(std::to_string(number)); }
    void add_null();

    template <typename Value>
    void add(const std::optional<Value>& value) {
        if (value) {
            add(*value);
        } else {
            add_null();
        }
    }

    void add(const std::vector<std::string>& texts);

    template <typename Value>
    void add_member(const char* member, const Value& value) {
        name(member);
        add(value);
    }

    // Prints it as one line on standard output, at once.
    void print_line();

private:
    struct unref {
        void operator()(JsonBuilder* builder) const { g_object_unref(builder); }
    };
    const std::unique_ptr<JsonBuilder, unref> m_builder;
};

}  // namespace vaskctl

#endif
