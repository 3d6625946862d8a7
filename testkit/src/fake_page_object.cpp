// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "fake_page_object.h"

namespace vask_test {

NPClass fake_page_object::its_class = {
    NP_CLASS_STRUCT_VERSION, nullptr,      deallocate,   nullptr,      has_method,      invoke,
    invoke_default,          has_property, get_property, set_property, remove_property, enumerate,
    invoke_default};

fake_page_object& fake_page_object::from(NPObject* object) {
    return *static_cast<fake_page_object*>(object);
}

// The next object must not have the address of this one, or its late use would be taken for the
// other's.
void fake_page_object::deallocate(NPObject* object) {
    fake_page_object* const dead = &from(object);
    while (!dead->held.empty()) {
        let_go(take_held(object, *dead->held.begin()));
    }
    dead->members.clear();
    dead->body = nullptr;
    fake_browser::the().bury(std::shared_ptr<void>(
        dead, [](void* memory) { delete static_cast<fake_page_object*>(memory); }));
}

NPObject* fake_page_object::take_held(NPObject* object, NPIdentifier name) {
    return from(object).held.erase(name) != 0 ? std::get<NPObject*>(from(object).members.at(name))
                                              : nullptr;
}

void fake_page_object::let_go(NPObject* value) {
    if (value && fake_browser::the().is_alive(value)) {
        fake_browser::the().drop(value);
    }
}

void fake_page_object::set_member(NPObject* object, NPIdentifier name, const script_value& value,
                                  bool holds) {
    NPObject* const earlier = take_held(object, name);
    from(object).members[name] = value;
    if (holds) {
        from(object).held.insert(name);
    }
    // Last, because the plug-in may write the member again when its object ends.
    let_go(earlier);
}

bool fake_page_object::has_method(NPObject* object, NPIdentifier name) {
    const auto member = from(object).members.find(name);
    return member != from(object).members.end() &&
           std::holds_alternative<NPObject*>(member->second);
}

bool fake_page_object::invoke(NPObject* object, NPIdentifier name, const NPVariant* args,
                              uint32_t arg_count, NPVariant* result) {
    if (!has_method(object, name)) {
        return false;
    }
    NPObject* function = std::get<NPObject*>(from(object).members.at(name));
    return function->_class->invokeDefault(function, args, arg_count, result);
}

bool fake_page_object::invoke_default(NPObject* object, const NPVariant* args, uint32_t arg_count,
                                      NPVariant* result) {
    if (!from(object).body) {
        return false;
    }
    std::vector<script_value> arguments;
    for (uint32_t i = 0; i < arg_count; ++i) {
        arguments.push_back(value_of(args[i]));
    }
    // The function may end the object, with the page that it leaves.
    const fake_browser::function_type body = from(object).body;
    fake_browser::the().give(body(arguments), result);
    return true;
}

bool fake_page_object::has_property(NPObject* object, NPIdentifier name) {
    return from(object).members.count(name) != 0;
}

bool fake_page_object::get_property(NPObject* object, NPIdentifier name, NPVariant* result) {
    if (!has_property(object, name)) {
        return false;
    }
    fake_browser::the().give(from(object).members.at(name), result);
    return true;
}

bool fake_page_object::set_property(NPObject* object, NPIdentifier name, const NPVariant* value) {
    NPObject* const given = NPVARIANT_IS_OBJECT(*value) ? NPVARIANT_TO_OBJECT(*value) : nullptr;
    if (given) {
        if (!fake_browser::the().check_alive(given, "SetProperty")) {
            return false;
        }
        fake_browser::the().retain(given, true);
    }
    set_member(object, name, value_of(*value), given != nullptr);
    return true;
}

bool fake_page_object::remove_property(NPObject* object, NPIdentifier name) {
    NPObject* const held = take_held(object, name);
    const bool had_it = from(object).members.erase(name) != 0;
    let_go(held);
    return had_it;
}

bool fake_page_object::enumerate(NPObject* object, NPIdentifier** names, uint32_t* count) {
    const auto& members = from(object).members;
    *count = static_cast<uint32_t>(members.size());
    *names = static_cast<NPIdentifier*>(
        fake_browser::the().allocate(static_cast<uint32_t>(*count * sizeof(NPIdentifier))));
    NPIdentifier* next = *names;
    for (const auto& member : members) {
        *next++ = member.first;
    }
    return true;
}

}  // namespace vask_test
