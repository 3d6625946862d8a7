// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_FAKE_PAGE_OBJECT_H
#define VASK_TEST_FAKE_PAGE_OBJECT_H

#include <map>
#include <set>

#include "vask_test/fake_browser.h"

namespace vask_test {

/** An object of the page's script, and its class for the plug-in. */
struct fake_page_object : NPObject {
    std::map<NPIdentifier, script_value> members;
    std::set<NPIdentifier> held;  // members to whose objects it has references
    fake_browser::function_type body;

    static NPClass its_class;

    static fake_page_object& from(NPObject* object);
    static void deallocate(NPObject* object);
    /** Gives a member another value. @param value  for it @param holds  whether it is an object to
     *  which the page has taken a reference for it */
    static void set_member(NPObject* object, NPIdentifier name, const script_value& value,
                           bool holds);
    /** Null for a member without a reference. @return the object, of which the caller drops one */
    static NPObject* take_held(NPObject* object, NPIdentifier name);
    /** @param value  that of take_held() */
    static void let_go(NPObject* value);
    static bool has_method(NPObject* object, NPIdentifier name);
    static bool invoke(NPObject* object, NPIdentifier name, const NPVariant* args,
                       uint32_t arg_count, NPVariant* result);
    static bool invoke_default(NPObject* object, const NPVariant* args, uint32_t arg_count,
                               NPVariant* result);
    static bool has_property(NPObject* object, NPIdentifier name);
    static bool get_property(NPObject* object, NPIdentifier name, NPVariant* result);
    static bool set_property(NPObject* object, NPIdentifier name, const NPVariant* value);
    static bool remove_property(NPObject* object, NPIdentifier name);
    static bool enumerate(NPObject* object, NPIdentifier** names, uint32_t* count);
};

}  // namespace vask_test

#endif
