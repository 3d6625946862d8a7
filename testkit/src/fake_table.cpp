// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "fake_table.h"

#include <set>

#include "vask_test/fake_browser.h"

namespace vask_test {

namespace {

std::string or_empty(const char* text) {
    return text ? text : "";
}

}  // namespace

// Named functions, since places in the ledger are shown by name.
struct fake_table {
    static fake_browser& the(const char* function, NPP npp = nullptr) {
        fake_browser& browser = fake_browser::the();
        browser.begin_call(function, npp);
        return browser;
    }

    /** Null for a call that is to fail. */
    static fake_browser* willing(const char* function, NPP npp = nullptr) {
        fake_browser& browser = fake_browser::the();
        return browser.begin_call(function, npp) ? &browser : nullptr;
    }

    /** The same for a call that needs an object. */
    static fake_browser* willing(const char* function, NPP npp, NPObject* object) {
        fake_browser* browser = willing(function, npp);
        return browser && browser->check_alive(object, function) ? browser : nullptr;
    }

    /** False, with a complaint, where a browser would have to read or write at no address. */
    static bool has(const char* function, const void* address, const char* what) {
        if (!address) {
            fake_browser::the().complain(std::string(function) + ": no " + what);
        }
        return address != nullptr;
    }

    static NPError request(const char* function, const fake_request& wanted) {
        fake_browser* browser = willing(function, wanted.npp);
        if (!browser) {
            return NPERR_GENERIC_ERROR;
        }
        browser->requests.push_back(wanted);
        return NPERR_NO_ERROR;
    }

    static fake_request request_for(NPP npp, const char* url, const char* target) {
        fake_request wanted;
        wanted.npp = npp;
        wanted.url = or_empty(url);
        wanted.target = or_empty(target);
        return wanted;
    }

    static fake_request message_for(NPP npp, const char* url, const char* target, uint32_t len,
                                    const char* data, NPBool is_file) {
        fake_request wanted = request_for(npp, url, target);
        wanted.data = data ? std::string(data, len) : "";
        wanted.is_file = is_file != 0;
        return wanted;
    }

    static fake_request with_answer(fake_request wanted, void* notify_data) {
        wanted.notifies = true;
        wanted.notify_data = notify_data;
        return wanted;
    }

    static NPError get_url(NPP npp, const char* url, const char* target) {
        return request("GetURL", request_for(npp, url, target));
    }

    static NPError get_url_notify(NPP npp, const char* url, const char* target, void* notify_data) {
        return request("GetURLNotify", with_answer(request_for(npp, url, target), notify_data));
    }

    static NPError post_url(NPP npp, const char* url, const char* target, uint32_t len,
                            const char* data, NPBool is_file) {
        if (len > 0 && !has("PostURL", data, "data")) {
            return NPERR_INVALID_PARAM;
        }
        return request("PostURL", message_for(npp, url, target, len, data, is_file));
    }

    static NPError post_url_notify(NPP npp, const char* url, const char* target, uint32_t len,
                                   const char* data, NPBool is_file, void* notify_data) {
        if (len > 0 && !has("PostURLNotify", data, "data")) {
            return NPERR_INVALID_PARAM;
        }
        return request("PostURLNotify",
                       with_answer(message_for(npp, url, target, len, data, is_file), notify_data));
    }

    static NPError request_read(NPStream*, NPByteRange*) {
        the("RequestRead");
        return NPERR_STREAM_NOT_SEEKABLE;
    }

    static NPError new_stream(NPP npp, NPMIMEType type, const char* target, NPStream** stream) {
        fake_browser* browser = willing("NewStream", npp);
        if (!browser) {
            return NPERR_GENERIC_ERROR;
        }
        if (!has("NewStream", stream, "place for the stream")) {
            return NPERR_INVALID_PARAM;
        }
        *stream = browser->open_stream(or_empty(type), or_empty(target));
        return NPERR_NO_ERROR;
    }

    static int32_t write(NPP npp, NPStream* stream, int32_t len, void* data) {
        fake_browser* browser = willing("Write", npp);
        if (!browser) {
            return -1;
        }
        const auto found = browser->streams.find(stream);
        if (found == browser->streams.end()) {
            browser->complain("Write: a stream that is not open");
            return -1;
        }
        if (len < 0) {
            browser->complain("Write: a negative length");
            return -1;
        }
        if (len > 0 && !has("Write", data, "data")) {
            return -1;
        }
        found->second->written.append(static_cast<const char*>(data), static_cast<size_t>(len));
        return len;
    }

    static NPError destroy_stream(NPP npp, NPStream* stream, NPReason) {
        return the("DestroyStream", npp).close_stream(stream);
    }

    static void status(NPP npp, const char* message) {
        the("Status", npp).status_text = or_empty(message);
    }

    static const char* user_agent(NPP npp) {
        the("UserAgent", npp);
        return "fake browser";
    }

    static void* mem_alloc(uint32_t size) {
        fake_browser* browser = willing("MemAlloc");
        return browser ? browser->allocate(size) : nullptr;
    }

