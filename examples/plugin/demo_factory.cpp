// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "demo_factory.h"

#include "demo_instance.h"

namespace {

// MIME type, file name extensions, description.
const char its_mime_description[] = "application/x-vask-demo:vaskdemo:Demonstration of a plug-in";

constexpr int ready_instances = 1;

}  // namespace

demo_factory::demo_factory()
    : vask_np_factory(its_mime_description, "demo_plugin", "Demonstration plug-in",
                      "Drives a child application for the page") {}

demo_factory::~demo_factory() {
    for (vask_np_instance* instance : preload_queue) {
        delete instance;
    }
}

vask_np_instance* demo_factory::create_instance() {
    return new demo_instance(obj_name);
}

NPError demo_factory::destroy_instance(NPP npp, NPSavedData** save) {
    // What the factory keeps in there is the base class, from where it is a static_cast.
    static_cast<demo_instance*>(static_cast<vask_np_instance*>(npp->pdata))->detach();
    return vask_np_factory::destroy_instance(npp, save);
}

NPError demo_factory::_NP_Initialize(NPNetscapeFuncs* browser, NPPluginFuncs* plugin) {
    const NPError error = vask_np_factory::_NP_Initialize(browser, plugin);
    if (error == NPERR_NO_ERROR && preload_count == 0) {
        set_preload(ready_instances);
    }
    return error;
}
