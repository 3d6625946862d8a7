// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dbus/dbus-glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "bus/vask_marshal.h"
#include "child/vask_child_object.h"
#include "child_marshallers.h"
#include "support/glib_log_catcher.h"
#include "support/interpose.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(offsetof(_VaskChild, owner) == sizeof(GObject), "nothing between the two");
static_assert(sizeof(_VaskChild) == sizeof(GObject) + sizeof(void*), "one pointer");
static_assert(sizeof(VaskChildClass) == sizeof(GObjectClass), "nothing added");

namespace {

const DBusGObjectInfo* installed_info = nullptr;
GType installed_for = 0;
int installations = 0;

struct {
    guint class_offset;
    GSignalAccumulator accumulator;
    GSignalCMarshaller marshaller;
} noted_signal;

struct object_unref {
    void operator()(VaskChild* object) const { g_object_unref(object); }
};

class child_object : public testing::Test {
protected:
    vask_child* const owner = reinterpret_cast<vask_child*>(&installations);
    std::unique_ptr<VaskChild, object_unref> object{vask_child_object_new(owner)};
    GObjectClass* const object_class = G_OBJECT_GET_CLASS(object.get());
};

std::string bytes(const char* begin, std::size_t count) {
    return std::string(begin, count);
}

}  // namespace

extern "C" void dbus_g_object_type_install_info(GType type, const DBusGObjectInfo* info) {
    installed_for = type;
    installed_info = info;
    ++installations;
    next_function<void(GType, const DBusGObjectInfo*)>("dbus_g_object_type_install_info")(type,
                                                                                          info);
}

// Notes what GLib does not tell about a signal later.
extern "C" guint g_signal_new(const char* name, GType type, GSignalFlags flags, guint class_offset,
                              GSignalAccumulator accumulator, gpointer accumulator_data,
                              GSignalCMarshaller marshaller, GType return_type, guint n_params,
                              ...) {
    if (type == vask_child_get_type()) {
        noted_signal = {class_offset, accumulator, marshaller};
    }
    GClosure* class_closure =
        class_offset != 0 ? g_signal_type_cclosure_new(type, class_offset) : nullptr;
    va_list types;
    va_start(types, n_params);
    const guint id =
        g_signal_new_valist(name, type, flags, class_closure, accumulator, accumulator_data,
                            marshaller, return_type, n_params, types);
    va_end(types);
    return id;
}

TEST_F(child_object, Has_a_type_of_its_own) {
    const GType type = G_OBJECT_TYPE(object.get());
    EXPECT_STREQ(g_type_name(type), "VaskChild");
    EXPECT_EQ(g_type_parent(type), G_TYPE_OBJECT);
    EXPECT_FALSE(G_TYPE_IS_ABSTRACT(type));
    guint interfaces = 0;
    g_free(g_type_interfaces(type, &interfaces));
    EXPECT_EQ(interfaces, 0u);
}

TEST_F(child_object, Is_a_gobject_and_one_pointer) {
    GTypeQuery query;
    g_type_query(G_OBJECT_TYPE(object.get()), &query);
    EXPECT_EQ(query.instance_size, sizeof(GObject) + sizeof(void*));
    EXPECT_EQ(query.class_size, sizeof(GObjectClass));
}

TEST_F(child_object, Has_the_same_type_at_every_call) {
    EXPECT_EQ(vask_child_get_type(), vask_child_get_type());
    EXPECT_EQ(vask_child_get_type(), G_OBJECT_TYPE(object.get()));
}

TEST(child_object_type, Is_registered_once_by_many_threads) {
    const auto get = [](gpointer) -> gpointer { return GSIZE_TO_POINTER(vask_child_get_type()); };
    std::vector<GThread*> threads;
    for (int i = 0; i < 8; ++i) {
        threads.push_back(g_thread_new("type", get, nullptr));
    }
    for (GThread* thread : threads) {
        EXPECT_EQ(GPOINTER_TO_SIZE(g_thread_join(thread)), vask_child_get_type());
    }
}

TEST_F(child_object, Starts_with_its_owner) {
    EXPECT_EQ(object->owner, owner);
}

TEST_F(child_object, Has_one_signal) {
    guint count = 0;
    guint* ids = g_signal_list_ids(G_OBJECT_TYPE(object.get()), &count);
    ASSERT_EQ(count, 1u);
    GSignalQuery query;
    g_signal_query(ids[0], &query);
    g_free(ids);
    EXPECT_EQ(query.signal_id, g_signal_lookup("child_signal", G_OBJECT_TYPE(object.get())));
    EXPECT_EQ(query.signal_flags, G_SIGNAL_RUN_LAST);
    EXPECT_EQ(query.return_type, G_TYPE_NONE);
    ASSERT_EQ(query.n_params, 2u);
    EXPECT_EQ(query.param_types[0], G_TYPE_INT);
    EXPECT_EQ(query.param_types[1], G_TYPE_STRING);
}

TEST_F(child_object, Has_a_signal_with_its_own_marshaller_and_nothing_else) {
    EXPECT_EQ(noted_signal.marshaller, g_cclosure_user_marshal_VOID__INT_STRING);
    EXPECT_EQ(noted_signal.class_offset, 0u);
    EXPECT_EQ(noted_signal.accumulator, nullptr);
}

