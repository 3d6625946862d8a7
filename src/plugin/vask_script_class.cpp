// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "foundation/c_border.h"
#include "vask_np_instance.h"
#include "vask_script.h"

namespace {

// An operation may have the object deleted before it returns or throws.
template <typename... Parameters>
bool forward(const char* callback, bool (vask_script::*operation)(NPObject*, Parameters...),
             NPObject* object, Parameters... arguments) {
    return call_for_c(callback, false, [&] {
        return (static_cast<vask_script*>(object)->*operation)(object, arguments...);
    });
}

}  // namespace

NPClass vask_script_class = {NP_CLASS_STRUCT_VERSION_ENUM,
                             _vask_allocate,
                             _vask_deallocate,
                             vask_invalidate,
                             vask_has_method,
                             vask_invoke,
                             vask_invoke_default,
                             vask_has_property,
                             vask_get_property,
                             vask_set_property,
                             vask_remove_property,
                             vask_enumerate,
                             nullptr};

NPObject* _vask_allocate(NPP npp, NPClass*) {
    return call_for_c("_vask_allocate()", static_cast<NPObject*>(nullptr), [&]() -> NPObject* {
        vask_object::vask_p("vask", VASK_P_DBG, "%s: aNPP: %p\n",
                            "NPObject* _vask_allocate(NPP, NPClass*)", static_cast<void*>(npp));
        vask_np_instance* instance = static_cast<vask_np_instance*>(npp->pdata);
        instance->npobj_allocated = true;
        return instance;
    });
}

void _vask_deallocate(NPObject* object) {
    call_for_c("_vask_deallocate()", [&] {
        vask_object::vask_p("vask", VASK_P_DBG, "%s: aObject: %p\n",
                            "void _vask_deallocate(NPObject*)", static_cast<void*>(object));
        vask_np_instance* instance = static_cast<vask_np_instance*>(object);
        if (!instance->destroy_pending) {
            instance->npobj_deallocated = true;
            return;
        }
        delete instance;
    });
}

void vask_invalidate(NPObject* object) {
    call_for_c("vask_script::invalidate()",
               [&] { static_cast<vask_script*>(object)->invalidate(object); });
}

bool vask_has_method(NPObject* object, NPIdentifier name) {
    return forward("vask_script::has_method()", &vask_script::has_method, object, name);
}

bool vask_invoke(NPObject* object, NPIdentifier name, const NPVariant* args, uint32_t arg_count,
                 NPVariant* result) {
    return forward("vask_script::invoke()", &vask_script::invoke, object, name, args, arg_count,
                   result);
}

bool vask_invoke_default(NPObject* object, const NPVariant* args, uint32_t arg_count,
                         NPVariant* result) {
    return forward("vask_script::invoke_default()", &vask_script::invoke_default, object, args,
                   arg_count, result);
}

bool vask_has_property(NPObject* object, NPIdentifier name) {
    return forward("vask_script::has_property()", &vask_script::has_property, object, name);
}

bool vask_get_property(NPObject* object, NPIdentifier name, NPVariant* result) {
    return forward("vask_script::get_property()", &vask_script::get_property, object, name, result);
}

bool vask_set_property(NPObject* object, NPIdentifier name, const NPVariant* value) {
    return forward("vask_script::set_property()", &vask_script::set_property, object, name, value);
}

bool vask_remove_property(NPObject* object, NPIdentifier name) {
    return forward("vask_script::remove_property()", &vask_script::remove_property, object, name);
}

bool vask_enumerate(NPObject* object, NPIdentifier** names, uint32_t* count) {
    return forward("vask_script::enumerate()", &vask_script::enumerate, object, names, count);
}
