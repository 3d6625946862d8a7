// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "meter_instance.h"

#include <string.h>

meter_instance::meter_instance(const std::string& child_program)
    : vask_np_instance("meter"), m_bridge(new meter_bridge(child_program, *this)) {
    method_map["measure"] = static_cast<script_method>(&meter_instance::measure);
    method_map["configure"] = static_cast<script_method>(&meter_instance::configure);
    getter_map["last"] = static_cast<property_getter>(&meter_instance::get_last);
    add_jscb_func("measured");
    add_jscb_func("failed");
    // In place of the library's methods, which release whatever the page gives.
    method_map["del_callback"] = static_cast<script_method>(&meter_instance::remove_callback);
    method_map["detachEvent"] = method_map["del_callback"];
}

void meter_instance::detach() {
    npp = nullptr;
    m_bridge.reset();
}

bool meter_instance::measure(const NPVariant* args, uint32_t arg_count, NPVariant*) {
    return check_script_args(arg_count, args, 1, NPVariantType_String) && m_bridge &&
           m_bridge->measure(NPVariant_to_string(&args[0]));
}

bool meter_instance::configure(const NPVariant* args, uint32_t arg_count, NPVariant*) {
    if (!check_script_args(arg_count, args, 1, NPVariantType_Object) || npp == nullptr) {
        return false;
    }
    NPVariant unit;
    if (!NPNFuncs.getproperty(npp, NPVARIANT_TO_OBJECT(args[0]),
                              NPNFuncs.getstringidentifier("unit"), &unit)) {
        return false;
    }
    const bool is_text = NPVARIANT_IS_STRING(unit);
    if (is_text) {
        m_unit = NPVariant_to_string(&unit);
    }
    NPNFuncs.releasevariantvalue(&unit);
    return is_text;
}

// Only the name is the page's to say: another function than the registered one must not lose a
// reference that was never this object's.
bool meter_instance::remove_callback(const NPVariant* args, uint32_t arg_count, NPVariant* result) {
    std::string name;
    NPObject* function = nullptr;
    if (!chk_jscb_request_param(args, arg_count, name, function)) {
        return true;
    }
    if (NPObject* registered = get_jscb_npobj(name.c_str())) {
        function = registered;
    }
    NPVariant own_args[] = {args[0], args[1]};
    OBJECT_TO_NPVARIANT(function, own_args[1]);
    return del_jscb_request(own_args, 2, result);
}

// The text becomes the browser's.
bool meter_instance::get_last(NPVariant* result) {
    char* text = static_cast<char*>(NPNFuncs.memalloc(static_cast<uint32_t>(m_last.size() + 1)));
    if (text == nullptr) {
        return false;
    }
    memcpy(text, m_last.c_str(), m_last.size() + 1);
    STRINGN_TO_NPVARIANT(text, static_cast<uint32_t>(m_last.size()), *result);
    return true;
}

void meter_instance::measured(const std::string& what, const std::string& value) {
    m_last = what + " " + value;
    const std::string unit = m_unit;
    call_page("measured", {what, value, unit});
}

void meter_instance::failed(const std::string& what) {
    call_page("failed", {what});
}

// The function may detach itself, or remove the element and with it this object: it is held for the
// time of the call, after which only the browser's functions are used.
void meter_instance::call_page(const char* callback, const std::vector<std::string>& texts) {
    NPObject* function = get_jscb_npobj(callback);
    if (function == nullptr) {
        return;
    }
    std::vector<NPVariant> args(texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        STRINGN_TO_NPVARIANT(texts[i].c_str(), static_cast<uint32_t>(texts[i].size()), args[i]);
    }
    NPNFuncs.retainobject(function);
    NPVariant ignored;
    if (NPNFuncs.invokeDefault(npp, function, args.data(), static_cast<uint32_t>(args.size()),
                               &ignored)) {
        NPNFuncs.releasevariantvalue(&ignored);
    }
    NPNFuncs.releaseobject(function);
}
