// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What the browser finds in the shared object. Each function hands its call on, and lets no
// exception out.

#include <npapi/npfunctions.h>
#include <stdlib.h>
#include <string.h>
#include <vask_np_factory.h>

#include <algorithm>

#include "meter_instance.h"

namespace {

class meter_factory : public vask_np_factory {
public:
    meter_factory()
        : vask_np_factory("application/x-meter::Meter", "meter", "Meter",
                          "Shows what is measured") {}

    vask_np_instance* create_instance() override {
        const char* program = getenv("METER_CHILD");
        return new meter_instance(program ? program : METER_CHILD);
    }
};

// The browser may ask for the plug-in's name before NP_Initialize.
meter_factory& the_factory() {
    static meter_factory factory;
    return factory;
}

vask_np_instance* instance_of(NPP npp) {
    return npp != nullptr ? static_cast<vask_np_instance*>(npp->pdata) : nullptr;
}

template <typename Call>
NPError end_exceptions(Call call) {
    try {
        return call();
    } catch (const std::exception& error) {
        vask_object::vask_p("meter", VASK_P_ERR, "%s\n", error.what());
        return NPERR_GENERIC_ERROR;
    }
}

NPError destroy_instance(NPP npp, NPSavedData** save) {
    if (instance_of(npp) == nullptr) {
        return NPERR_INVALID_INSTANCE_ERROR;
    }
    const NPError error = end_exceptions([=] {
        static_cast<meter_instance*>(instance_of(npp))->detach();
        return the_factory().destroy_instance(npp, save);
    });
    npp->pdata = nullptr;
    return error;
}

NPError new_instance(NPMIMEType type, NPP npp, uint16_t mode, int16_t argc, char** argn,
                     char** argv, NPSavedData* saved) {
    if (npp == nullptr) {
        return NPERR_INVALID_INSTANCE_ERROR;
    }
    npp->pdata = nullptr;
    const NPError error = end_exceptions(
        [=] { return the_factory().new_instance(type, npp, mode, argc, argn, argv, saved); });
    if (error != NPERR_NO_ERROR) {
        // The browser does not come with NPP_Destroy for what it has not got.
        destroy_instance(npp, nullptr);
    }
    return error;
}

NPError set_window(NPP npp, NPWindow* window) {
    vask_np_instance* instance = instance_of(npp);
    return instance ? end_exceptions([=] { return instance->set_window(npp, window); })
                    : NPError(NPERR_INVALID_INSTANCE_ERROR);
}

NPError get_value(NPP npp, NPPVariable variable, void* value) {
    vask_np_instance* instance = instance_of(npp);
    return instance ? end_exceptions([=] { return instance->get_value(npp, variable, value); })
                    : NPError(NPERR_INVALID_INSTANCE_ERROR);
}

}  // namespace

extern "C" {

NP_EXPORT(NPError) NP_Initialize(NPNetscapeFuncs* browser, NPPluginFuncs* plugin) {
    if (browser == nullptr || plugin == nullptr || plugin->size < sizeof *plugin) {
        return NPERR_INVALID_FUNCTABLE_ERROR;
    }
    return end_exceptions([=] {
        memset(&vask_np_base::NPNFuncs, 0, sizeof vask_np_base::NPNFuncs);
        memcpy(&vask_np_base::NPNFuncs, browser,
               std::min<size_t>(browser->size, sizeof vask_np_base::NPNFuncs));
        vask_np_base::setNPNFuncs = true;
        plugin->version = (NP_VERSION_MAJOR << 8) | NP_VERSION_MINOR;
        plugin->newp = new_instance;
        plugin->destroy = destroy_instance;
        plugin->setwindow = set_window;
        plugin->getvalue = get_value;
        return the_factory()._NP_Initialize(browser, plugin);
    });
}

NP_EXPORT(NPError) NP_Shutdown() {
    return end_exceptions([] { return the_factory().NP_Shutdown(); });
}

NP_EXPORT(NPError) NP_GetValue(void* future, NPPVariable variable, void* value) {
    return end_exceptions([=] { return the_factory().NP_GetValue(future, variable, value); });
}

NP_EXPORT(const char*) NP_GetMIMEDescription();

NP_EXPORT(const char*) NP_GetMIMEDescription() {
    return the_factory().NP_GetMimeDescription();
}

}  // extern "C"
