// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdarg.h>

#include <iterator>
#include <memory>

#include "plugin/script_state.h"
#include "vask_script.h"

namespace {

typedef std::map<std::string, NPObject*> callback_map;

bool has(const callback_map& callbacks, const callback_map::value_type& callback) {
    const auto found = callbacks.find(callback.first);
    return found != callbacks.end() && found->second == callback.second;
}

// A release may call back and have the object deleted that kept these callbacks, so the maps must
// not be members of it.
void release_all_but(const callback_map& released, const callback_map& callbacks) {
    for (const auto& callback : callbacks) {
        if (!has(released, callback)) {
            vask_np_base::NPNFuncs.releaseobject(callback.second);
        }
    }
}

}  // namespace

vask_script::~vask_script() {
    vask_p(VASK_P_DBG, "%s\n", "virtual vask_script::~vask_script()");
    // A release may call back. The derived classes with the handlers are gone by now, and nobody
    // would release a function that is registered from here on.
    method_map.clear();
    getter_map.clear();
    setter_map.clear();
    jscb_func_set.clear();

    callback_map callbacks, released;
    callbacks.swap(jscb_map);
    if (m_state) {
        released.swap(m_state->released_jscbs);
    }
    // This object's references to itself end with it.
    for (auto callback = callbacks.begin(); callback != callbacks.end();) {
        callback = callback->second == this ? callbacks.erase(callback) : std::next(callback);
    }
    release_all_but(released, callbacks);
}

void vask_script::add_jscb_func(const char* name) {
    jscb_func_set.insert(name);
}

NPObject* vask_script::get_jscb_npobj(const char* name) {
    const auto callback = jscb_map.find(name);
    return callback != jscb_map.end() ? callback->second : nullptr;
}

bool vask_script::check_script_args(uint32_t argc, const NPVariant* args, uint32_t expected, ...) {
    if (argc != expected) {
        vask_p(VASK_P_ERR, "The number of given arguments (%d) is diffrent from expcted one (%d)\n",
               argc, expected);
        return false;
    }
    va_list types;
    va_start(types, expected);
    bool all_match = true;
    for (uint32_t i = 0; all_match && i < expected; ++i) {
        const int given_type = static_cast<int>(args[i].type);
        const int expected_type = va_arg(types, int);
        if (given_type != expected_type) {
            vask_p(VASK_P_ERR,
                   "The type of NPVariant in the %dth argument: %d is different from the "
                   "exptected: %d\n",
                   i, given_type, expected_type);
            all_match = false;
        }
    }
    va_end(types);
    return all_match;
}

bool vask_script::chk_jscb_request_param(const NPVariant* args, uint32_t argc, std::string& name,
                                         NPObject*& obj) {
    if (argc < 2) {
        vask_p(VASK_P_ERR, "The number of argc must be greater than one.\n");
        return false;
    }
    if (!NPVARIANT_IS_STRING(args[0])) {
        vask_p(VASK_P_ERR, "The first argument must be string, but %s is given.\n",
               get_NPVariant_type(&args[0]));
        return false;
    }
    if (!NPVARIANT_IS_OBJECT(args[1])) {
        vask_p(VASK_P_ERR, "The second argument must be object, but %s is given.\n",
               get_NPVariant_type(&args[1]));
        return false;
    }
    name = NPVariant_to_string(&args[0]);
    if (jscb_func_set.count(name) == 0) {
        vask_p(VASK_P_ERR, "Requested callback function '%s' is not supported\n", name.c_str());
        return false;
    }
    obj = NPVARIANT_TO_OBJECT(args[1]);
    return true;
}

bool vask_script::add_jscb_request(const NPVariant* args, uint32_t argc, NPVariant*) {
    std::string name;
    NPObject* function = nullptr;
    if (chk_jscb_request_param(args, argc, name, function)) {
        // A function that was registered before keeps its reference: it lives as long as its page.
        NPObject*& registered = jscb_map[name];
        NPN_RetainObject(function);
        registered = function;
        if (m_state) {
            m_state->released_jscbs.erase(name);
        }
    }
    return true;
}

bool vask_script::del_jscb_request(const NPVariant* args, uint32_t argc, NPVariant*) {
    std::string name;
    NPObject* function = nullptr;
    if (!chk_jscb_request_param(args, argc, name, function)) {
        return true;
    }
    const auto registered = jscb_map.find(name);
    if (registered == jscb_map.end()) {
        vask_p(VASK_P_ERR, "Requested callback function '%s' is not registered\n", name.c_str());
        return true;
    }
    const bool is_released = m_state && has(m_state->released_jscbs, *registered);
    jscb_map.erase(registered);
    if (m_state) {
        m_state->released_jscbs.erase(name);
    }
    // Releases what the script gives, whatever is registered: if it is the registered function,
    // this is the reference of add_jscb_request(). It may be the last reference to this object.
    if (!is_released) {
        NPNFuncs.releaseobject(function);
    }
    return true;
}

void vask_script::delete_jscb_map() {
    const callback_map callbacks = jscb_map;
    callback_map released = callbacks;
    if (!m_state) {
        m_state = std::make_unique<vask_script_state>();
    }
    released.swap(m_state->released_jscbs);
    release_all_but(released, callbacks);
}
