// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib-object.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bus/vask_marshal.h"
#include "child_marshallers.h"
#include "support/glib_log_catcher.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

int instance;
int user_data;
int third_party;

/** What a callback was called with, as text; the pointers by name. */
std::vector<std::string> calls;

std::string name_of(gconstpointer pointer) {
    return pointer == &instance      ? "instance"
           : pointer == &user_data   ? "user_data"
           : pointer == &third_party ? "third_party"
                                     : "unknown";
}

void note(gconstpointer first, const std::string& between, gconstpointer last) {
    calls.push_back(name_of(first) + " " + between + " " + name_of(last));
}

gboolean on_command(gpointer first, int id, const char* text, gpointer reply, gpointer error,
                    gpointer last) {
    note(first, std::to_string(id) + " " + text + " " + name_of(reply) + " " + name_of(error),
         last);
    return id > 0;
}

gboolean on_set_window(gpointer first, int x, int y, int w, int h, guint id, gpointer error,
                       gpointer last) {
    note(first,
         std::to_string(x) + " " + std::to_string(y) + " " + std::to_string(w) + " " +
             std::to_string(h) + " " + std::to_string(id) + " " + name_of(error),
         last);
    return x > 0;
}

void on_int_string(gpointer first, int id, const char* text, gpointer last) {
    note(first, std::to_string(id) + " " + text, last);
}

void on_uint_int_string(gpointer first, guint a, int b, const char* text, gpointer last) {
    note(first, std::to_string(a) + " " + std::to_string(b) + " " + text, last);
}

void on_marshal_data(gpointer, int, const char*, gpointer) {
    calls.push_back("marshal data");
}

/** The values that a marshaller gets, the instance first. */
class values {
public:
    values() { add_pointer(&instance); }
    ~values() {
        for (GValue& value : m_values) {
            g_value_unset(&value);
        }
    }
    values& add_int(int number) {
        g_value_set_int(add(G_TYPE_INT), number);
        return *this;
    }
    values& add_uint(guint number) {
        g_value_set_uint(add(G_TYPE_UINT), number);
        return *this;
    }
    values& add_string(const char* text) {
        g_value_set_static_string(add(G_TYPE_STRING), text);
        return *this;
    }
    values& add_pointer(gpointer pointer) {
        g_value_set_pointer(add(G_TYPE_POINTER), pointer);
        return *this;
    }
    guint count() const { return static_cast<guint>(m_values.size()); }
    const GValue* data() const { return m_values.data(); }

private:
    GValue* add(GType type) {
        m_values.push_back(G_VALUE_INIT);
        return g_value_init(&m_values.back(), type);
    }
    std::vector<GValue> m_values;
};

class marshallers : public testing::Test {
protected:
    marshallers() { g_value_init(&result, G_TYPE_BOOLEAN); }

    void set_callback(GCallback callback, bool swapped = false) {
        closure = swapped ? g_cclosure_new_swap(callback, &user_data, nullptr)
                          : g_cclosure_new(callback, &user_data, nullptr);
        g_closure_ref(closure);
        g_closure_sink(closure);
    }

    ~marshallers() override {
        if (closure) {
            g_closure_unref(closure);
        }
    }

    void call(GClosureMarshal marshaller, const values& parameters, GValue* return_value = nullptr,
              gpointer marshal_data = nullptr) {
        marshaller(closure, return_value, parameters.count(), parameters.data(), nullptr,
                   marshal_data);
    }

    static glib_log_catcher::entry failed_check(const char* marshaller, const char* check) {
        return {G_LOG_LEVEL_CRITICAL,
                std::string(marshaller) + ": assertion '" + check + "' failed"};
    }

    GClosure* closure = nullptr;
    GValue result = G_VALUE_INIT;
    glib_log_catcher log;
};

class command_marshaller : public marshallers {
protected:
    command_marshaller() {
        parameters.add_int(7).add_string("text").add_pointer(&third_party).add_pointer(&instance);
    }
    const GClosureMarshal marshaller =
        dbus_glib_marshal_vask_child_BOOLEAN__INT_STRING_POINTER_POINTER;
    const char* const name = "dbus_glib_marshal_vask_child_BOOLEAN__INT_STRING_POINTER_POINTER";
    values parameters;
};

class set_window_marshaller : public marshallers {
protected:
    set_window_marshaller() {
        parameters.add_int(1)
            .add_int(2)
            .add_int(3)
            .add_int(4)
            .add_uint(4000000000u)
            .add_pointer(&third_party);
    }
    const GClosureMarshal marshaller =
        dbus_glib_marshal_vask_child_BOOLEAN__INT_INT_INT_INT_UINT_POINTER;
    const char* const name = "dbus_glib_marshal_vask_child_BOOLEAN__INT_INT_INT_INT_UINT_POINTER";
    values parameters;
};

class int_string_marshaller : public marshallers {
protected:
    int_string_marshaller() { parameters.add_int(-7).add_string("text"); }
    const GClosureMarshal marshaller = g_cclosure_user_marshal_VOID__INT_STRING;
    const char* const name = "g_cclosure_user_marshal_VOID__INT_STRING";
    values parameters;
};

