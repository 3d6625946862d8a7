// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <dlfcn.h>
#include <npapi/npfunctions.h>
#include <stddef.h>

#include <new>
#include <string>

#include "vask_test/googletest.h"
#include "vask_test/log_catcher.h"

using namespace vask_test;

namespace {

NPError accept_value(NPP, NPPVariable, void*) {
    return NPERR_NO_ERROR;
}

NPError run_out_of_memory(NPP, NPPVariable, void*) {
    throw std::bad_alloc();
}

}  // namespace

/** What the sample offers to a browser, without one. */
class entry_points : public testing::Test {
protected:
    entry_points() : browser(), plugin() {
        // The shared object stays loaded, and with it what it keeps ready.
        leak_listener::accept_leftovers();
        browser.size = sizeof browser;
        browser.version = NP_VERSION_MINOR;
        browser.setvalue = accept_value;
        plugin.size = sizeof plugin;
    }

    void SetUp() override {
        library = dlopen(VASK_TEST_PLUGIN, RTLD_NOW);
        ASSERT_NE(library, nullptr) << dlerror();
        initialize = find<NPError(NPNetscapeFuncs*, NPPluginFuncs*)>("NP_Initialize");
        shutdown = find<NPError()>("NP_Shutdown");
        get_value = find<NPError(void*, NPPVariable, void*)>("NP_GetValue");
        get_mime_description = find<const char*()>("NP_GetMIMEDescription");
    }

    template <typename Function>
    Function* find(const char* name) {
        void* address = dlsym(library, name);
        EXPECT_NE(address, nullptr) << name;
        return reinterpret_cast<Function*>(address);
    }

    NPError make_instance(NPP npp) {
        return plugin.newp(type, npp, NP_EMBED, 0, nullptr, nullptr, nullptr);
    }

    NPNetscapeFuncs browser;
    NPPluginFuncs plugin;
    void* library = nullptr;
    NPError (*initialize)(NPNetscapeFuncs*, NPPluginFuncs*) = nullptr;
    NPError (*shutdown)() = nullptr;
    NPError (*get_value)(void*, NPPVariable, void*) = nullptr;
    const char* (*get_mime_description)() = nullptr;
    char type[32] = "application/x-vask-demo";
};

TEST_F(entry_points, Describe_the_plug_in_before_it_is_initialized) {
    const char* name = nullptr;
    const char* description = nullptr;

    EXPECT_STREQ(get_mime_description(),
                 "application/x-vask-demo:vaskdemo:Demonstration of a plug-in");
    EXPECT_EQ(get_value(nullptr, NPPVpluginNameString, &name), NPERR_NO_ERROR);
    EXPECT_STREQ(name, "Demonstration plug-in");
    EXPECT_EQ(get_value(nullptr, NPPVpluginDescriptionString, &description), NPERR_NO_ERROR);
    EXPECT_STREQ(description, "Drives a child application for the page");
}

TEST_F(entry_points, Refuse_a_value_that_they_do_not_know) {
    log_catcher log;
    NPBool needs_xembed = 7;

    EXPECT_EQ(get_value(nullptr, NPPVpluginNeedsXEmbed, &needs_xembed), NPERR_INVALID_PARAM);

    EXPECT_EQ(needs_xembed, 7);
    EXPECT_THAT(log.lines(),
                testing::ElementsAre(line("WARN", "demo_plugin", "Unknown variable 14")));
}

TEST_F(entry_points, Refuse_a_browser_without_tables) {
    EXPECT_EQ(initialize(nullptr, &plugin), NPERR_INVALID_FUNCTABLE_ERROR);
    EXPECT_EQ(initialize(&browser, nullptr), NPERR_INVALID_FUNCTABLE_ERROR);
}

TEST_F(entry_points, Refuse_a_table_that_is_too_short_for_them) {
    plugin.size = sizeof plugin - 1;

    EXPECT_EQ(initialize(&browser, &plugin), NPERR_INVALID_FUNCTABLE_ERROR);
    EXPECT_EQ(plugin.newp, nullptr);
}

TEST_F(entry_points, Refuse_a_browser_of_another_or_an_older_version) {
    browser.version = 1 << 8 | NP_VERSION_MINOR;
    EXPECT_EQ(initialize(&browser, &plugin), NPERR_INCOMPATIBLE_VERSION_ERROR);

    browser.version = NPVERS_HAS_NPRUNTIME_SCRIPTING - 1;
    EXPECT_EQ(initialize(&browser, &plugin), NPERR_INCOMPATIBLE_VERSION_ERROR);
}