    static void mem_free(void* memory) { the("MemFree").free(memory); }

    static uint32_t mem_flush(uint32_t) {
        the("MemFlush");
        return 0;
    }

    static void reload_plugins(NPBool) { the("ReloadPlugins"); }

    static void* get_java_env() {
        the("GetJavaEnv");
        return nullptr;
    }

    static void* get_java_peer(NPP npp) {
        the("GetJavaPeer", npp);
        return nullptr;
    }

    static NPError get_value(NPP npp, NPNVariable variable, void* value) {
        fake_browser* browser = willing("GetValue", npp);
        return browser ? browser->answer(npp, variable, value) : NPERR_GENERIC_ERROR;
    }

    static NPError set_value(NPP npp, NPPVariable variable, void* value) {
        fake_browser* browser = willing("SetValue", npp);
        if (!browser) {
            return NPERR_GENERIC_ERROR;
        }
        browser->element(npp).values[variable] = value;
        return NPERR_NO_ERROR;
    }

    static void invalidate_rect(NPP npp, NPRect* rect) {
        fake_browser& browser = the("InvalidateRect");
        if (has("InvalidateRect", rect, "rectangle")) {
            browser.element(npp).invalid_rects.push_back(*rect);
        }
    }

    static void invalidate_region(NPP npp, NPRegion) {
        ++the("InvalidateRegion").element(npp).invalid_regions;
    }

    static void force_redraw(NPP npp) { ++the("ForceRedraw").element(npp).forced_redraws; }

    static NPIdentifier get_string_identifier(const NPUTF8* name) {
        fake_browser* browser = willing("GetStringIdentifier");
        return browser ? browser->identify(browser->name(or_empty(name))) : nullptr;
    }

    static void get_string_identifiers(const NPUTF8** names, int32_t count,
                                       NPIdentifier* identifiers) {
        fake_browser& browser = the("GetStringIdentifiers");
        for (int32_t i = 0; i < count; ++i) {
            identifiers[i] = browser.identify(browser.name(or_empty(names[i])));
        }
    }

    static NPIdentifier get_int_identifier(int32_t number) {
        fake_browser* browser = willing("GetIntIdentifier");
        return browser ? browser->identify(browser->number(number)) : nullptr;
    }

    static bool identifier_is_string(NPIdentifier identifier) {
        return the("IdentifierIsString").checked(identifier)->is_name;
    }

    static NPUTF8* utf8_from_identifier(NPIdentifier identifier) {
        fake_browser* browser = willing("UTF8FromIdentifier");
        if (!browser) {
            return nullptr;
        }
        const fake_browser::identifier* known = browser->checked(identifier);
        return known->is_name ? browser->copy_text(known->name) : nullptr;
    }

    static int32_t int_from_identifier(NPIdentifier identifier) {
        return the("IntFromIdentifier").checked(identifier)->number;
    }

    static NPObject* create_object(NPP npp, NPClass* its_class) {
        fake_browser* browser = willing("CreateObject", npp);
        return browser && has("CreateObject", its_class, "class") ? browser->create(npp, its_class)
                                                                  : nullptr;
    }

    static NPObject* retain_object(NPObject* object) {
        the("RetainObject").retain(object, false);
        return object;
    }

    static void release_object(NPObject* object) { the("ReleaseObject").release(object, false); }

    static bool invoke(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* args,
                       uint32_t arg_count, NPVariant* result) {
        return willing("Invoke", npp, object) && object->_class->invoke &&
               object->_class->invoke(object, name, args, arg_count, result);
    }

    static bool invoke_default(NPP npp, NPObject* object, const NPVariant* args, uint32_t arg_count,
                               NPVariant* result) {
        return willing("InvokeDefault", npp, object) && object->_class->invokeDefault &&
               object->_class->invokeDefault(object, args, arg_count, result);
    }

    static bool evaluate(NPP npp, NPObject* object, NPString* script, NPVariant* result) {
        fake_browser* browser = willing("Evaluate", npp, object);
        script_value value;
        if (!browser || !browser->on_evaluate ||
            !browser->on_evaluate(std::string(script->UTF8Characters, script->UTF8Length),
                                  &value)) {
            return false;
        }
        browser->give(value, result);
        return true;
    }

    static bool get_property(NPP npp, NPObject* object, NPIdentifier name, NPVariant* result) {
        return willing("GetProperty", npp, object) && object->_class->getProperty &&
               object->_class->getProperty(object, name, result);
    }

    static bool set_property(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* value) {
        return willing("SetProperty", npp, object) && object->_class->setProperty &&
               object->_class->setProperty(object, name, value);
    }

    static bool remove_property(NPP npp, NPObject* object, NPIdentifier name) {
        return willing("RemoveProperty", npp, object) && object->_class->removeProperty &&
               object->_class->removeProperty(object, name);
    }

    static bool has_property(NPP npp, NPObject* object, NPIdentifier name) {
        return willing("HasProperty", npp, object) && object->_class->hasProperty &&
               object->_class->hasProperty(object, name);
    }

