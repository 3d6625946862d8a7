// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <string.h>
#include <vask_np_factory.h>

#include <algorithm>
#include <string>

class counter : public vask_np_instance {
public:
    counter() : vask_np_instance("counter"), m_count(0) {
        method_map["count"] = static_cast<script_method>(&counter::count);
        getter_map["value"] = static_cast<property_getter>(&counter::get_value_property);
        add_jscb_func("counted");
        method_map["del_callback"] = static_cast<script_method>(&counter::remove_callback);
        method_map["detachEvent"] = method_map["del_callback"];
    }

private:
    bool count(const NPVariant* args, uint32_t arg_count, NPVariant*) {
        if (!check_script_args(arg_count, args, 1, NPVariantType_Int32)) {
            return false;
        }
        m_count += NPVARIANT_TO_INT32(args[0]);
        if (npp != nullptr) {
            call_page(args, arg_count);
        }
        return true;
    }

    void call_page(const NPVariant* args, uint32_t arg_count) {
        NPObject* callback = get_jscb_npobj("counted");
        if (callback == nullptr) {
            return;
        }
        // The function may detach itself, or remove the element and with it this object: it is held
        // for the time of the call, after which only the browser's functions are used.
        NPNFuncs.retainobject(callback);
        NPVariant ignored;
        if (NPNFuncs.invokeDefault(npp, callback, args, arg_count, &ignored)) {
            NPNFuncs.releasevariantvalue(&ignored);
        }
        NPNFuncs.releaseobject(callback);
    }

    // The library's own would release what the page gives, whatever is registered.
    bool remove_callback(const NPVariant* args, uint32_t arg_count, NPVariant* result) {
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

    bool get_value_property(NPVariant* result) {
        INT32_TO_NPVARIANT(m_count, *result);
        return true;
    }

    int m_count;
};

class counter_factory : public vask_np_factory {
public:
    counter_factory()
        : vask_np_factory("application/x-counter::Counter", "counter", "Counter", "Counts") {}
    vask_np_instance* create_instance() override { return new counter; }
};

// The browser may ask for the plug-in's name before NP_Initialize.
static counter_factory& the_factory() {
    static counter_factory factory;
    return factory;
}

// No exception may get into the browser.
template <typename Call>
static NPError end_exceptions(Call call) {
    try {
        return call();
    } catch (...) {
        return NPERR_GENERIC_ERROR;
    }
}

static vask_np_instance* instance_of(NPP npp) {
    return static_cast<vask_np_instance*>(npp->pdata);
}

static NPError new_instance(NPMIMEType type, NPP npp, uint16_t mode, int16_t argc, char** argn,
                            char** argv, NPSavedData* saved) {
    return end_exceptions(
        [=] { return the_factory().new_instance(type, npp, mode, argc, argn, argv, saved); });
}

static NPError destroy_instance(NPP npp, NPSavedData** save) {
    // The page may hold the object for longer than there is an NPP.
    instance_of(npp)->npp = nullptr;
    return end_exceptions([=] { return the_factory().destroy_instance(npp, save); });
}

static NPError get_value(NPP npp, NPPVariable variable, void* value) {
    return end_exceptions([=] { return instance_of(npp)->get_value(npp, variable, value); });
}

NPError NP_Initialize(NPNetscapeFuncs* browser, NPPluginFuncs* plugin) {
    memset(&vask_np_base::NPNFuncs, 0, sizeof vask_np_base::NPNFuncs);
    memcpy(&vask_np_base::NPNFuncs, browser,
           std::min<size_t>(browser->size, sizeof vask_np_base::NPNFuncs));
    plugin->newp = new_instance;
    plugin->destroy = destroy_instance;
    plugin->getvalue = get_value;  // the other functions of the table in the same way
    return end_exceptions([=] { return the_factory()._NP_Initialize(browser, plugin); });
}

NPError NP_GetValue(void* future, NPPVariable variable, void* value) {
    return end_exceptions([=] { return the_factory().NP_GetValue(future, variable, value); });
}

NPError NP_Shutdown() {
    return end_exceptions([] { return the_factory().NP_Shutdown(); });
}

extern "C" __attribute__((visibility("default"))) char* NP_GetMIMEDescription() {
    static char description[] = "application/x-counter::Counter";
    return description;
}
