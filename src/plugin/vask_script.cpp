// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_script.h"

#include <memory>
#include <stdexcept>

#include "foundation/exec_call.h"
#include "plugin/script_state.h"

vask_script::vask_script(const char* name) : NPObject(), vask_np_base(name) {
    method_map["add_callback"] = &vask_script::add_jscb_request;
    method_map["del_callback"] = &vask_script::del_jscb_request;
    method_map["attachEvent"] = &vask_script::add_jscb_request;
    method_map["detachEvent"] = &vask_script::del_jscb_request;
    vask_p(VASK_P_DBG, "%s(const char*)\n", "vask_script::vask_script(const char*)");
}

void vask_script::invalidate(NPObject*) {
    vask_p(VASK_P_DBG, "%s\n", "virtual void vask_script::invalidate(NPObject*)");
}

bool vask_script::has_method(NPObject*, NPIdentifier name) {
    return method_map.count(
               name_of(name, "virtual bool vask_script::has_method(NPObject*, NPIdentifier)")) != 0;
}

bool vask_script::invoke(NPObject*, NPIdentifier name, const NPVariant* args, uint32_t arg_count,
                         NPVariant* result) {
    const auto method = method_map.find(
        name_of(name,
                "virtual bool vask_script::invoke(NPObject*, NPIdentifier, const NPVariant*, "
                "uint32_t, NPVariant*)"));
    // The method may do anything, up to having this object deleted.
    return method != method_map.end() && call_member(this, method->second, args, arg_count, result);
}

bool vask_script::invoke_default(NPObject*, const NPVariant*, uint32_t, NPVariant*) {
    vask_p(VASK_P_DBG, "%s\n",
           "virtual bool vask_script::invoke_default(NPObject*, const NPVariant*, uint32_t, "
           "NPVariant*)");
    return false;
}

bool vask_script::has_property(NPObject*, NPIdentifier name) {
    const std::string property =
        name_of(name, "virtual bool vask_script::has_property(NPObject*, NPIdentifier)");
    return getter_map.count(property) != 0 || setter_map.count(property) != 0;
}

bool vask_script::get_property(NPObject*, NPIdentifier name, NPVariant* result) {
    const auto getter = getter_map.find(name_of(
        name, "virtual bool vask_script::get_property(NPObject*, NPIdentifier, NPVariant*)"));
    return getter != getter_map.end() && call_member(this, getter->second, result);
}

bool vask_script::set_property(NPObject*, NPIdentifier name, const NPVariant* value) {
    const auto setter = setter_map.find(name_of(
        name, "virtual bool vask_script::set_property(NPObject*, NPIdentifier, const NPVariant*)"));
    return setter != setter_map.end() && call_member(this, setter->second, value);
}

bool vask_script::remove_property(NPObject*, NPIdentifier) {
    vask_p(VASK_P_DBG, "%s\n",
           "virtual bool vask_script::remove_property(NPObject*, NPIdentifier)");
    return false;
}

bool vask_script::enumerate(NPObject*, NPIdentifier**, uint32_t*) {
    vask_p(VASK_P_DBG, "%s\n",
           "virtual bool vask_script::enumerate(NPObject*, void***, uint32_t*)");
    return false;
}

std::string vask_script::name_of(NPIdentifier name, const char* signature) {
    const auto free_name = [this](NPUTF8* text) { NPN_MemFree(text); };
    const std::unique_ptr<NPUTF8, decltype(free_name)> text(NPN_UTF8FromIdentifier(name),
                                                            free_name);
    vask_p(VASK_P_DBG, "%s: %s\n", signature, text != nullptr ? text.get() : "(null)");
    if (text == nullptr) {
        throw std::logic_error("a member that is a number has no name");
    }
    return std::string(text.get());
}
