// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_np_instance.h"

#include <string.h>

vask_np_instance::vask_np_instance(const char* name)
    : vask_script(name),
      needs_xembed(true),
      npp(nullptr),
      preloaded(false),
      npobj_allocated(false),
      destroy_pending(false),
      npobj_deallocated(false) {}

vask_np_instance::~vask_np_instance() {
    vask_p(VASK_P_DBG, "%s\n", "virtual vask_np_instance::~vask_np_instance()");
}

void vask_np_instance::init_preload() {}

void vask_np_instance::parse_props(int16_t argc, char**, char**) {
    vask_p(VASK_P_DBG, "%s: %d\n",
           "virtual void vask_np_instance::parse_props(int16_t, char**, char**)", argc);
}

NPError vask_np_instance::set_window(NPP, NPWindow* window) {
    const char* signature = "virtual NPError vask_np_instance::set_window(NPP, NPWindow*)";
    if (window == nullptr) {
        vask_p(VASK_P_DBG, "%s\n", signature);
        return NPERR_NO_ERROR;
    }
    // Labelled h before w, but the width comes first: readers of these lines are used to it.
    vask_p(VASK_P_DBG, "%s: (x, y, h, w, id) = (%d, %d, %d, %d, %p)\n", signature, window->x,
           window->y, window->width, window->height, window->window);
    return NPERR_NO_ERROR;
}

NPError vask_np_instance::new_stream(NPP, NPMIMEType, NPStream*, NPBool, uint16_t*) {
    vask_p(VASK_P_DBG, "%s\n",
           "virtual NPError vask_np_instance::new_stream(NPP, NPMIMEType, NPStream*, NPBool, "
           "uint16*)");
    return NPERR_NO_ERROR;
}

NPError vask_np_instance::destroy_stream(NPP, NPStream*, NPReason) {
    vask_p(VASK_P_DBG, "%s\n",
           "virtual NPError vask_np_instance::destroy_stream(NPP, NPStream*, NPError)");
    return NPERR_NO_ERROR;
}

int32_t vask_np_instance::write_ready(NPP, NPStream*) {
    vask_p(VASK_P_DBG, "%s\n", "virtual int32_t vask_np_instance::write_ready(NPP, NPStream*)");
    return 0;
}

int32_t vask_np_instance::write(NPP, NPStream*, int32_t, int32_t, void*) {
    vask_p(VASK_P_DBG, "%s\n",
           "virtual int32_t vask_np_instance::write(NPP, NPStream*, int32_t, int32_t, void*)");
    return 0;
}

void vask_np_instance::stream_as_file(NPP, NPStream*, const char*) {
    vask_p(VASK_P_DBG, "%s\n",
           "virtual void vask_np_instance::stream_as_file(NPP, NPStream*, const char*)");
}

void vask_np_instance::url_notify(NPP, const char*, NPReason, void*) {
    vask_p(VASK_P_DBG, "%s\n",
           "virtual void vask_np_instance::url_notify(NPP, const char*, NPReason, void*)");
}

void vask_np_instance::print(NPP, NPPrint*) {
    vask_p(VASK_P_DBG, "%s\n", "virtual void vask_np_instance::print(NPP, NPPrint*)");
}

int16_t vask_np_instance::handle_event(NPP, void*) {
    vask_p(VASK_P_DBG, "%s\n", "virtual int16_t vask_np_instance::handle_event(NPP, void*)");
    return 0;
}

NPError vask_np_instance::set_value(NPP, NPNVariable, void*) {
    vask_p(VASK_P_DBG, "%s\n",
           "virtual NPError vask_np_instance::set_value(NPP, NPNVariable, void*)");
    return NPERR_NO_ERROR;
}

NPError vask_np_instance::get_value(NPP for_npp, NPPVariable variable, void* value) {
    vask_p(VASK_P_DBG, "%s: %d (%s)\n",
           "virtual NPError vask_np_instance::get_value(NPP, NPPVariable, void*)", variable,
           NPPVariable_to_type_descr(variable));
    switch (variable) {
        case NPPVpluginNeedsXEmbed:
            *static_cast<NPBool*>(value) = needs_xembed;
            return NPERR_NO_ERROR;
        case NPPVpluginScriptableInstance:
        case NPPVpluginScriptableIID:
            return NPERR_GENERIC_ERROR;
        case NPPVpluginScriptableNPObject:
            return get_scriptable(for_npp, static_cast<NPObject**>(value));
        default:
            vask_p(VASK_P_WARN, "Unknown value: %d\n", variable);
            return NPERR_INVALID_PARAM;
    }
}

NPError vask_np_instance::get_scriptable(NPP for_npp, NPObject** object) {
    if (for_npp == nullptr || for_npp->pdata == nullptr) {
        vask_p(VASK_P_ERR, "instance or instace->pdata is NULL\n");
        return NPERR_GENERIC_ERROR;
    }
    NPObject* created = NPN_CreateObject(for_npp, &vask_script_class);
    if (created == nullptr) {
        vask_p(VASK_P_ERR, "failed to create scriptable\n");
        return NPERR_GENERIC_ERROR;
    }
    *object = NPN_RetainObject(created);
    return NPERR_NO_ERROR;
}

void vask_np_instance::save_window_data(NPWindow* window) {
    if (window == nullptr) {
        return;
    }
    save_window_data(window->x, window->y, static_cast<int>(window->width),
                     static_cast<int>(window->height),
                     reinterpret_cast<vask_window_id_t>(window->window));
}

NPObject* vask_np_instance::create_npobj(const char* script) {
    if (npp == nullptr || script == nullptr) {
        return nullptr;
    }
    // The script may do anything, up to having this object deleted.
    const NPP its_npp = npp;
    NPObject* window = nullptr;
    const NPError error = NPNFuncs.getvalue(its_npp, NPNVWindowNPObject, &window);
    if (window == nullptr) {
        return nullptr;
    }
    NPObject* object = nullptr;
    if (error == NPERR_NO_ERROR) {
        NPString text = {script, static_cast<uint32_t>(strlen(script))};
        NPVariant result;
        VOID_TO_NPVARIANT(result);
        // A result that is no object is left alone.
        if (NPNFuncs.evaluate(its_npp, window, &text, &result) && NPVARIANT_IS_OBJECT(result)) {
            object = NPVARIANT_TO_OBJECT(result);
        }
    }
    NPNFuncs.releaseobject(window);
    return object;
}
