// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_SCRIPT_H
#define VASK_SCRIPT_H

/**
 * @file
 * @brief The object that page scripts see in place of the plug-in element.
 *
 * @since 2.0
 */

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "vask_np_base.h"

class vask_script_state;

/**
 * @brief A scriptable object: finds what a script calls by name, and keeps the script's callbacks.
 *
 * The browser knows this object by its NPObject part and calls it through ::vask_script_class.
 * NPObject is not polymorphic and lies behind this object's virtual table, so that the two have
 * different addresses: convert between them with static_cast, never through `void*`.
 *
 * Derived classes fill vask_script::method_map, vask_script::getter_map and
 * vask_script::setter_map in their constructors:
 *
 *     method_map["play"] = static_cast<script_method>(&my_instance::play);
 *
 * and allow callback names with add_jscb_func(). A page then registers a function with
 * `element.attachEvent("name", function)` or `add_callback`, and removes it with
 * `element.detachEvent("name", function)` or `del_callback`; the plug-in calls it through
 * get_jscb_npobj(). A product whose pages may be hostile puts a method of its own in place of the
 * latter two: see del_jscb_request().
 *
 * Members that are numbers have no name: looking one up (`element[0]`) throws std::logic_error out
 * of has_method(), invoke(), has_property(), get_property() and set_property(). That, and what
 * handlers throw, does not get into the browser: the functions of ::vask_script_class end it.
 *
 * Browser's plug-in thread only.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_script : public NPObject, public vask_np_base {
public:
    /** Stores a script's value in a property. @return whether the script's assignment succeeds */
    typedef bool (vask_script::*property_setter)(const NPVariant* value);

    /** Fills @p result, whose text or object becomes the browser's: text is made with
     *  NPN_MemAlloc(), an object carries a reference. @return whether the script's read succeeds */
    typedef bool (vask_script::*property_getter)(NPVariant* result);

    /** Handles a script's call. @p args stay the browser's; @p result as in a getter, and as the
     * browser gave it if it is left alone. @return whether the script's call succeeds */
    typedef bool (vask_script::*script_method)(const NPVariant* args, uint32_t arg_count,
                                               NPVariant* result);

    /**
     * Registers the four methods for callbacks.
     *
     * @param name  name in diagnostics; not copied, must outlive the object
     */
    explicit vask_script(const char* name);

    /** Releases every callback that is still registered, except for this object itself. A script
     *  that calls back meanwhile finds no methods, no properties and no names for callbacks. */
    ~vask_script() override;

    /** @name Called by the browser
     *
     * @p object is this object's NPObject part. Each logs its signature at DBG, with the name that
     * it looks up.
     */
    ///@{

    /**
     * The browser has no more use for the object. Does nothing.
     *
     * @param object  this object's NPObject part
     */
    virtual void invalidate(NPObject* object);

    /**
     * @param object  this object's NPObject part
     * @param name    a name
     * @return whether it is in vask_script::method_map
     */
    virtual bool has_method(NPObject* object, NPIdentifier name);

    /**
     * Calls the method of vask_script::method_map. The browser's copy of the name is freed before,
     * and this object is not touched afterwards.
     *
     * @param object     this object's NPObject part
     * @param name       a name
     * @param args       the arguments, which stay the browser's
     * @param arg_count  number of entries in @p args
     * @param result     see vask_script::script_method
     * @return what the method returns; false when there is none, with @p result as it was
     */
    virtual bool invoke(NPObject* object, NPIdentifier name, const NPVariant* args,
                        uint32_t arg_count, NPVariant* result);

    /**
     * The script calls the element itself.
     *
     * @param object     this object's NPObject part
     * @param args       the arguments, which stay the browser's
     * @param arg_count  number of entries in @p args
     * @param result     not written
     * @return false
     */
    virtual bool invoke_default(NPObject* object, const NPVariant* args, uint32_t arg_count,
                                NPVariant* result);

    /**
     * @param object  this object's NPObject part
     * @param name    a name
     * @return whether it is in vask_script::getter_map or vask_script::setter_map
     */
    virtual bool has_property(NPObject* object, NPIdentifier name);

    /**
     * Calls the getter.
     *
     * @param object  this object's NPObject part
     * @param name    a name
     * @param result  see vask_script::property_getter
     * @return what the getter returns; false when there is none, with @p result as it was
     */
    virtual bool get_property(NPObject* object, NPIdentifier name, NPVariant* result);

    /**
     * Calls the setter.
     *
     * @param object  this object's NPObject part
     * @param name    a name
     * @param value   the value, which stays the browser's
     * @return what the setter returns; false when there is none
     */
    virtual bool set_property(NPObject* object, NPIdentifier name, const NPVariant* value);

    /**
     * The script removes a property.
     *
     * @param object  this object's NPObject part
     * @param name    a name
     * @return false
     */
    virtual bool remove_property(NPObject* object, NPIdentifier name);

    /**
     * The script lists the object's members.
     *
     * @param object  this object's NPObject part
     * @param names   not written
     * @param count   not written
     * @return false
     */
    virtual bool enumerate(NPObject* object, NPIdentifier** names, uint32_t* count);

    ///@}
    /** @name Callbacks */
    ///@{

    /**
     * Allows scripts to register a callback.
     *
     * @param name  the callback's name; copied, not null
     */
    void add_jscb_func(const char* name);

    /**
     * The function that a script has registered.
     *
     * @param name  not null
     * @return the function without a reference for the caller, valid until the script removes or
     *         replaces it, or delete_jscb_map() is called; null when there is none
     */
    NPObject* get_jscb_npobj(const char* name);

    /**
     * Tests the arguments of a script's call, up to the first mismatch.
     *
     * @param argc      number of entries in @p args
     * @param args      the arguments; may be null when @p argc is 0
     * @param expected  the number of arguments there should be, followed by the NPVariantType of
     *                  each
     * @return whether all match; false after "The number of given arguments (N) is diffrent from
     *         expcted one (N)" or "The type of NPVariant in the INDEXth argument: TYPE is different
     *         from the exptected: TYPE" at ERR
     */
    bool check_script_args(uint32_t argc, const NPVariant* args, uint32_t expected, ...);

    /**
     * Takes a request to register or remove a callback apart.
     *
     * @param args  the name and the function; more arguments are ignored
     * @param argc  number of entries in @p args
     * @param name  receives the name; changed by a failure as well once the types are right
     * @param obj   receives the function, without a reference; untouched on failure
     * @return false after a line at ERR: "The number of argc must be greater than one.", "The first
     *         argument must be string, but TYPE is given.", "The second argument must be object,
     *         but TYPE is given." or "Requested callback function 'NAME' is not supported"
     */
    bool chk_jscb_request_param(const NPVariant* args, uint32_t argc, std::string& name,
                                NPObject*& obj);

    /**
     * The method "add_callback" and "attachEvent". Takes a reference to the function. A function
     * that was registered under the same name before is forgotten and keeps its reference.
     *
     * @param args    the name and the function
     * @param argc    number of entries in @p args
     * @param result  not written
     * @return true, also for a request that is refused with the lines of chk_jscb_request_param()
     */
    bool add_jscb_request(const NPVariant* args, uint32_t argc, NPVariant* result);

    /**
     * The method "del_callback" and "detachEvent". Takes a reference away from the function that is
     * given, even if it is another one than the registered one, which is then forgotten. So a page
     * can make the browser free an object that is in use. Products whose pages may be hostile
     * register a method of their own under both names, which hands the registered function to this
     * one whatever the page gives.
     *
     * The reference may be the last one to this object, which is deleted then. Where
     * delete_jscb_map() has released the registered function, it is forgotten without a release.
     *
     * @param args    the name and the function
     * @param argc    number of entries in @p args
     * @param result  not written
     * @return true, also for a request that is refused with the lines of chk_jscb_request_param()
     *         or with "Requested callback function 'NAME' is not registered" at ERR
     */
    bool del_jscb_request(const NPVariant* args, uint32_t argc, NPVariant* result);

    /** Releases every registered callback, but keeps the entries, whose functions must not be used
     *  any more. None of them is released again, neither by another call of this nor by the
     *  destructor. A release may call back, up to having this object deleted. */
    void delete_jscb_map();

    ///@}

