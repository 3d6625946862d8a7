// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "bus_message.h"

namespace vask_fuzz {

namespace {

constexpr int deepest = 3;

using validator = dbus_bool_t (*)(const char* text, DBusError* error);

// Mostly the usual one, sometimes the input's own if it is a valid one.
std::string choose(const std::string& usual, validator is_valid, input& input) {
    if (input.byte() % 4 != 3) {
        return usual;
    }
    const std::string own = input.text();
    // What the bus library says to itself comes from no bus, and nobody speaks in the bus's name.
    const bool is_reserved = own == DBUS_INTERFACE_LOCAL || own == DBUS_PATH_LOCAL ||
                             (is_valid == dbus_validate_bus_name && own == DBUS_SERVICE_DBUS);
    return !is_reserved && is_valid(own.c_str(), nullptr) ? own : usual;
}

void append_fixed(DBusMessageIter* to, int type, input& input) {
    // The widest one; a narrower one is its beginning.
    auto value = input.number<std::uint64_t>();
    if (type == DBUS_TYPE_BOOLEAN) {
        value &= 1;
    }
    dbus_message_iter_append_basic(to, type, &value);
}

void append_text(DBusMessageIter* to, int type, input& input) {
    const std::string own = input.text();
    const char* text = own.c_str();
    switch (type) {
        case DBUS_TYPE_OBJECT_PATH:
            text = dbus_validate_path(text, nullptr) ? text : "/";
            break;
        case DBUS_TYPE_SIGNATURE:
            text = dbus_signature_validate(text, nullptr) ? text : "";
            break;
        default:
            text = dbus_validate_utf8(text, nullptr) ? text : "";
            break;
    }
    dbus_message_iter_append_basic(to, type, &text);
}

void append_value(DBusMessageIter* to, input& input, int depth);

void append_variant(DBusMessageIter* to, input& input) {
    DBusMessageIter inside;
    if (input.flag()) {
        dbus_message_iter_open_container(to, DBUS_TYPE_VARIANT, DBUS_TYPE_UINT64_AS_STRING,
                                         &inside);
        append_fixed(&inside, DBUS_TYPE_UINT64, input);
    } else {
        dbus_message_iter_open_container(to, DBUS_TYPE_VARIANT, DBUS_TYPE_STRING_AS_STRING,
                                         &inside);
        append_text(&inside, DBUS_TYPE_STRING, input);
    }
    dbus_message_iter_close_container(to, &inside);
}

void append_array(DBusMessageIter* to, input& input) {
    DBusMessageIter inside;
    dbus_message_iter_open_container(to, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING_AS_STRING, &inside);
    for (std::size_t left = input.below(4); left > 0; --left) {
        append_text(&inside, DBUS_TYPE_STRING, input);
    }
    dbus_message_iter_close_container(to, &inside);
}

void append_struct(DBusMessageIter* to, input& input, int depth) {
    DBusMessageIter inside;
    dbus_message_iter_open_container(to, DBUS_TYPE_STRUCT, nullptr, &inside);
    for (std::size_t left = 1 + input.below(3); left > 0; --left) {
        append_value(&inside, input, depth + 1);
    }
    dbus_message_iter_close_container(to, &inside);
}

void append_value(DBusMessageIter* to, input& input, int depth) {
    constexpr int types[] = {DBUS_TYPE_INT32,     DBUS_TYPE_STRING,  DBUS_TYPE_UINT32,
                             DBUS_TYPE_BYTE,      DBUS_TYPE_BOOLEAN, DBUS_TYPE_INT16,
                             DBUS_TYPE_UINT64,    DBUS_TYPE_DOUBLE,  DBUS_TYPE_OBJECT_PATH,
                             DBUS_TYPE_SIGNATURE, DBUS_TYPE_ARRAY,   DBUS_TYPE_VARIANT,
                             DBUS_TYPE_STRUCT};
    const int type = types[input.below(std::size(types))];
    if (type == DBUS_TYPE_ARRAY) {
        append_array(to, input);
    } else if (type == DBUS_TYPE_VARIANT) {
        append_variant(to, input);
    } else if (type == DBUS_TYPE_STRUCT && depth < deepest) {
        append_struct(to, input, depth);
    } else if (type == DBUS_TYPE_STRING || type == DBUS_TYPE_OBJECT_PATH ||
               type == DBUS_TYPE_SIGNATURE) {
        append_text(to, type, input);
    } else {
        append_fixed(to, type == DBUS_TYPE_STRUCT ? DBUS_TYPE_INT32 : type, input);
    }
}

}  // namespace

std::optional<numbered_text> numbered_text_of(DBusMessage* message) {
    dbus_int32_t number = 0;
    const char* text = nullptr;
    if (!dbus_message_has_signature(message, "is") ||
        !dbus_message_get_args(message, nullptr, DBUS_TYPE_INT32, &number, DBUS_TYPE_STRING, &text,
                               DBUS_TYPE_INVALID)) {
        return std::nullopt;
    }
    return numbered_text{number, text};
}

std::optional<std::string> text_of(DBusMessage* message) {
    const char* text = nullptr;
    if (!dbus_message_has_signature(message, "s") ||
        !dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID)) {
        return std::nullopt;
    }
    return text;
}

void append_values(DBusMessage* message, input& input) {
    DBusMessageIter to;
    dbus_message_iter_init_append(message, &to);
    for (std::size_t left = input.below(6); left > 0; --left) {
        append_value(&to, input, 0);
    }
}

unique_bus_message make_message(const bus_names& usual, input& input) {
    constexpr int types[] = {DBUS_MESSAGE_TYPE_METHOD_CALL, DBUS_MESSAGE_TYPE_SIGNAL,
                             DBUS_MESSAGE_TYPE_METHOD_RETURN, DBUS_MESSAGE_TYPE_ERROR};
    const int type = types[input.below(4)];
    unique_bus_message message(dbus_message_new(type));
    dbus_message_set_path(message.get(), choose(usual.path, dbus_validate_path, input).c_str());
    dbus_message_set_interface(message.get(),
                               choose(usual.interface, dbus_validate_interface, input).c_str());
    dbus_message_set_member(message.get(),
                            choose(usual.member, dbus_validate_member, input).c_str());
    dbus_message_set_sender(message.get(),
                            choose(usual.sender, dbus_validate_bus_name, input).c_str());
    dbus_message_set_no_reply(message.get(), input.flag());
    if (type == DBUS_MESSAGE_TYPE_METHOD_RETURN || type == DBUS_MESSAGE_TYPE_ERROR) {
        dbus_message_set_reply_serial(message.get(), 1 + input.byte());
    }
    if (type == DBUS_MESSAGE_TYPE_ERROR) {
        dbus_message_set_error_name(
            message.get(), choose(DBUS_ERROR_FAILED, dbus_validate_error_name, input).c_str());
    }
    append_values(message.get(), input);
    return message;
}

}  // namespace vask_fuzz
