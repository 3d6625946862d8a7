// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "child/vask_child_object.h"

#include <dbus/dbus-glib.h>

#include "bus/session_bus.h"
#include "bus/vask_marshal.h"
#include "foundation/c_border.h"

// The generated marshallers name themselves in failed checks, by their plain names as in C.
#undef G_STRFUNC
#define G_STRFUNC __func__
#include "child/vask_child_glue.h"

namespace {

enum property_id : guint { PROP_OBJ_ADDR = 1 };

guint child_signal_id = 0;
gpointer parent_class = nullptr;

void vask_child_set_property(GObject* object, guint prop_id, const GValue* value, GParamSpec*) {
    switch (prop_id) {
        case PROP_OBJ_ADDR:
            reinterpret_cast<VaskChild*>(object)->owner =
                static_cast<vask_child*>(g_value_get_pointer(value));
            break;
        default:
            g_log(nullptr, G_LOG_LEVEL_WARNING, "Unknown prop_id: %d @ vask_child_set_property()\n",
                  static_cast<int>(prop_id));
            break;
    }
}

void vask_child_class_init(gpointer klass, gpointer) {
    parent_class = g_type_class_peek_parent(klass);
    child_signal_id = g_signal_new("child_signal", G_TYPE_FROM_CLASS(klass), G_SIGNAL_RUN_LAST, 0,
                                   nullptr, nullptr, g_cclosure_user_marshal_VOID__INT_STRING,
                                   G_TYPE_NONE, 2, G_TYPE_INT, G_TYPE_STRING);

    GObjectClass* object_class = G_OBJECT_CLASS(klass);
    object_class->set_property = vask_child_set_property;
    g_object_class_install_property(
        object_class, PROP_OBJ_ADDR,
        g_param_spec_pointer("obj_addr", "Object Address", "The address of the object",
                             G_PARAM_WRITABLE));
}

void vask_child_instance_init(GTypeInstance*, gpointer) {}

}  // namespace

GType vask_child_get_type() {
    static gsize type = 0;
    if (g_once_init_enter(&type)) {
        const GType registered = g_type_register_static_simple(
            G_TYPE_OBJECT, "VaskChild", sizeof(VaskChildClass), vask_child_class_init,
            sizeof(VaskChild), vask_child_instance_init, static_cast<GTypeFlags>(0));
        g_once_init_leave(&type, registered);
    }
    return type;
}

VaskChild* vask_child_object_new(vask_child* owner) {
    const GType type = vask_child_get_type();
    void* object = g_object_new(type, "obj_addr", owner, nullptr);
    dbus_g_object_type_install_info(type, &dbus_glib_vask_child_object_info);
    return static_cast<VaskChild*>(object);
}

void vask_child_object_set_owner(VaskChild* object, vask_child* owner) {
    g_object_set(object, "obj_addr", owner, nullptr);
}

void vask_child_object_emit(VaskChild* object, int signal_id, const char* data) {
    g_signal_emit(object, child_signal_id, 0, signal_id, data);
}

// A failure leaves the error empty; dbus-glib then answers with an error of its own.
gboolean vask_child_command(VaskChild* object, int id, const char* argument, const char** reply,
                            GError**) {
    if (object->owner == nullptr) {
        return FALSE;
    }
    const auto call = [&] { return object->owner->command(id, argument, reply); };
    if (!call_for_c("vask_child::command()", false, call)) {
        return FALSE;
    }
    if (const char* problem = find_text_problem(*reply)) {
        vask_object::vask_p("vask_child", VASK_P_ERR, "Failed to reply to command %d: %s\n", id,
                            problem);
        return FALSE;
    }
    return TRUE;
}

gboolean vask_child_set_window(VaskChild* object, int x, int y, int w, int h, unsigned int id,
                               GError**) {
    if (object->owner == nullptr) {
        return FALSE;
    }
    return call_for_c("vask_child::set_window()",
                      [&] { object->owner->set_window(x, y, w, h, id); });
}
