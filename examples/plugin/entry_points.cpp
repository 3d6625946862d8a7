// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What the browser finds in the shared object. Each function hands its call on, to the factory or
// to the instance behind the NPP, and lets no exception out.

#include <npapi/npfunctions.h>
#include <string.h>

#include <algorithm>
#include <new>

#include "demo_factory.h"
#include "exception_barrier.h"

namespace {

// It outlasts NP_Shutdown: its preload timer may still be waiting then, and most browsers come back
// with another NP_Initialize. The shared object is never unmapped, so that this lives until the
// browser's process ends.
demo_factory& the_factory() {
    static demo_factory factory;
    return factory;
}

vask_np_instance* instance_of(NPP npp) {
    return npp != nullptr ? static_cast<vask_np_instance*>(npp->pdata) : nullptr;
}

/** Makes a call on the instance behind an NPP; browsers do come with an NPP that has none. */
template <typename Result, typename Call>
Result on_instance(const char* function, NPP npp, Result on_failure, Call call) {
    return end_exceptions(function, on_failure, [&] {
        vask_np_instance* instance = instance_of(npp);
        return instance != nullptr ? call(*instance) : on_failure;
    });
}

template <typename Call>
void on_instance(const char* function, NPP npp, Call call) {
    on_instance(function, npp, false, [&call](vask_np_instance& instance) {
        call(instance);
        return true;
    });
}

NPError destroy_instance(NPP npp, NPSavedData** save) {
    if (instance_of(npp) == nullptr) {
        return NPERR_INVALID_INSTANCE_ERROR;
    }
    const NPError error = end_exceptions("NPP_Destroy", NPError(NPERR_GENERIC_ERROR),
                                         [&] { return the_factory().destroy_instance(npp, save); });
    npp->pdata = nullptr;
    return error;
}

NPError new_instance(NPMIMEType type, NPP npp, uint16_t mode, int16_t argc, char** argn,
                     char** argv, NPSavedData* saved) {
    if (npp == nullptr) {
        return NPERR_INVALID_INSTANCE_ERROR;
    }
    npp->pdata = nullptr;
    const NPError error = end_exceptions("NPP_New", NPError(NPERR_OUT_OF_MEMORY_ERROR), [&] {
        return the_factory().new_instance(type, npp, mode, argc, argn, argv, saved);
    });
    if (error != NPERR_NO_ERROR) {
        // The browser does not come with NPP_Destroy for what it has not got.
        destroy_instance(npp, nullptr);
    }
    return error;
}

NPError set_window(NPP npp, NPWindow* window) {
    return on_instance(
        "NPP_SetWindow", npp, NPError(NPERR_INVALID_INSTANCE_ERROR),
        [=](vask_np_instance& instance) { return instance.set_window(npp, window); });
}

NPError new_stream(NPP npp, NPMIMEType type, NPStream* stream, NPBool seekable, uint16_t* stype) {
    return on_instance("NPP_NewStream", npp, NPError(NPERR_INVALID_INSTANCE_ERROR),
                       [=](vask_np_instance& instance) {
                           return instance.new_stream(npp, type, stream, seekable, stype);
                       });
}

NPError destroy_stream(NPP npp, NPStream* stream, NPReason reason) {
    return on_instance(
        "NPP_DestroyStream", npp, NPError(NPERR_INVALID_INSTANCE_ERROR),
        [=](vask_np_instance& instance) { return instance.destroy_stream(npp, stream, reason); });
}

void stream_as_file(NPP npp, NPStream* stream, const char* file_name) {
    on_instance("NPP_StreamAsFile", npp, [=](vask_np_instance& instance) {
        instance.stream_as_file(npp, stream, file_name);
    });
}

int32_t write_ready(NPP npp, NPStream* stream) {
    return on_instance("NPP_WriteReady", npp, int32_t{0}, [=](vask_np_instance& instance) {
        return instance.write_ready(npp, stream);
    });
}

int32_t write(NPP npp, NPStream* stream, int32_t offset, int32_t len, void* buffer) {
    return on_instance("NPP_Write", npp, int32_t{-1}, [=](vask_np_instance& instance) {
        return instance.write(npp, stream, offset, len, buffer);
    });
}

void print(NPP npp, NPPrint* page) {
    on_instance("NPP_Print", npp, [=](vask_np_instance& instance) { instance.print(npp, page); });
}

int16_t handle_event(NPP npp, void* event) {
    return on_instance("NPP_HandleEvent", npp, int16_t{0}, [=](vask_np_instance& instance) {
        return instance.handle_event(npp, event);
    });
}

void url_notify(NPP npp, const char* url, NPReason reason, void* notify_data) {
    on_instance("NPP_URLNotify", npp, [=](vask_np_instance& instance) {
        instance.url_notify(npp, url, reason, notify_data);
    });
}

NPError get_value(NPP npp, NPPVariable variable, void* value) {
    return on_instance(
        "NPP_GetValue", npp, NPError(NPERR_INVALID_INSTANCE_ERROR),
        [=](vask_np_instance& instance) { return instance.get_value(npp, variable, value); });
}

NPError set_value(NPP npp, NPNVariable variable, void* value) {
    return on_instance(
        "NPP_SetValue", npp, NPError(NPERR_INVALID_INSTANCE_ERROR),
        [=](vask_np_instance& instance) { return instance.set_value(npp, variable, value); });
}

bool is_new_enough(const NPNetscapeFuncs& browser) {
    return browser.version >> 8 == NP_VERSION_MAJOR &&
           (browser.version & 0xff) >= NPVERS_HAS_NPRUNTIME_SCRIPTING;
}

void copy_browser_functions(const NPNetscapeFuncs& browser) {
    NPNetscapeFuncs& copy = vask_np_base::NPNFuncs;
    memset(&copy, 0, sizeof copy);
    memcpy(&copy, &browser, std::min<size_t>(browser.size, sizeof copy));
    vask_np_base::setNPNFuncs = true;
}

// The table may be longer than this interface knows, so that its size stays.
void fill_plugin_functions(NPPluginFuncs& plugin) {
    plugin.version = (NP_VERSION_MAJOR << 8) | NP_VERSION_MINOR;
    plugin.newp = new_instance;
    plugin.destroy = destroy_instance;
    plugin.setwindow = set_window;
    plugin.newstream = new_stream;
    plugin.destroystream = destroy_stream;
    plugin.asfile = stream_as_file;
    plugin.writeready = write_ready;
    plugin.write = write;
    plugin.print = print;
    plugin.event = handle_event;
    plugin.urlnotify = url_notify;
    plugin.javaClass = nullptr;
    plugin.getvalue = get_value;
    plugin.setvalue = set_value;
}

}  // namespace