TEST_F(child_object, Raises_its_signal_without_detail) {
    struct heard {
        int signal_id;
        std::string data;
        int times;
        GQuark detail;
    } ear{};
    const auto hear = +[](GObject* instance, int signal_id, const char* data, gpointer user_data) {
        heard& result = *static_cast<heard*>(user_data);
        result = {signal_id, data, result.times + 1,
                  g_signal_get_invocation_hint(instance)->detail};
    };
    g_signal_connect(object.get(), "child_signal", G_CALLBACK(hear), &ear);
    vask_child_object_emit(object.get(), -5, "data");
    EXPECT_EQ(ear.signal_id, -5);
    EXPECT_EQ(ear.data, "data");
    EXPECT_EQ(ear.times, 1);
    EXPECT_EQ(ear.detail, 0u);
}

TEST_F(child_object, Has_one_property_that_can_only_be_written) {
    guint count = 0;
    GParamSpec** specs = g_object_class_list_properties(object_class, &count);
    ASSERT_EQ(count, 1u);
    const GParamSpec* spec = specs[0];
    g_free(specs);
    EXPECT_EQ(spec, g_object_class_find_property(object_class, "obj_addr"));
    EXPECT_EQ(G_PARAM_SPEC_TYPE(spec), G_TYPE_PARAM_POINTER);
    EXPECT_EQ(spec->value_type, G_TYPE_POINTER);
    EXPECT_EQ(spec->flags & G_PARAM_READWRITE, G_PARAM_WRITABLE);
    EXPECT_EQ(spec->flags & (G_PARAM_CONSTRUCT | G_PARAM_CONSTRUCT_ONLY), 0);
    EXPECT_STREQ(g_param_spec_get_nick(const_cast<GParamSpec*>(spec)), "Object Address");
    EXPECT_STREQ(g_param_spec_get_blurb(const_cast<GParamSpec*>(spec)),
                 "The address of the object");
}

TEST_F(child_object, Stores_the_address_that_is_set) {
    int other = 0;
    g_object_set(object.get(), "obj_addr", &other, nullptr);
    EXPECT_EQ(static_cast<void*>(object->owner), &other);
    vask_child_object_set_owner(object.get(), nullptr);
    EXPECT_EQ(object->owner, nullptr);
}

TEST_F(child_object, Complains_about_a_property_that_it_does_not_know) {
    GValue value = G_VALUE_INIT;
    g_value_init(&value, G_TYPE_POINTER);
    glib_log_catcher log;
    object_class->set_property(G_OBJECT(object.get()), 2, &value, nullptr);
    object_class->set_property(G_OBJECT(object.get()), 0, &value, nullptr);
    ASSERT_EQ(log.entries.size(), 2u);
    EXPECT_EQ(log.entries[0].level, G_LOG_LEVEL_WARNING);
    EXPECT_EQ(log.entries[0].text, "Unknown prop_id: 2 @ vask_child_set_property()\n");
    EXPECT_EQ(log.entries[1].text, "Unknown prop_id: 0 @ vask_child_set_property()\n");
    EXPECT_EQ(object->owner, owner);
    g_value_unset(&value);
}

TEST_F(child_object, Describes_its_interface_to_the_bus_library_at_every_construction) {
    EXPECT_EQ(installations, 1);
    EXPECT_EQ(installed_for, G_OBJECT_TYPE(object.get()));
    g_object_unref(vask_child_object_new(owner));
    EXPECT_EQ(installations, 2);
}

TEST_F(child_object, Has_two_methods_with_their_marshallers) {
    ASSERT_NE(installed_info, nullptr);
    ASSERT_EQ(installed_info->n_method_infos, 2);
    const DBusGMethodInfo* methods = installed_info->method_infos;
    EXPECT_EQ(methods[0].function, G_CALLBACK(vask_child_command));
    EXPECT_EQ(methods[0].marshaller,
              dbus_glib_marshal_vask_child_BOOLEAN__INT_STRING_POINTER_POINTER);
    EXPECT_EQ(methods[1].function, G_CALLBACK(vask_child_set_window));
    EXPECT_EQ(methods[1].marshaller,
              dbus_glib_marshal_vask_child_BOOLEAN__INT_INT_INT_INT_UINT_POINTER);
}

TEST_F(child_object, Describes_synchronous_methods_and_a_reply_that_is_not_freed) {
    static const char command[] =
        "com.example.vask.Child\0Command\0S\0"
        "CommandId\0I\0i\0Argument\0I\0s\0Reply\0O\0C\0N\0s\0";
    static const char set_window[] =
        "com.example.vask.Child\0SetWindow\0S\0"
        "x\0I\0i\0y\0I\0i\0w\0I\0i\0h\0I\0i\0id\0I\0u\0";
    const DBusGMethodInfo* methods = installed_info->method_infos;
    EXPECT_EQ(bytes(installed_info->data + methods[0].data_offset, sizeof command),
              bytes(command, sizeof command));
    EXPECT_EQ(bytes(installed_info->data + methods[1].data_offset, sizeof set_window),
              bytes(set_window, sizeof set_window));
}

TEST_F(child_object, Exports_its_signal_and_no_property) {
    static const char signals[] = "com.example.vask.Child\0ChildSignal\0";
    EXPECT_EQ(bytes(installed_info->exported_signals, sizeof signals),
              bytes(signals, sizeof signals));
    EXPECT_EQ(bytes(installed_info->exported_properties, 1), bytes("", 1));
}

TEST_F(child_object, Without_an_owner_fails_every_call_and_leaves_the_error_empty) {
    vask_child_object_set_owner(object.get(), nullptr);
    const char untouched[] = "untouched";
    const char* reply = untouched;
    GError* error = nullptr;
    EXPECT_FALSE(vask_child_command(object.get(), 1, "", &reply, &error));
    EXPECT_FALSE(vask_child_set_window(object.get(), 1, 2, 3, 4, 5, &error));
    EXPECT_EQ(reply, untouched);
    EXPECT_EQ(error, nullptr);
}
