// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "fake_table.h"

#include "vask_test/fake_browser.h"

namespace vask_test {

// Named functions, since places in the ledger are shown by name.
struct fake_table {
    static fake_browser& the(const char* function) {
        fake_browser& browser = fake_browser::the();
        browser.check_thread(function);
        return browser;
    }

    static NPError get_url(NPP, const char* url, const char* target) {
        the("GetURL").add_request({url, target ? target : "", "", false, false, nullptr});
        return NPERR_NO_ERROR;
    }

    static NPError get_url_notify(NPP, const char* url, const char* target, void* notify_data) {
        the("GetURLNotify").add_request({url, target ? target : "", "", false, true, notify_data});
        return NPERR_NO_ERROR;
    }

    static NPError post_url(NPP, const char* url, const char* target, uint32_t len,
                            const char* data, NPBool is_file) {
        the("PostURL").add_request(
            {url, target ? target : "", std::string(data, len), is_file != 0, false, nullptr});
        return NPERR_NO_ERROR;
    }

    static NPError post_url_notify(NPP, const char* url, const char* target, uint32_t len,
                                   const char* data, NPBool is_file, void* notify_data) {
        the("PostURLNotify")
            .add_request({url, target ? target : "", std::string(data, len), is_file != 0, true,
                          notify_data});
        return NPERR_NO_ERROR;
    }

    static NPError request_read(NPStream*, NPByteRange*) {
        the("RequestRead");
        return NPERR_STREAM_NOT_SEEKABLE;
    }

    static NPError new_stream(NPP, NPMIMEType type, const char* target, NPStream** stream) {
        *stream = the("NewStream").open_stream(type, target ? target : "");
        return NPERR_NO_ERROR;
    }

    static int32_t write(NPP, NPStream* stream, int32_t len, void* data) {
        fake_browser& browser = the("Write");
        const auto found = browser.streams.find(stream);
        if (found == browser.streams.end()) {
            browser.complain("Write: a stream that is not open");
            return -1;
        }
        found->second->written.append(static_cast<const char*>(data), static_cast<size_t>(len));
        return len;
    }

    static NPError destroy_stream(NPP, NPStream* stream, NPReason) {
        return the("DestroyStream").close_stream(stream);
    }

    static void status(NPP, const char* message) { the("Status").status_text = message; }

    static const char* user_agent(NPP) {
        the("UserAgent");
        return "fake browser";
    }

    static void* mem_alloc(uint32_t size) { return the("MemAlloc").allocate(size); }
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

    static void* get_java_peer(NPP) {
        the("GetJavaPeer");
        return nullptr;
    }

    static NPError get_value(NPP npp, NPNVariable variable, void* value) {
        return the("GetValue").answer(npp, variable, value);
    }

    static NPError set_value(NPP npp, NPPVariable variable, void* value) {
        the("SetValue").element(npp).values[variable] = value;
        return NPERR_NO_ERROR;
    }

    static void invalidate_rect(NPP npp, NPRect* rect) {
        the("InvalidateRect").element(npp).invalid_rects.push_back(*rect);
    }

    static void invalidate_region(NPP npp, NPRegion) {
        ++the("InvalidateRegion").element(npp).invalid_regions;
    }

    static void force_redraw(NPP npp) { ++the("ForceRedraw").element(npp).forced_redraws; }

    static NPIdentifier get_string_identifier(const NPUTF8* name) {
        return the("GetStringIdentifier").name(name);
    }

    static void get_string_identifiers(const NPUTF8** names, int32_t count,
                                       NPIdentifier* identifiers) {
        fake_browser& browser = the("GetStringIdentifiers");
        for (int32_t i = 0; i < count; ++i) {
            identifiers[i] = browser.name(names[i]);
        }
    }

    static NPIdentifier get_int_identifier(int32_t number) {
        return the("GetIntIdentifier").number(number);
    }

    static bool identifier_is_string(NPIdentifier identifier) {
        return the("IdentifierIsString").checked(identifier)->is_name;
    }

    static NPUTF8* utf8_from_identifier(NPIdentifier identifier) {
        fake_browser& browser = the("UTF8FromIdentifier");
        const fake_browser::identifier* known = browser.checked(identifier);
        return known->is_name ? browser.copy_text(known->name) : nullptr;
    }

