// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Products that were built against an earlier library call virtual operations by their slots.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/virtual_table.h"
#include "vask_np_factory.h"

using namespace vask_test;
using testing::ElementsAre;

TEST(virtual_order, Of_the_plugin_base) {
    const vask_np_base base("base");
    EXPECT_THAT(virtual_functions(base),
                ElementsAre("vask_np_base::~vask_np_base()", "vask_np_base::~vask_np_base()"));
}

TEST(virtual_order, Of_a_scriptable_object) {
    const vask_script script("script");
    EXPECT_THAT(
        virtual_functions(script),
        ElementsAre(
            "vask_script::~vask_script()", "vask_script::~vask_script()",
            "vask_script::invalidate(NPObject*)", "vask_script::has_method(NPObject*, void*)",
            "vask_script::invoke(NPObject*, void*, _NPVariant const*, unsigned int, _NPVariant*)",
            "vask_script::invoke_default(NPObject*, _NPVariant const*, unsigned int, _NPVariant*)",
            "vask_script::has_property(NPObject*, void*)",
            "vask_script::get_property(NPObject*, void*, _NPVariant*)",
            "vask_script::set_property(NPObject*, void*, _NPVariant const*)",
            "vask_script::remove_property(NPObject*, void*)",
            "vask_script::enumerate(NPObject*, void***, unsigned int*)"));
}

TEST(virtual_order, Of_an_instance) {
    const vask_np_instance instance("instance");
    EXPECT_THAT(
        virtual_functions(instance),
        ElementsAre(
            "vask_np_instance::~vask_np_instance()", "vask_np_instance::~vask_np_instance()",
            "vask_script::invalidate(NPObject*)", "vask_script::has_method(NPObject*, void*)",
            "vask_script::invoke(NPObject*, void*, _NPVariant const*, unsigned int, _NPVariant*)",
            "vask_script::invoke_default(NPObject*, _NPVariant const*, unsigned int, _NPVariant*)",
            "vask_script::has_property(NPObject*, void*)",
            "vask_script::get_property(NPObject*, void*, _NPVariant*)",
            "vask_script::set_property(NPObject*, void*, _NPVariant const*)",
            "vask_script::remove_property(NPObject*, void*)",
            "vask_script::enumerate(NPObject*, void***, unsigned int*)",
            "vask_np_instance::init_preload()",
            "vask_np_instance::parse_props(short, char**, char**)",
            "vask_np_instance::set_window(_NPP*, _NPWindow*)",
            "vask_np_instance::new_stream(_NPP*, char*, _NPStream*, unsigned char, unsigned "
            "short*)",
            "vask_np_instance::destroy_stream(_NPP*, _NPStream*, short)",
            "vask_np_instance::write_ready(_NPP*, _NPStream*)",
            "vask_np_instance::write(_NPP*, _NPStream*, int, int, void*)",
            "vask_np_instance::stream_as_file(_NPP*, _NPStream*, char const*)",
            "vask_np_instance::url_notify(_NPP*, char const*, short, void*)",
            "vask_np_instance::print(_NPP*, _NPPrint*)",
            "vask_np_instance::handle_event(_NPP*, void*)",
            "vask_np_instance::set_value(_NPP*, NPNVariable, void*)",
            "vask_np_instance::get_value(_NPP*, NPPVariable, void*)"));
}

TEST(virtual_order, Of_a_factory) {
    const vask_np_factory factory("", "factory", "", "");
    EXPECT_THAT(
        virtual_functions(factory),
        ElementsAre(
            "vask_np_factory::~vask_np_factory()", "vask_np_factory::~vask_np_factory()",
            "vask_np_factory::create_instance()", "vask_np_factory::calc_delayed_spawn_time()",
            "vask_np_factory::new_instance(char*, _NPP*, unsigned short, short, char**, char**, "
            "_NPSavedData*)",
            "vask_np_factory::destroy_instance(_NPP*, _NPSavedData**)",
            "vask_np_factory::_NP_Initialize(_NPNetscapeFuncs*, _NPPluginFuncs*)",
            "vask_np_factory::NP_GetValue(void*, NPPVariable, void*)",
            "vask_np_factory::NP_GetMimeDescription()", "vask_np_factory::NP_Shutdown()"));
}
