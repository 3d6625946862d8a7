// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <cstring>
#include <memory>
#include <stdexcept>

#include "recorded_plugin.h"
#include "support/counted_memory.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

constexpr const char* create_instance_text =
    "virtual vask_np_instance* vask_np_factory::create_instance()";
constexpr const char* new_instance_text =
    "virtual NPError vask_np_factory::new_instance(NPMIMEType, NPP, uint16_t, int16_t, char**, "
    "char**, NPSavedData*)";
constexpr const char* destroy_instance_text =
    "virtual NPError vask_np_factory::destroy_instance(NPP, NPSavedData**)";

/** The library's own class of instances. */
class plain_factory : public in_browser {
protected:
    NPError ask(int variable) {
        return factory.NP_GetValue(nullptr, static_cast<NPPVariable>(variable), &answer);
    }

    const char* const mime = "application/x-plain:plain:Plain";
    const char* const plugin_name = "Plain plug-in";
    const char* const description = "Plain";
    vask_np_factory factory{mime, "factory", plugin_name, description};
    const char* const untouched = "untouched";
    const char* answer = untouched;
};

class loaded_factory : public in_browser_with_plugin {
protected:
    NPP_t npp{};
};

}  // namespace

TEST_F(plain_factory, Shows_its_life) {
    show_everything();
    { vask_np_factory other("", "other", "", ""); }
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "other",
                                 "vask_np_factory::vask_np_factory(const char*, const char*, const "
                                 "char*, const char*)"),
                            line("DBG", "other", "vask_np_base::~vask_np_base"),
                            line("DBG", "other", "virtual vask_object::~vask_object()")));
}

TEST_F(plain_factory, Answers_with_the_mime_description_that_it_was_given) {
    show_everything();
    EXPECT_EQ(factory.NP_GetMimeDescription(), mime);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "factory",
                                 "virtual char* vask_np_factory::NP_GetMimeDescription()")));
}

TEST_F(plain_factory, Answers_with_the_plugins_name) {
    EXPECT_EQ(ask(NPPVpluginNameString), NPERR_NO_ERROR);
    EXPECT_EQ(answer, plugin_name);
}

TEST_F(plain_factory, Answers_with_the_plugins_description) {
    EXPECT_EQ(ask(NPPVpluginDescriptionString), NPERR_NO_ERROR);
    EXPECT_EQ(answer, description);
}

TEST_F(plain_factory, Shows_that_it_was_asked) {
    show_everything();
    ask(NPPVpluginNameString);
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "factory",
                                              "virtual NPError vask_np_factory::NP_GetValue(void*, "
                                              "NPPVariable, void*)")));
}

TEST_F(plain_factory, Does_not_answer_whether_xembed_is_needed) {
    EXPECT_EQ(ask(NPPVpluginNeedsXEmbed), NPERR_INVALID_PARAM);
    EXPECT_EQ(answer, untouched);
    EXPECT_THAT(log.lines(), ElementsAre(line("WARN", "factory", "Unknown variable 14")));
    EXPECT_EQ(log.text().back(), '\n');
}

TEST_F(plain_factory, Answers_no_other_question) {
    for (int variable : {0, 3, 13, 15, 17, 1000}) {
        log.clear();
        EXPECT_EQ(ask(variable), NPERR_INVALID_PARAM);
        EXPECT_EQ(answer, untouched);
        EXPECT_THAT(log.lines(), ElementsAre(line("WARN", "factory",
                                                  "Unknown variable " + std::to_string(variable))));
    }
}

TEST_F(plain_factory, Fills_no_table) {
    show_everything();
    NPNetscapeFuncs browser_table{}, empty_browser_table{};
    NPPluginFuncs plugin_table{}, empty_plugin_table{};
    EXPECT_EQ(factory._NP_Initialize(&browser_table, &plugin_table), NPERR_NO_ERROR);
    EXPECT_EQ(std::memcmp(&browser_table, &empty_browser_table, sizeof browser_table), 0);
    EXPECT_EQ(std::memcmp(&plugin_table, &empty_plugin_table, sizeof plugin_table), 0);
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "factory",
                                              "virtual NPError vask_np_factory::_NP_Initialize("
                                              "NPNetscapeFuncs*, NPPluginFuncs*)")));
}

TEST_F(plain_factory, Has_nothing_to_shut_down) {
    show_everything();
    EXPECT_EQ(factory.NP_Shutdown(), NPERR_NO_ERROR);
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "factory",
                                              "virtual NPError vask_np_factory::NP_Shutdown()")));
}

TEST_F(plain_factory, Makes_instances_of_its_own_name) {
    show_everything();
    std::unique_ptr<vask_np_instance> instance(factory.create_instance());
    ASSERT_NE(instance, nullptr);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(line("DBG", "factory", create_instance_text),
                    line("DBG", "factory", "vask_np_factory::create_extended_vask_np_instance"),
                    line("DBG", "factory", "vask_script::vask_script(const char*)(const char*)")));
}

TEST_F(plain_factory, Makes_no_instance_when_there_is_no_memory_for_it) {
    allocation_that_fails = 1;
    EXPECT_EQ(factory.create_instance(), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "factory", "Failed to create data")));
    EXPECT_EQ(log.text().back(), '\n');
}

TEST_F(plain_factory, Makes_no_instance_when_there_is_no_memory_in_its_constructor) {
    allocation_that_fails = 3;
    EXPECT_EQ(factory.create_instance(), nullptr);
    EXPECT_EQ(allocation_that_fails, 0);
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "factory", "Failed to create data")));
}

