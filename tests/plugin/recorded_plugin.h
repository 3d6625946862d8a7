// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_RECORDED_PLUGIN_H
#define VASK_TEST_RECORDED_PLUGIN_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "vask_np_factory.h"
#include "vask_test/fake_browser.h"
#include "vask_test/log_catcher.h"

namespace vask_test {

constexpr const char* plugin_object_name = "plugin";

/** An instance that remembers what it was told, and lets tests see the inside. */
class recorded_instance : public vask_np_instance {
public:
    explicit recorded_instance(const char* name);
    ~recorded_instance() override;

    void init_preload() override;
    void parse_props(int16_t argc, char** argn, char** argv) override;
    int32_t write_ready(NPP for_npp, NPStream* stream) override;
    int32_t write(NPP for_npp, NPStream* stream, int32_t offset, int32_t len, void* data) override;

    /** The method "call_back": calls the function that was registered under the given name. */
    bool call_back(const NPVariant* args, uint32_t arg_count, NPVariant* result);

    using vask_np_instance::getter_map;
    using vask_np_instance::jscb_func_set;
    using vask_np_instance::jscb_map;
    using vask_np_instance::method_map;
    using vask_np_instance::needs_xembed;
    using vask_np_instance::setter_map;

    /** The address that the browser knows. */
    NPObject* object() { return this; }

    int preparations = 0;
    bool preloaded_at_preparation = false;
    NPP npp_at_attributes = nullptr;
    void* private_data_at_attributes = nullptr;
    std::vector<std::pair<std::string, std::string>> properties;
    int32_t bytes_at_a_time = 0;
    std::string written;

    /** Instances that exist. */
    static int alive;
};

/** Makes recorded instances, and lets tests see the inside. */
class recorded_factory : public vask_np_factory {
public:
    recorded_factory();

    vask_np_instance* create_instance() override;
    unsigned int calc_delayed_spawn_time() override;

    using vask_np_factory::mime_description;
    using vask_np_factory::pending_spawns;
    using vask_np_factory::plugin_description;
    using vask_np_factory::plugin_name;
    using vask_np_factory::preload_count;
    using vask_np_factory::preload_queue;

    recorded_instance* queued(size_t i) {
        return static_cast<recorded_instance*>(preload_queue.at(i));
    }
    void delete_queue();

    int created = 0;
    int pending_spawns_at_creation = -1;
    int pending_spawns_at_delay = -1;
    bool out_of_memory = false;
    bool spawns_at_once = true;
};

/** The functions of a plug-in that forwards everything to a factory and its instances. */
NPPluginFuncs plugin_functions(vask_np_factory* factory);

recorded_instance* instance_of(NPP npp);

/** The library's base classes in a browser. Afterwards the browser must have nothing to complain
 *  about, and have got everything back. */
class in_browser : public testing::Test {
protected:
    explicit in_browser(object_counts counts = object_counts::reset);
    ~in_browser() override;
    void TearDown() override;

    /** Diagnostics of every level from now on. */
    void show_everything();

    fake_browser browser;
    log_catcher log;
};

/** The same with a plug-in that is loaded. */
class in_browser_with_plugin : public in_browser {
protected:
    explicit in_browser_with_plugin(object_counts counts = object_counts::reset);
    void TearDown() override;

    recorded_factory factory;
};

}  // namespace vask_test

#endif