protected:
    /** What stores a property, by its name. */
    std::map<std::string, property_setter> setter_map;

    /** What reads a property, by its name. */
    std::map<std::string, property_getter> getter_map;

    /** What handles a call, by the method's name. */
    std::map<std::string, script_method> method_map;

    /** Names under which a script may register a callback. */
    std::set<std::string> jscb_func_set;

    /** The registered callbacks, with one reference each. */
    std::map<std::string, NPObject*> jscb_map;

private:
    // What derived classes need not see; null until delete_jscb_map() is called.
    std::unique_ptr<vask_script_state> m_state;

    // Logs a member's name behind the signature and returns it. Throws std::logic_error for a
    // member that is a number.
    VASK_HIDDEN std::string name_of(NPIdentifier name, const char* signature);
};

/** @name How the browser reaches a scriptable object
 *
 * The object is part of a vask_np_instance, which the private data of its NPP points to. It is
 * neither allocated nor freed on its own. Except for its creation and end, each call is forwarded
 * to the operation of the same name of vask_script; the object must not be null.
 *
 * No exception gets out of them: one that an operation throws is logged at ERR, as
 * "vask_script::OPERATION(): An exception was thrown: WHAT", and the call gives false.
 */
///@{

/** The class of every scriptable object, for NPN_CreateObject. */
extern VASK_EXPORT NPClass vask_script_class;

