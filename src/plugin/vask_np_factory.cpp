// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_np_factory.h"

#include <glib.h>
#include <stdlib.h>

#include <memory>
#include <new>

#include "foundation/c_border.h"

vask_np_factory::vask_np_factory(const char* its_mime_description, const char* name,
                                 const char* its_plugin_name, const char* its_plugin_description)
    : vask_np_base(name),
      mime_description(its_mime_description),
      plugin_name(its_plugin_name),
      plugin_description(its_plugin_description),
      preload_count(0),
      pending_spawns(0) {
    vask_p(VASK_P_DBG, "%s\n",
           "vask_np_factory::vask_np_factory(const char*, const char*, const char*, const char*)");
}

// Instances that are still queued stay: they belong to a shared object that may be gone by now.
vask_np_factory::~vask_np_factory() = default;

vask_np_instance* vask_np_factory::create_instance() {
    vask_p(VASK_P_DBG, "%s\n", "virtual vask_np_instance* vask_np_factory::create_instance()");
    vask_p(VASK_P_DBG, "vask_np_factory::create_extended_vask_np_instance\n");
    try {
        return new vask_np_instance(obj_name);
    } catch (const std::bad_alloc&) {
        vask_p(VASK_P_ERR, "Failed to create data\n");
        return nullptr;
    }
}

unsigned int vask_np_factory::calc_delayed_spawn_time() {
    const double r = rand() / 2147483647.0;
    return static_cast<unsigned int>((r + r - 1.0) * 1000.0 + 3000.0);
}

NPError vask_np_factory::new_instance(NPMIMEType, NPP npp, uint16_t, int16_t argc, char** argn,
                                      char** argv, NPSavedData*) {
    vask_p(VASK_P_DBG, "%s\n",
           "virtual NPError vask_np_factory::new_instance(NPMIMEType, NPP, uint16_t, int16_t, "
           "char**, char**, NPSavedData*)");
    vask_np_instance* instance = preload_queue.empty() ? create_instance() : get_preload_instance();
    npp->pdata = instance;
    if (instance == nullptr) {
        vask_p(VASK_P_ERR, "Failed to create vask_np_instance");
        return NPERR_OUT_OF_MEMORY_ERROR;
    }
    instance->npp = npp;
    instance->parse_props(argc, argn, argv);
    return NPERR_NO_ERROR;
}

NPError vask_np_factory::destroy_instance(NPP npp, NPSavedData**) {
    vask_p(VASK_P_DBG, "%s\n",
           "virtual NPError vask_np_factory::destroy_instance(NPP, NPSavedData**)");
    vask_np_instance* instance = static_cast<vask_np_instance*>(npp->pdata);
    if (instance->npobj_allocated && !instance->npobj_deallocated) {
        // The release may delete the instance, which looks at this flag then.
        instance->destroy_pending = true;
        NPN_ReleaseObject(instance);
    } else {
        delete instance;
    }
    return NPERR_NO_ERROR;
}

NPError vask_np_factory::_NP_Initialize(NPNetscapeFuncs*, NPPluginFuncs*) {
    vask_p(VASK_P_DBG, "%s\n",
           "virtual NPError vask_np_factory::_NP_Initialize(NPNetscapeFuncs*, NPPluginFuncs*)");
    return NPERR_NO_ERROR;
}

NPError vask_np_factory::NP_GetValue(void*, NPPVariable variable, void* value) {
    vask_p(VASK_P_DBG, "%s\n",
           "virtual NPError vask_np_factory::NP_GetValue(void*, NPPVariable, void*)");
    switch (variable) {
        case NPPVpluginNameString:
            *static_cast<const char**>(value) = plugin_name;
            return NPERR_NO_ERROR;
        case NPPVpluginDescriptionString:
            *static_cast<const char**>(value) = plugin_description;
            return NPERR_NO_ERROR;
        default:
            vask_p(VASK_P_WARN, "Unknown variable %d\n", variable);
            return NPERR_INVALID_PARAM;
    }
}

char* vask_np_factory::NP_GetMimeDescription() {
    vask_p(VASK_P_DBG, "%s\n", "virtual char* vask_np_factory::NP_GetMimeDescription()");
    return const_cast<char*>(mime_description);
}

NPError vask_np_factory::NP_Shutdown() {
    vask_p(VASK_P_DBG, "%s\n", "virtual NPError vask_np_factory::NP_Shutdown()");
    return NPERR_NO_ERROR;
}

void vask_np_factory::set_preload(int count) {
    preload_count = count;
    for (int made = 0; made < count; ++made) {
        make_preload_instance();
    }
}

void vask_np_factory::make_preload_instance() {
    std::unique_ptr<vask_np_instance> instance(create_instance());
    if (instance == nullptr) {
        throw std::bad_alloc();
    }
    instance->init_preload();
    instance->preloaded = true;
    preload_queue.push_back(instance.get());
    instance.release();
}

vask_np_instance* vask_np_factory::get_preload_instance() {
    vask_np_instance* instance = preload_queue.front();
    preload_queue.pop_front();
    if (static_cast<int>(preload_queue.size()) + pending_spawns < preload_count) {
        ++pending_spawns;
        try {
            g_timeout_add(calc_delayed_spawn_time(), _delayed_spawn_preload_instance, this);
        } catch (...) {
            --pending_spawns;
            preload_queue.push_front(instance);
            throw;
        }
    }
    return instance;
}

int vask_np_factory::delayed_spawn_preload_instance() {
    make_preload_instance();
    --pending_spawns;
    return FALSE;
}

int vask_np_factory::_delayed_spawn_preload_instance(void* factory) {
    // The timer goes on and tries again: nobody else would if the queue is empty now.
    return call_for_c("vask_np_factory::delayed_spawn_preload_instance()", TRUE, [factory] {
        return static_cast<vask_np_factory*>(factory)->delayed_spawn_preload_instance();
    });
}