    static int32_t int_from_identifier(NPIdentifier identifier) {
        return the("IntFromIdentifier").checked(identifier)->number;
    }

    static NPObject* create_object(NPP npp, NPClass* its_class) {
        return the("CreateObject").create(npp, its_class);
    }

    static NPObject* retain_object(NPObject* object) {
        the("RetainObject").retain(object, false);
        return object;
    }

    static void release_object(NPObject* object) { the("ReleaseObject").release(object, false); }

    static bool invoke(NPP, NPObject* object, NPIdentifier name, const NPVariant* args,
                       uint32_t arg_count, NPVariant* result) {
        return the("Invoke").check_alive(object, "Invoke") && object->_class->invoke &&
               object->_class->invoke(object, name, args, arg_count, result);
    }

    static bool invoke_default(NPP, NPObject* object, const NPVariant* args, uint32_t arg_count,
                               NPVariant* result) {
        return the("InvokeDefault").check_alive(object, "InvokeDefault") &&
               object->_class->invokeDefault &&
               object->_class->invokeDefault(object, args, arg_count, result);
    }

    static bool evaluate(NPP, NPObject* object, NPString* script, NPVariant* result) {
        fake_browser& browser = the("Evaluate");
        script_value value;
        if (!browser.check_alive(object, "Evaluate") || !browser.on_evaluate ||
            !browser.on_evaluate(std::string(script->UTF8Characters, script->UTF8Length), &value)) {
            return false;
        }
        browser.give(value, result);
        return true;
    }

    static bool get_property(NPP, NPObject* object, NPIdentifier name, NPVariant* result) {
        return the("GetProperty").check_alive(object, "GetProperty") &&
               object->_class->getProperty && object->_class->getProperty(object, name, result);
    }

    static bool set_property(NPP, NPObject* object, NPIdentifier name, const NPVariant* value) {
        return the("SetProperty").check_alive(object, "SetProperty") &&
               object->_class->setProperty && object->_class->setProperty(object, name, value);
    }

    static bool remove_property(NPP, NPObject* object, NPIdentifier name) {
        return the("RemoveProperty").check_alive(object, "RemoveProperty") &&
               object->_class->removeProperty && object->_class->removeProperty(object, name);
    }

    static bool has_property(NPP, NPObject* object, NPIdentifier name) {
        return the("HasProperty").check_alive(object, "HasProperty") &&
               object->_class->hasProperty && object->_class->hasProperty(object, name);
    }

    static bool has_method(NPP, NPObject* object, NPIdentifier name) {
        return the("HasMethod").check_alive(object, "HasMethod") && object->_class->hasMethod &&
               object->_class->hasMethod(object, name);
    }

    static void release_variant_value(NPVariant* variant) {
        the("ReleaseVariantValue").release_value(variant, false);
    }

    static void set_exception(NPObject*, const NPUTF8* message) {
        the("SetException").exception_text = message;
    }

    static void push_popups_enabled_state(NPP npp, NPBool enabled) {
        the("PushPopupsEnabledState").element(npp).popups_enabled.push_back(enabled != 0);
    }

    static void pop_popups_enabled_state(NPP npp) {
        fake_browser& browser = the("PopPopupsEnabledState");
        if (browser.element(npp).popups_enabled.empty()) {
            browser.complain("PopPopupsEnabledState: there is none");
        } else {
            browser.element(npp).popups_enabled.pop_back();
        }
    }

    static bool enumerate(NPP, NPObject* object, NPIdentifier** names, uint32_t* count) {
        return the("Enumerate").check_alive(object, "Enumerate") && object->_class->enumerate &&
               object->_class->enumerate(object, names, count);
    }

    static void plugin_thread_async_call(NPP, void (*function)(void*), void* data) {
        fake_browser& browser = fake_browser::the();
        std::lock_guard<std::mutex> lock(browser.m_mutex);
        browser.m_async_calls.emplace_back(function, data);
    }

    static bool construct(NPP, NPObject* object, const NPVariant* args, uint32_t arg_count,
                          NPVariant* result) {
        return the("Construct").check_alive(object, "Construct") && object->_class->construct &&
               object->_class->construct(object, args, arg_count, result);
    }
};

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