extern "C" {

NP_EXPORT(NPError) NP_Initialize(NPNetscapeFuncs* browser, NPPluginFuncs* plugin) {
    if (browser == nullptr || plugin == nullptr || plugin->size < sizeof *plugin) {
        return NPERR_INVALID_FUNCTABLE_ERROR;
    }
    if (!is_new_enough(*browser)) {
        return NPERR_INCOMPATIBLE_VERSION_ERROR;
    }
    return end_exceptions("NP_Initialize", NPError(NPERR_OUT_OF_MEMORY_ERROR), [=] {
        copy_browser_functions(*browser);
        fill_plugin_functions(*plugin);
        return the_factory()._NP_Initialize(browser, plugin);
    });
}

NP_EXPORT(NPError) NP_Shutdown() {
    return end_exceptions("NP_Shutdown", NPError(NPERR_GENERIC_ERROR),
                          [] { return the_factory().NP_Shutdown(); });
}

// The browser may ask for these two before NP_Initialize.

NP_EXPORT(NPError) NP_GetValue(void* future, NPPVariable variable, void* value) {
    return end_exceptions("NP_GetValue", NPError(NPERR_GENERIC_ERROR),
                          [=] { return the_factory().NP_GetValue(future, variable, value); });
}

NP_EXPORT(const char*) NP_GetMIMEDescription();

NP_EXPORT(const char*) NP_GetMIMEDescription() {
    return end_exceptions("NP_GetMIMEDescription", static_cast<const char*>(nullptr),
                          []() -> const char* { return the_factory().NP_GetMimeDescription(); });
}

}  // extern "C"