TEST_F(plain_factory, Lets_through_what_else_the_constructor_throws) {
    allocation_that_fails = 3;
    throw_for_failed_allocation = [] { throw std::runtime_error("not for want of memory"); };
    EXPECT_THROW(factory.create_instance(), std::runtime_error);
    EXPECT_THAT(log.lines(), IsEmpty());
    throw_for_failed_allocation = nullptr;
}

TEST_F(plain_factory, Serves_a_whole_instance) {
    NPP_t npp{};
    EXPECT_EQ(factory.new_instance(nullptr, &npp, NP_EMBED, 0, nullptr, nullptr, nullptr),
              NPERR_NO_ERROR);
    EXPECT_EQ(static_cast<vask_np_instance*>(npp.pdata)->npp, &npp);
    EXPECT_EQ(factory.destroy_instance(&npp, nullptr), NPERR_NO_ERROR);
}

TEST_F(loaded_factory, Keeps_the_texts_that_it_was_given) {
    EXPECT_STREQ(factory.mime_description, "application/x-fake:fake:Fake");
    EXPECT_STREQ(factory.plugin_name, "Fake plug-in");
    EXPECT_STREQ(factory.plugin_description, "A plug-in for tests");
    EXPECT_EQ(factory.preload_count, 0);
    EXPECT_EQ(factory.pending_spawns, 0);
    EXPECT_THAT(factory.preload_queue, IsEmpty());
}

TEST_F(loaded_factory, Attaches_a_new_instance) {
    NPError answer = -1;
    NPP opened = browser.open({{"src", "a.html"}, {"width", "100"}}, &answer);
    EXPECT_EQ(answer, NPERR_NO_ERROR);
    EXPECT_EQ(factory.created, 1);
    EXPECT_EQ(instance_of(opened)->npp, opened);
    EXPECT_FALSE(instance_of(opened)->preloaded);
    EXPECT_EQ(instance_of(opened)->preparations, 0);
    EXPECT_THAT(instance_of(opened)->properties,
                ElementsAre(Pair("src", "a.html"), Pair("width", "100")));
    browser.close(opened);
}

TEST_F(loaded_factory, Attaches_a_new_instance_before_it_hands_over_the_attributes) {
    NPP opened = browser.open();
    EXPECT_EQ(instance_of(opened)->npp_at_attributes, opened);
    EXPECT_EQ(instance_of(opened)->private_data_at_attributes, opened->pdata);
    browser.close(opened);
}

TEST_F(loaded_factory, Shows_that_it_attaches) {
    show_everything();
    factory.new_instance(nullptr, &npp, NP_FULL, 0, nullptr, nullptr, nullptr);
    EXPECT_EQ(log.lines().front(), line("DBG", plugin_object_name, new_instance_text));
    factory.destroy_instance(&npp, nullptr);
}

TEST_F(loaded_factory, Attaches_nothing_when_there_is_no_instance) {
    factory.out_of_memory = true;
    npp.pdata = this;
    EXPECT_EQ(factory.new_instance(nullptr, &npp, NP_EMBED, 0, nullptr, nullptr, nullptr), 5);
    EXPECT_EQ(npp.pdata, nullptr);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", plugin_object_name, "Failed to create vask_np_instance")));
    EXPECT_EQ(log.text().find('\n'), std::string::npos);
}

TEST_F(loaded_factory, Lets_through_what_a_products_class_throws) {
    class throwing_factory : public vask_np_factory {
    public:
        throwing_factory() : vask_np_factory("", "throwing", "", "") {}
        vask_np_instance* create_instance() override { throw std::runtime_error("no child"); }
    } throwing;
    EXPECT_THROW(throwing.new_instance(nullptr, &npp, NP_EMBED, 0, nullptr, nullptr, nullptr),
                 std::runtime_error);
}

TEST_F(loaded_factory, Deletes_an_instance_whose_object_nobody_asked_for) {
    NPP opened = browser.open();
    EXPECT_EQ(recorded_instance::alive, 1);
    EXPECT_EQ(browser.close(opened), NPERR_NO_ERROR);
    EXPECT_EQ(recorded_instance::alive, 0);
}

TEST_F(loaded_factory, Shows_that_it_destroys) {
    factory.new_instance(nullptr, &npp, NP_EMBED, 0, nullptr, nullptr, nullptr);
    show_everything();
    factory.destroy_instance(&npp, nullptr);
    EXPECT_EQ(log.lines().front(), line("DBG", plugin_object_name, destroy_instance_text));
}

TEST_F(loaded_factory, Leaves_private_data_and_saved_data_as_they_are) {
    factory.new_instance(nullptr, &npp, NP_EMBED, 0, nullptr, nullptr, nullptr);
    void* const attached = npp.pdata;
    NPSavedData data{};
    NPSavedData* saved = &data;
    EXPECT_EQ(factory.destroy_instance(&npp, &saved), NPERR_NO_ERROR);
    EXPECT_EQ(npp.pdata, attached);
    EXPECT_EQ(saved, &data);
}

TEST_F(loaded_factory, Serves_instances_independently) {
    NPP first = browser.open(), second = browser.open();
    EXPECT_NE(instance_of(first), instance_of(second));
    browser.close(first);
    EXPECT_EQ(recorded_instance::alive, 1);
    EXPECT_EQ(instance_of(second)->npp, second);
    browser.close(second);
}