    static bool has_method(NPP npp, NPObject* object, NPIdentifier name) {
        return willing("HasMethod", npp, object) && object->_class->hasMethod &&
               object->_class->hasMethod(object, name);
    }

    static void release_variant_value(NPVariant* variant) {
        the("ReleaseVariantValue").release_value(variant, false);
    }

    static void set_exception(NPObject*, const NPUTF8* message) {
        the("SetException").exception_text = or_empty(message);
    }

    static void push_popups_enabled_state(NPP npp, NPBool enabled) {
        the("PushPopupsEnabledState").element(npp).popups_enabled.push_back(enabled != 0);
    }

    static void pop_popups_enabled_state(NPP npp) {
        fake_browser& browser = the("PopPopupsEnabledState");
        fake_element& element = browser.element(npp);
        if (element.popups_enabled.empty()) {
            browser.complain("PopPopupsEnabledState: there is none");
        } else {
            element.popups_enabled.pop_back();
        }
    }

    static bool enumerate(NPP npp, NPObject* object, NPIdentifier** names, uint32_t* count) {
        return willing("Enumerate", npp, object) && object->_class->enumerate &&
               object->_class->enumerate(object, names, count);
    }

    static void plugin_thread_async_call(NPP, void (*function)(void*), void* data) {
        fake_browser::the().add_async_call(function, data);
    }

    static bool construct(NPP npp, NPObject* object, const NPVariant* args, uint32_t arg_count,
                          NPVariant* result) {
        return willing("Construct", npp, object) && object->_class->construct &&
               object->_class->construct(object, args, arg_count, result);
    }
};

bool can_fail(const std::string& function) {
    static const std::set<std::string> functions = {
        "GetURL",
        "GetURLNotify",
        "PostURL",
        "PostURLNotify",
        "NewStream",
        "Write",
        "MemAlloc",
        "GetValue",
        "SetValue",
        "CreateObject",
        "GetStringIdentifier",
        "GetIntIdentifier",
        "UTF8FromIdentifier",
        "Invoke",
        "InvokeDefault",
        "Evaluate",
        "GetProperty",
        "SetProperty",
        "RemoveProperty",
        "HasProperty",
        "HasMethod",
        "Enumerate",
        "Construct",
    };
    return functions.count(function) != 0;
}

NPNetscapeFuncs fake_functions() {
    NPNetscapeFuncs table{};
    table.size = sizeof table;
    table.version = (NP_VERSION_MAJOR << 8) + NP_VERSION_MINOR;
    table.geturl = fake_table::get_url;
    table.posturl = fake_table::post_url;
    table.requestread = fake_table::request_read;
    table.newstream = fake_table::new_stream;
    table.write = fake_table::write;
    table.destroystream = fake_table::destroy_stream;
    table.status = fake_table::status;
    table.uagent = fake_table::user_agent;
    table.memalloc = fake_table::mem_alloc;
    table.memfree = fake_table::mem_free;
    table.memflush = fake_table::mem_flush;
    table.reloadplugins = fake_table::reload_plugins;
    table.getJavaEnv = fake_table::get_java_env;
    table.getJavaPeer = fake_table::get_java_peer;
    table.geturlnotify = fake_table::get_url_notify;
    table.posturlnotify = fake_table::post_url_notify;
    table.getvalue = fake_table::get_value;
    table.setvalue = fake_table::set_value;
    table.invalidaterect = fake_table::invalidate_rect;
    table.invalidateregion = fake_table::invalidate_region;
    table.forceredraw = fake_table::force_redraw;
    table.getstringidentifier = fake_table::get_string_identifier;
    table.getstringidentifiers = fake_table::get_string_identifiers;
    table.getintidentifier = fake_table::get_int_identifier;
    table.identifierisstring = fake_table::identifier_is_string;
    table.utf8fromidentifier = fake_table::utf8_from_identifier;
    table.intfromidentifier = fake_table::int_from_identifier;
    table.createobject = fake_table::create_object;
    table.retainobject = fake_table::retain_object;
    table.releaseobject = fake_table::release_object;
    table.invoke = fake_table::invoke;
    table.invokeDefault = fake_table::invoke_default;
    table.evaluate = fake_table::evaluate;
    table.getproperty = fake_table::get_property;
    table.setproperty = fake_table::set_property;
    table.removeproperty = fake_table::remove_property;
    table.hasproperty = fake_table::has_property;
    table.hasmethod = fake_table::has_method;
    table.releasevariantvalue = fake_table::release_variant_value;
    table.setexception = fake_table::set_exception;
    table.pushpopupsenabledstate = fake_table::push_popups_enabled_state;
    table.poppopupsenabledstate = fake_table::pop_popups_enabled_state;
    table.enumerate = fake_table::enumerate;
    table.pluginthreadasynccall = fake_table::plugin_thread_async_call;
    table.construct = fake_table::construct;
    return table;
}

}  // namespace vask_test
