#include <string.h>
#include <vask_np_factory.h>

#include <algorithm>

class counter : public vask_np_instance {
public:
    counter() : vask_np_instance("counter"), m_count(0) {
        method_map["count"] = static_cast<script_method>(&counter::count);
        getter_map["value"] = static_cast<property_getter>(&counter::get_value_property);
        add_jscb_func("counted");
    }

private:
    bool count(const NPVariant* args, uint32_t arg_count, NPVariant*) {
        if (!check_script_args(arg_count, args, 1, NPVariantType_Int32)) {
            return false;
        }
        m_count += NPVARIANT_TO_INT32(args[0]);
        if (NPObject* callback = get_jscb_npobj("counted")) {
            NPVariant ignored;
            if (NPN_InvokeDefault(npp, callback, args, arg_count, &ignored)) {
                NPN_ReleaseVariantValue(&ignored);
            }
        }
        return true;
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

static counter_factory* factory;

static vask_np_instance* instance_of(NPP npp) {
    return static_cast<vask_np_instance*>(npp->pdata);
}

static NPError new_instance(NPMIMEType type, NPP npp, uint16_t mode, int16_t argc, char** argn,
                            char** argv, NPSavedData* saved) {
    return factory->new_instance(type, npp, mode, argc, argn, argv, saved);
}

static NPError destroy_instance(NPP npp, NPSavedData** save) {
    return factory->destroy_instance(npp, save);
}

static NPError get_value(NPP npp, NPPVariable variable, void* value) {
    return instance_of(npp)->get_value(npp, variable, value);
}

NPError NP_Initialize(NPNetscapeFuncs* browser, NPPluginFuncs* plugin) {
    memset(&vask_np_base::NPNFuncs, 0, sizeof vask_np_base::NPNFuncs);
    memcpy(&vask_np_base::NPNFuncs, browser,
           std::min<size_t>(browser->size, sizeof vask_np_base::NPNFuncs));
    plugin->newp = new_instance;
    plugin->destroy = destroy_instance;
    plugin->getvalue = get_value;  // the other functions of the table in the same way
    factory = new counter_factory;
    return factory->_NP_Initialize(browser, plugin);
}

NPError NP_GetValue(void* future, NPPVariable variable, void* value) {
    return factory->NP_GetValue(future, variable, value);
}

NPError NP_Shutdown() {
    return factory->NP_Shutdown();
}

extern "C" __attribute__((visibility("default"))) char* NP_GetMIMEDescription() {
    static char description[] = "application/x-counter::Counter";
    return description;
}