class uint_int_string_marshaller : public marshallers {
protected:
    uint_int_string_marshaller() {
        parameters.add_uint(4000000000u).add_int(-7).add_string("text");
    }
    const GClosureMarshal marshaller = g_cclosure_user_marshal_VOID__UINT_INT_STRING;
    const char* const name = "g_cclosure_user_marshal_VOID__UINT_INT_STRING";
    values parameters;
};

}  // namespace

TEST_F(command_marshaller, Calls_with_every_value_and_keeps_the_result) {
    set_callback(G_CALLBACK(on_command));
    call(marshaller, parameters, &result);
    EXPECT_THAT(calls, ElementsAre("instance 7 text third_party instance user_data"));
    EXPECT_TRUE(g_value_get_boolean(&result));
}

TEST_F(command_marshaller, Keeps_a_failure_too) {
    set_callback(G_CALLBACK(on_command));
    values other;
    other.add_int(0).add_string("").add_pointer(nullptr).add_pointer(nullptr);
    g_value_set_boolean(&result, TRUE);
    call(marshaller, other, &result);
    EXPECT_FALSE(g_value_get_boolean(&result));
}

TEST_F(command_marshaller, Exchanges_instance_and_data_of_a_swapped_closure) {
    set_callback(G_CALLBACK(on_command), true);
    call(marshaller, parameters, &result);
    EXPECT_THAT(calls, ElementsAre("user_data 7 text third_party instance instance"));
}

TEST_F(command_marshaller, Requires_room_for_the_result) {
    set_callback(G_CALLBACK(on_command));
    call(marshaller, parameters, nullptr);
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(log.entries, ElementsAre(failed_check(name, "return_value != NULL")));
}

TEST_F(command_marshaller, Requires_five_values) {
    set_callback(G_CALLBACK(on_command));
    call(marshaller, values().add_int(7), &result);
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(log.entries, ElementsAre(failed_check(name, "n_param_values == 5")));
}

TEST_F(set_window_marshaller, Calls_with_every_value_and_keeps_the_result) {
    set_callback(G_CALLBACK(on_set_window));
    call(marshaller, parameters, &result);
    EXPECT_THAT(calls, ElementsAre("instance 1 2 3 4 4000000000 third_party user_data"));
    EXPECT_TRUE(g_value_get_boolean(&result));
}

TEST_F(set_window_marshaller, Exchanges_instance_and_data_of_a_swapped_closure) {
    set_callback(G_CALLBACK(on_set_window), true);
    call(marshaller, parameters, &result);
    EXPECT_THAT(calls, ElementsAre("user_data 1 2 3 4 4000000000 third_party instance"));
}

TEST_F(set_window_marshaller, Requires_room_for_the_result) {
    set_callback(G_CALLBACK(on_set_window));
    call(marshaller, parameters, nullptr);
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(log.entries, ElementsAre(failed_check(name, "return_value != NULL")));
}

TEST_F(set_window_marshaller, Requires_seven_values) {
    set_callback(G_CALLBACK(on_set_window));
    call(marshaller, parameters.add_pointer(nullptr), &result);
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(log.entries, ElementsAre(failed_check(name, "n_param_values == 7")));
}

TEST_F(int_string_marshaller, Calls_with_every_value) {
    set_callback(G_CALLBACK(on_int_string));
    call(marshaller, parameters);
    EXPECT_THAT(calls, ElementsAre("instance -7 text user_data"));
}

TEST_F(int_string_marshaller, Exchanges_instance_and_data_of_a_swapped_closure) {
    set_callback(G_CALLBACK(on_int_string), true);
    call(marshaller, parameters);
    EXPECT_THAT(calls, ElementsAre("user_data -7 text instance"));
}

TEST_F(int_string_marshaller, Prefers_the_function_in_its_marshal_data) {
    set_callback(G_CALLBACK(on_int_string));
    call(marshaller, parameters, nullptr, reinterpret_cast<gpointer>(on_marshal_data));
    EXPECT_THAT(calls, ElementsAre("marshal data"));
}

TEST_F(int_string_marshaller, Requires_three_values) {
    set_callback(G_CALLBACK(on_int_string));
    call(marshaller, values().add_int(1));
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(log.entries, ElementsAre(failed_check(name, "n_param_values == 3")));
}

TEST_F(uint_int_string_marshaller, Calls_with_every_value) {
    set_callback(G_CALLBACK(on_uint_int_string));
    call(marshaller, parameters);
    EXPECT_THAT(calls, ElementsAre("instance 4000000000 -7 text user_data"));
}

TEST_F(uint_int_string_marshaller, Exchanges_instance_and_data_of_a_swapped_closure) {
    set_callback(G_CALLBACK(on_uint_int_string), true);
    call(marshaller, parameters);
    EXPECT_THAT(calls, ElementsAre("user_data 4000000000 -7 text instance"));
}

TEST_F(uint_int_string_marshaller, Requires_four_values) {
    set_callback(G_CALLBACK(on_uint_int_string));
    call(marshaller, parameters.add_int(1));
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(log.entries, ElementsAre(failed_check(name, "n_param_values == 4")));
}
