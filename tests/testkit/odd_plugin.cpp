// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Plug-ins that do not need the library; each one is odd in the way that its definition says.

#include <npapi/npfunctions.h>

#include <cstdlib>

namespace {

[[maybe_unused]] NPError answer_well(NPMIMEType, NPP, uint16_t, int16_t, char**, char**,
                                     NPSavedData*) {
    return NPERR_NO_ERROR;
}

[[maybe_unused]] NPError answer_well(NPP, NPSavedData**) {
    return NPERR_NO_ERROR;
}

NPNetscapeFuncs the_browser;
void* volatile the_lost_memory = nullptr;
int late_calls = 0;

}  // namespace

/** Never gives back what it allocates. */
extern "C" __attribute__((visibility("default"))) void odd_plugin_leaks() {
    // What the browser notes is whoever has to go on after the call.
    the_lost_memory = the_browser.memalloc(42);
}

/** Wants to be called later. */
extern "C" __attribute__((visibility("default"))) void odd_plugin_calls_later() {
    the_browser.pluginthreadasynccall(
        nullptr, [](void*) { ++late_calls; }, nullptr);
}

extern "C" __attribute__((visibility("default"))) char* NP_GetMIMEDescription() {
    static char description[] = "application/x-odd:odd:Odd;application/x-odder::";
    return description;
}

NPError NP_GetValue(void*, NPPVariable variable, void* value) {
#ifndef WITHOUT_TEXTS
    if (variable == NPPVpluginNameString || variable == NPPVpluginDescriptionString) {
        *static_cast<const char**>(value) = variable == NPPVpluginNameString ? "Odd" : "Not even";
        return NPERR_NO_ERROR;
    }
#endif
    static_cast<void>(variable);
    static_cast<void>(value);
    return NPERR_INVALID_PARAM;
}

NPError NP_Initialize(NPNetscapeFuncs* browser, NPPluginFuncs* plugin) {
#ifdef WITHOUT_ANSWER
    return NPERR_INCOMPATIBLE_VERSION_ERROR;
#endif
#ifndef WITHOUT_FUNCTIONS
    plugin->newp = answer_well;
    plugin->destroy = answer_well;
#endif
    // For whoever wants to see when it comes.
    browser->status(nullptr, "initialized");
    the_browser = *browser;
    static_cast<void>(plugin);
    return NPERR_NO_ERROR;
}

#ifndef WITHOUT_SHUTDOWN
NPError NP_Shutdown() {
    setenv("ODD_PLUGIN", "shut down", 1);
    return NPERR_NO_ERROR;
}
#endif
