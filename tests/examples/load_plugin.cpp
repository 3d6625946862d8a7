// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dlfcn.h>
#include <npapi/npfunctions.h>
#include <stdio.h>
#include <stdlib.h>

#include <array>
#include <new>
#include <string>

// As much of a browser as the sample plug-in needs. Prints what a page would see.

namespace {

std::string* as_name(NPIdentifier identifier) {
    return static_cast<std::string*>(identifier);
}

NPUTF8* copy_name(NPIdentifier identifier) {
    return strdup(as_name(identifier)->c_str());
}

bool is_out_of_memory = false;

NPObject* create_object(NPP npp, NPClass* its_class) {
    if (is_out_of_memory) {
        throw std::bad_alloc();
    }
    NPObject* object = its_class->allocate(npp, its_class);
    object->_class = its_class;
    object->referenceCount = 1;
    return object;
}

NPObject* retain_object(NPObject* object) {
    ++object->referenceCount;
    return object;
}

void release_object(NPObject* object) {
    if (--object->referenceCount == 0 && object->_class != nullptr) {
        object->_class->deallocate(object);
    }
}

bool call_function(NPP, NPObject* function, const NPVariant* args, uint32_t, NPVariant* result) {
    printf("counted %d by a callback held %u times\n", NPVARIANT_TO_INT32(args[0]),
           function->referenceCount);
    VOID_TO_NPVARIANT(*result);
    return true;
}

NPNetscapeFuncs browser_functions() {
    NPNetscapeFuncs browser = {};
    browser.size = sizeof browser;
    browser.memfree = free;
    browser.utf8fromidentifier = copy_name;
    browser.createobject = create_object;
    browser.retainobject = retain_object;
    browser.releaseobject = release_object;
    browser.invokeDefault = call_function;
    browser.releasevariantvalue = [](NPVariant*) {};
    return browser;
}

template <typename Function>
Function* entry_point(void* plugin, const char* name) {
    void* address = dlsym(plugin, name);
    if (address == nullptr) {
        printf("%s\n", dlerror());
        exit(1);
    }
    return reinterpret_cast<Function*>(address);
}

bool call_method(NPObject* object, const char* method, const NPVariant* args, uint32_t count) {
    std::string name = method;
    NPVariant result;
    VOID_TO_NPVARIANT(result);
    return object->_class->invoke(object, &name, args, count, &result);
}

void ask_for_name(void* plugin) {
    const char* plugin_name = nullptr;
    entry_point<NPError(void*, NPPVariable, void*)>(plugin, "NP_GetValue")(
        nullptr, NPPVpluginNameString, &plugin_name);
    puts(plugin_name);
}

NPObject* ask_for_object(const NPPluginFuncs& functions, NPP npp) {
    NPObject* object = nullptr;
    is_out_of_memory = true;
    printf("out of memory: error %d\n",
           functions.getvalue(npp, NPPVpluginScriptableNPObject, &object));
    is_out_of_memory = false;
    functions.getvalue(npp, NPPVpluginScriptableNPObject, &object);
    return object;
}

// Returns the arguments of a page that registers the function, or removes it.
std::array<NPVariant, 2> registration_of(NPObject* function) {
    std::array<NPVariant, 2> args;
    STRINGZ_TO_NPVARIANT("counted", args[0]);
    OBJECT_TO_NPVARIANT(function, args[1]);
    return args;
}

void count(NPObject* object) {
    NPVariant by;
    INT32_TO_NPVARIANT(5, by);
    call_method(object, "count", &by, 1);
}

void count_with_and_without_callback(NPObject* object, NPObject* function) {
    const std::array<NPVariant, 2> registration = registration_of(function);
    call_method(object, "attachEvent", registration.data(), 2);
    count(object);
    call_method(object, "detachEvent", registration.data(), 2);
    count(object);

    std::string name = "value";
    NPVariant value;
    object->_class->getProperty(object, &name, &value);
    printf("value %d, callback held %u times\n", NPVARIANT_TO_INT32(value),
           function->referenceCount);
}

void remove_by_another_function(NPObject* object, NPObject* function) {
    NPObject other = {nullptr, 1};
    call_method(object, "attachEvent", registration_of(function).data(), 2);
    call_method(object, "detachEvent", registration_of(&other).data(), 2);
    printf("removed by another function, callback held %u times, the other one %u times\n",
           function->referenceCount, other.referenceCount);
}

}  // namespace

int main(int argc, char** argv) {
    void* plugin = argc == 2 ? dlopen(argv[1], RTLD_NOW) : nullptr;
    if (plugin == nullptr) {
        printf("%s\n", argc == 2 ? dlerror() : "usage: load_plugin PLUGIN");
        return 1;
    }
    NPNetscapeFuncs browser = browser_functions();
    NPPluginFuncs functions = {};
    ask_for_name(plugin);
    entry_point<NPError(NPNetscapeFuncs*, NPPluginFuncs*)>(plugin, "NP_Initialize")(&browser,
                                                                                    &functions);
    puts(entry_point<char*()>(plugin, "NP_GetMIMEDescription")());

    _NPP instance = {};
    char type[] = "application/x-counter";
    functions.newp(type, &instance, NP_EMBED, 0, nullptr, nullptr, nullptr);
    NPObject* object = ask_for_object(functions, &instance);

    NPObject function = {nullptr, 1};
    count_with_and_without_callback(object, &function);
    remove_by_another_function(object, &function);

    // The page goes on with the object when the instance is gone.
    call_method(object, "attachEvent", registration_of(&function).data(), 2);
    functions.destroy(&instance, nullptr);
    count(object);
    release_object(object);
    printf("callback held %u times in the end\n", function.referenceCount);
    entry_point<NPError()>(plugin, "NP_Shutdown")();
    return 0;
}