extern "C" {

/**
 * Notes that the browser has created the object.
 *
 * @param npp        an NPP with an instance in its private data
 * @param its_class  not used
 * @return the object of its instance
 *
 * @since 2.0
 */
VASK_EXPORT NPObject* _vask_allocate(NPP npp, NPClass* its_class);

/**
 * The browser holds no reference any more: notes that in the instance, or deletes it when its
 * destruction waits for this.
 *
 * @param object  the object of an instance
 *
 * @since 2.0
 */
VASK_EXPORT void _vask_deallocate(NPObject* object);

/**
 * @copydoc vask_script::invalidate()
 *
 * @since 2.0
 */
VASK_EXPORT void vask_invalidate(NPObject* object);

/**
 * @copydoc vask_script::has_method()
 *
 * @since 2.0
 */
VASK_EXPORT bool vask_has_method(NPObject* object, NPIdentifier name);

/**
 * @copydoc vask_script::invoke()
 *
 * @since 2.0
 */
VASK_EXPORT bool vask_invoke(NPObject* object, NPIdentifier name, const NPVariant* args,
                             uint32_t arg_count, NPVariant* result);

/**
 * @copydoc vask_script::invoke_default()
 *
 * @since 2.0
 */
VASK_EXPORT bool vask_invoke_default(NPObject* object, const NPVariant* args, uint32_t arg_count,
                                     NPVariant* result);

/**
 * @copydoc vask_script::has_property()
 *
 * @since 2.0
 */
VASK_EXPORT bool vask_has_property(NPObject* object, NPIdentifier name);

/**
 * @copydoc vask_script::get_property()
 *
 * @since 2.0
 */
VASK_EXPORT bool vask_get_property(NPObject* object, NPIdentifier name, NPVariant* result);

/**
 * @copydoc vask_script::set_property()
 *
 * @since 2.0
 */
VASK_EXPORT bool vask_set_property(NPObject* object, NPIdentifier name, const NPVariant* value);

/**
 * @copydoc vask_script::remove_property()
 *
 * @since 2.0
 */
VASK_EXPORT bool vask_remove_property(NPObject* object, NPIdentifier name);

/**
 * @copydoc vask_script::enumerate()
 *
 * @since 2.0
 */
VASK_EXPORT bool vask_enumerate(NPObject* object, NPIdentifier** names, uint32_t* count);

}  // extern "C"

///@}

#endif
