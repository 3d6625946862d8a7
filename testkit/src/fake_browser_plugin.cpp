// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What a browser does with the file of a plug-in.

#include <dlfcn.h>

#include <stdexcept>
#include <utility>

#include "vask_test/fake_browser.h"

namespace vask_test {

namespace {

template <typename Function>
Function* entry_point(void* library, const std::string& path, const char* name) {
    void* symbol = dlsym(library, name);
    if (!symbol) {
        dlclose(library);
        throw std::runtime_error(path + " has no " + name);
    }
    return reinterpret_cast<Function*>(symbol);
}

std::string text_of(decltype(NP_GetValue)* get_value, NPPVariable variable) {
    const char* text = nullptr;
    const NPError error = get_value(nullptr, variable, &text);
    return error == NPERR_NO_ERROR && text ? text : "";
}

}  // namespace

// What the plug-in has left is told later, when its functions have no names any more.
void fake_browser::close_library(void* library) {
    const auto names = std::make_shared<call_place::name_map>();
    for (auto& block : m_memory) {
        block.second.place.keep_names(names);
    }
    for (ledger_entry& entry : m_ledger) {
        entry.place.keep_names(names);
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_async_calls.clear();
    }
    dlclose(library);
}

NPError fake_browser::load(const std::string& path) {
    unload();
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        throw std::runtime_error(dlerror());
    }
    const auto get_types = entry_point<char*()>(library, path, "NP_GetMIMEDescription");
    const auto get_value = entry_point<decltype(NP_GetValue)>(library, path, "NP_GetValue");
    const auto initialize = entry_point<decltype(NP_Initialize)>(library, path, "NP_Initialize");
    entry_point<decltype(NP_Shutdown)>(library, path, "NP_Shutdown");

    // Browsers show these of plug-ins that no page has used yet.
    const char* types = get_types();
    m_types = types ? types : "";
    m_name = text_of(get_value, NPPVpluginNameString);
    m_description = text_of(get_value, NPPVpluginDescriptionString);

    NPPluginFuncs plugin{};
    plugin.size = sizeof plugin;
    plugin.version = m_functions.version;
    const NPError answer = initialize(&m_functions, &plugin);
    if (answer != NPERR_NO_ERROR) {
        close_library(library);
        return answer;
    }
    if (!plugin.newp || !plugin.destroy) {
        close_library(library);
        throw std::runtime_error(path + " has filled in no NPP_New or no NPP_Destroy");
    }
    m_library = library;
    m_plugin = plugin;
    return answer;
}

NPError fake_browser::unload() {
    if (!m_library) {
        return NPERR_NO_ERROR;
    }
    leave_page();
    const auto shut_down =
        reinterpret_cast<decltype(NP_Shutdown)*>(dlsym(m_library, "NP_Shutdown"));
    const NPError answer = shut_down();
    m_plugin = NPPluginFuncs{};
    close_library(std::exchange(m_library, nullptr));
    return answer;
}

}  // namespace vask_test
