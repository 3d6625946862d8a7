// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "recorded_plugin.h"

namespace vask_test {

using testing::IsEmpty;

int recorded_instance::alive = 0;

recorded_instance::recorded_instance(const char* name) : vask_np_instance(name) {
    method_map["call_back"] = static_cast<script_method>(&recorded_instance::call_back);
    ++alive;
}

recorded_instance::~recorded_instance() {
    --alive;
}

void recorded_instance::init_preload() {
    ++preparations;
    preloaded_at_preparation = preloaded;
}

void recorded_instance::parse_props(int16_t argc, char** argn, char** argv) {
    npp_at_attributes = npp;
    private_data_at_attributes = npp ? npp->pdata : nullptr;
    for (int16_t i = 0; i < argc; ++i) {
        properties.emplace_back(argn[i], argv[i]);
    }
}

int32_t recorded_instance::write_ready(NPP, NPStream*) {
    return bytes_at_a_time;
}

int32_t recorded_instance::write(NPP, NPStream*, int32_t, int32_t len, void* data) {
    written.append(static_cast<const char*>(data), static_cast<size_t>(len));
    return len;
}

bool recorded_instance::call_back(const NPVariant* args, uint32_t arg_count, NPVariant* result) {
    if (!check_script_args(arg_count, args, 1, NPVariantType_String)) {
        return false;
    }
    NPObject* function = get_jscb_npobj(NPVariant_to_string(args).c_str());
    return function && NPN_InvokeDefault(npp, function, nullptr, 0, result);
}

recorded_factory::recorded_factory()
    : vask_np_factory("application/x-fake:fake:Fake", plugin_object_name, "Fake plug-in",
                      "A plug-in for tests") {}

vask_np_instance* recorded_factory::create_instance() {
    if (out_of_memory) {
        return nullptr;
    }
    ++created;
    pending_spawns_at_creation = pending_spawns;
    return new recorded_instance(obj_name);
}

unsigned int recorded_factory::calc_delayed_spawn_time() {
    pending_spawns_at_delay = pending_spawns;
    return spawns_at_once ? 0 : vask_np_factory::calc_delayed_spawn_time();
}

void recorded_factory::delete_queue() {
    for (vask_np_instance* instance : preload_queue) {
        delete instance;
    }
    preload_queue.clear();
}

recorded_instance* instance_of(NPP npp) {
    return static_cast<recorded_instance*>(static_cast<vask_np_instance*>(npp->pdata));
}

namespace {

vask_np_factory* the_factory = nullptr;

vask_np_instance* base_of(NPP npp) {
    return static_cast<vask_np_instance*>(npp->pdata);
}

NPError npp_new(NPMIMEType type, NPP npp, uint16_t mode, int16_t argc, char** argn, char** argv,
                NPSavedData* saved) {
    return the_factory->new_instance(type, npp, mode, argc, argn, argv, saved);
}

NPError npp_destroy(NPP npp, NPSavedData** save) {
    return the_factory->destroy_instance(npp, save);
}

NPError npp_new_stream(NPP npp, NPMIMEType type, NPStream* stream, NPBool seekable,
                       uint16_t* stype) {
    return base_of(npp)->new_stream(npp, type, stream, seekable, stype);
}

NPError npp_destroy_stream(NPP npp, NPStream* stream, NPReason reason) {
    return base_of(npp)->destroy_stream(npp, stream, reason);
}

int32_t npp_write_ready(NPP npp, NPStream* stream) {
    return base_of(npp)->write_ready(npp, stream);
}

int32_t npp_write(NPP npp, NPStream* stream, int32_t offset, int32_t len, void* data) {
    return base_of(npp)->write(npp, stream, offset, len, data);
}

void npp_url_notify(NPP npp, const char* url, NPReason reason, void* notify_data) {
    base_of(npp)->url_notify(npp, url, reason, notify_data);
}

NPError npp_get_value(NPP npp, NPPVariable variable, void* value) {
    return base_of(npp)->get_value(npp, variable, value);
}

}  // namespace

NPPluginFuncs plugin_functions(vask_np_factory* factory) {
    the_factory = factory;
    NPPluginFuncs functions{};
    functions.size = sizeof functions;
    functions.newp = npp_new;
    functions.destroy = npp_destroy;
    functions.newstream = npp_new_stream;
    functions.destroystream = npp_destroy_stream;
    functions.writeready = npp_write_ready;
    functions.write = npp_write;
    functions.urlnotify = npp_url_notify;
    functions.getvalue = npp_get_value;
    return functions;
}

in_browser::in_browser(object_counts counts) : browser(counts) {
    vask_np_base::NPNFuncs = browser.functions();
}

in_browser::~in_browser() {
    vask_np_base::NPNFuncs = NPNetscapeFuncs();
}

void in_browser::TearDown() {
    EXPECT_THAT(browser.complaints(), IsEmpty());
    EXPECT_THAT(browser.unbalanced(), IsEmpty());
}

void in_browser::show_everything() {
    vask_object::print_msg_level = VASK_P_DBG;
    log.clear();
}

in_browser_with_plugin::in_browser_with_plugin(object_counts counts) : in_browser(counts) {
    browser.load(plugin_functions(&factory));
}

void in_browser_with_plugin::TearDown() {
    factory.delete_queue();
    EXPECT_EQ(recorded_instance::alive, 0);
    in_browser::TearDown();
}

}  // namespace vask_test