TEST_F(entry_points, Fill_the_browsers_table) {
    ASSERT_EQ(initialize(&browser, &plugin), NPERR_NO_ERROR);

    EXPECT_EQ(plugin.size, sizeof plugin);
    EXPECT_EQ(plugin.version, NP_VERSION_MINOR);
    EXPECT_NE(plugin.newp, nullptr);
    EXPECT_NE(plugin.destroy, nullptr);
    EXPECT_NE(plugin.setwindow, nullptr);
    EXPECT_NE(plugin.newstream, nullptr);
    EXPECT_NE(plugin.destroystream, nullptr);
    EXPECT_NE(plugin.asfile, nullptr);
    EXPECT_NE(plugin.writeready, nullptr);
    EXPECT_NE(plugin.write, nullptr);
    EXPECT_NE(plugin.print, nullptr);
    EXPECT_NE(plugin.event, nullptr);
    EXPECT_NE(plugin.urlnotify, nullptr);
    EXPECT_EQ(plugin.javaClass, nullptr);
    EXPECT_NE(plugin.getvalue, nullptr);
    EXPECT_NE(plugin.setvalue, nullptr);
}

TEST_F(entry_points, May_be_initialized_again_after_shutdown) {
    ASSERT_EQ(initialize(&browser, &plugin), NPERR_NO_ERROR);
    EXPECT_EQ(shutdown(), NPERR_NO_ERROR);

    EXPECT_EQ(initialize(&browser, &plugin), NPERR_NO_ERROR);
}

TEST_F(entry_points, Make_and_destroy_an_instance) {
    ASSERT_EQ(initialize(&browser, &plugin), NPERR_NO_ERROR);
    NPP_t npp = {};

    ASSERT_EQ(make_instance(&npp), NPERR_NO_ERROR);
    EXPECT_NE(npp.pdata, nullptr);

    EXPECT_EQ(plugin.destroy(&npp, nullptr), NPERR_NO_ERROR);
    EXPECT_EQ(npp.pdata, nullptr);
}

TEST_F(entry_points, Hand_the_instances_calls_on) {
    ASSERT_EQ(initialize(&browser, &plugin), NPERR_NO_ERROR);
    NPP_t npp = {};
    ASSERT_EQ(make_instance(&npp), NPERR_NO_ERROR);
    NPBool needs_xembed = 7;

    EXPECT_EQ(plugin.getvalue(&npp, NPPVpluginNeedsXEmbed, &needs_xembed), NPERR_NO_ERROR);
    EXPECT_EQ(needs_xembed, 0);
    EXPECT_EQ(plugin.setvalue(&npp, NPNVjavascriptEnabledBool, nullptr), NPERR_NO_ERROR);
    EXPECT_EQ(plugin.newstream(&npp, type, nullptr, 0, nullptr), NPERR_NO_ERROR);
    EXPECT_EQ(plugin.destroystream(&npp, nullptr, NPRES_DONE), NPERR_NO_ERROR);
    EXPECT_EQ(plugin.writeready(&npp, nullptr), 0);
    EXPECT_EQ(plugin.write(&npp, nullptr, 0, 0, nullptr), 0);
    EXPECT_EQ(plugin.event(&npp, nullptr), 0);

    EXPECT_EQ(plugin.destroy(&npp, nullptr), NPERR_NO_ERROR);
}

TEST_F(entry_points, Refuse_an_NPP_without_instance) {
    ASSERT_EQ(initialize(&browser, &plugin), NPERR_NO_ERROR);
    NPP_t without_instance = {};

    for (const NPP npp : {&without_instance, static_cast<NPP>(nullptr)}) {
        EXPECT_EQ(plugin.destroy(npp, nullptr), NPERR_INVALID_INSTANCE_ERROR);
        EXPECT_EQ(plugin.setwindow(npp, nullptr), NPERR_INVALID_INSTANCE_ERROR);
        EXPECT_EQ(plugin.newstream(npp, type, nullptr, 0, nullptr), NPERR_INVALID_INSTANCE_ERROR);
        EXPECT_EQ(plugin.destroystream(npp, nullptr, 0), NPERR_INVALID_INSTANCE_ERROR);
        EXPECT_EQ(plugin.writeready(npp, nullptr), 0);
        EXPECT_EQ(plugin.write(npp, nullptr, 0, 0, nullptr), -1);
        EXPECT_EQ(plugin.event(npp, nullptr), 0);
        EXPECT_EQ(plugin.getvalue(npp, NPPVpluginNeedsXEmbed, nullptr),
                  NPERR_INVALID_INSTANCE_ERROR);
        EXPECT_EQ(plugin.setvalue(npp, NPNVjavascriptEnabledBool, nullptr),
                  NPERR_INVALID_INSTANCE_ERROR);
        plugin.asfile(npp, nullptr, nullptr);
        plugin.print(npp, nullptr);
        plugin.urlnotify(npp, nullptr, NPRES_DONE, nullptr);
    }
    EXPECT_EQ(make_instance(nullptr), NPERR_INVALID_INSTANCE_ERROR);
}

TEST_F(entry_points, End_exceptions_with_a_line) {
    browser.setvalue = run_out_of_memory;
    ASSERT_EQ(initialize(&browser, &plugin), NPERR_NO_ERROR);
    NPP_t npp = {};
    log_catcher log;

    EXPECT_EQ(make_instance(&npp), NPERR_OUT_OF_MEMORY_ERROR);

    EXPECT_THAT(log.lines(),
                testing::Contains(line("ERR", "demo_plugin", "NPP_New: std::bad_alloc")));
    EXPECT_EQ(npp.pdata, nullptr);
}
