// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "vask_np_base.h"
#include "vask_test/log_catcher.h"
#include "vask_test/script_value.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class plugin_base : public testing::Test {
protected:
    const char* variable_name(int number) {
        return base.NPPVariable_to_type_descr(static_cast<NPPVariable>(number));
    }

    const char* type_name(int type) {
        NPVariant variant;
        VOID_TO_NPVARIANT(variant);
        variant.type = static_cast<NPVariantType>(type);
        return base.get_NPVariant_type(&variant);
    }

    /** The directory of a URI, or "(null)". */
    std::string directory_of(const std::string& uri) {
        script_arguments variant{uri};
        const std::unique_ptr<char, decltype(&std::free)> directory(
            base.anal_base_uri(variant.data()), &std::free);
        return directory ? directory.get() : "(null)";
    }

    log_catcher log;
    vask_np_base base{"base"};
};

NPVariant text_variant(const char* text, uint32_t length) {
    NPVariant variant;
    STRINGN_TO_NPVARIANT(text, length, variant);
    return variant;
}

}  // namespace

TEST_F(plugin_base, Says_goodbye_under_its_name) {
    vask_object::print_msg_level = VASK_P_DBG;
    { vask_np_base named("named"); }
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "named", "vask_np_base::~vask_np_base"),
                            line("DBG", "named", "virtual vask_object::~vask_object()")));
}

TEST_F(plugin_base, Knows_the_names_of_the_plugin_variables) {
    EXPECT_STREQ(variable_name(1), "NPPVpluginNameString");
    EXPECT_STREQ(variable_name(2), "NPPVpluginDescriptionString");
    EXPECT_STREQ(variable_name(3), "NPPVpluginWindowBool");
    EXPECT_STREQ(variable_name(4), "NPPVpluginTransparentBool");
    EXPECT_STREQ(variable_name(5), "NPPVjavaClass");
    EXPECT_STREQ(variable_name(6), "NPPVpluginWindowSize");
    EXPECT_STREQ(variable_name(7), "NPPVpluginTimerInterval");
    EXPECT_STREQ(variable_name(10), "NPPVpluginScriptableInstance");
    EXPECT_STREQ(variable_name(12), "NPPVjavascriptPushCallerBool");
    EXPECT_STREQ(variable_name(13), "NPPVpluginKeepLibraryInMemory");
    EXPECT_STREQ(variable_name(14), "NPPVpluginNeedsXEmbed");
    EXPECT_STREQ(variable_name(15), "NPPVpluginScriptableNPObject");
    EXPECT_STREQ(variable_name(16), "NPPVformValue");
}

TEST_F(plugin_base, Misspells_variable_11) {
    EXPECT_STREQ(variable_name(11), "NPPVpluginSriptableIID");
}

TEST_F(plugin_base, Does_not_know_other_variables) {
    for (int number : {0, 8, 9, 17, 18, 31, 1000}) {
        EXPECT_STREQ(variable_name(number), "Unknown") << number;
    }
}

TEST_F(plugin_base, Knows_the_names_of_the_types) {
    EXPECT_STREQ(type_name(NPVariantType_Null), "NPVariantType_Null");
    EXPECT_STREQ(type_name(NPVariantType_Bool), "NPVariantType_Bool");
    EXPECT_STREQ(type_name(NPVariantType_Int32), "NPVariantType_Int32");
    EXPECT_STREQ(type_name(NPVariantType_Double), "NPVariantType_Double");
    EXPECT_STREQ(type_name(NPVariantType_String), "NPVariantType_String");
    EXPECT_STREQ(type_name(NPVariantType_Object), "NPVariantType_Object");
}

TEST_F(plugin_base, Misspells_the_void_type) {
    EXPECT_STREQ(type_name(NPVariantType_Void), "NPVarintType_Void");
}

TEST_F(plugin_base, Does_not_know_type_7) {
    EXPECT_STREQ(type_name(7), "Unknown");
}

TEST_F(plugin_base, Does_not_know_a_type_far_outside) {
    EXPECT_STREQ(type_name(1000), "Unknown");
}

TEST_F(plugin_base, Does_not_know_the_type_of_no_variant) {
    EXPECT_STREQ(base.get_NPVariant_type(nullptr), "Unknown");
}

TEST_F(plugin_base, Copies_exactly_the_bytes_of_a_text) {
    script_arguments variant{std::string("unterminated")};
    EXPECT_EQ(base.NPVariant_to_string(variant.data()), "unterminated");
}

TEST_F(plugin_base, Copies_a_zero_within_a_text) {
    const NPVariant variant = text_variant("a\0b", 3);
    EXPECT_EQ(base.NPVariant_to_string(&variant), std::string("a\0b", 3));
}

TEST_F(plugin_base, Takes_a_text_without_characters_for_an_empty_one) {
    const NPVariant variant = text_variant(nullptr, 3);
    EXPECT_EQ(base.NPVariant_to_string(&variant), "");
}

TEST_F(plugin_base, Copies_an_empty_text) {
    script_arguments variant{std::string()};
    EXPECT_EQ(base.NPVariant_to_string(variant.data()), "");
}

TEST_F(plugin_base, Takes_no_variant_for_an_empty_text) {
    EXPECT_EQ(base.NPVariant_to_string(nullptr), "");
}

TEST_F(plugin_base, Does_not_look_at_the_type_of_a_text) {
    NPVariant variant = text_variant("text", 4);
    variant.type = NPVariantType_Int32;
    EXPECT_EQ(base.NPVariant_to_string(&variant), "text");
}

TEST_F(plugin_base, Cuts_a_uri_behind_its_last_slash) {
    EXPECT_EQ(directory_of("/docs/page.html"), "/docs/");
}

TEST_F(plugin_base, Leaves_the_uri_of_a_directory_whole) {
    EXPECT_EQ(directory_of("/docs/"), "/docs/");
}

TEST_F(plugin_base, Keeps_a_single_slash) {
    EXPECT_EQ(directory_of("/"), "/");
}

TEST_F(plugin_base, Finds_no_directory_in_a_text_without_slash) {
    EXPECT_EQ(directory_of("page.html"), "(null)");
}

TEST_F(plugin_base, Finds_no_directory_in_an_empty_text) {
    EXPECT_EQ(directory_of(""), "(null)");
}

TEST_F(plugin_base, Does_not_look_for_a_slash_behind_the_end_of_the_text) {
    const NPVariant variant = text_variant("page/", 4);
    EXPECT_EQ(base.anal_base_uri(&variant), nullptr);
}

TEST_F(plugin_base, Finds_no_directory_in_a_text_without_characters) {
    const NPVariant variant = text_variant(nullptr, 4);
    EXPECT_EQ(base.anal_base_uri(&variant), nullptr);
}

TEST_F(plugin_base, Finds_no_directory_in_other_values) {
    for (const script_value& value : std::vector<script_value>{
             std::monostate(), script_null(), true, 1, 0.5, static_cast<NPObject*>(nullptr)}) {
        script_arguments variant{value};
        EXPECT_EQ(base.anal_base_uri(variant.data()), nullptr);
    }
}

TEST_F(plugin_base, Finds_no_directory_in_no_variant) {
    EXPECT_EQ(base.anal_base_uri(nullptr), nullptr);
}

TEST_F(plugin_base, Says_nothing_about_texts_and_uris) {
    vask_object::print_msg_level = VASK_P_DBG;
    directory_of("/docs/");
    directory_of("page.html");
    base.NPVariant_to_string(nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}
