// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What an instance answers when no product has overridden anything.

#include "recorded_plugin.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class plain_instance : public in_browser {
protected:
    void expect_line(const std::string& text) {
        EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "plain", text)));
        EXPECT_EQ(log.text().back(), '\n');
    }

    void SetUp() override { show_everything(); }

    vask_np_instance instance{"plain"};
    NPP_t npp{};
    NPStream stream{};
};

/** Lets tests see whether a derived class may answer for itself. */
class without_xembed : public vask_np_instance {
public:
    without_xembed() : vask_np_instance("without_xembed") { needs_xembed = false; }
};

NPWindow some_window() {
    NPWindow window{};
    window.window = reinterpret_cast<void*>(0xabcd);
    window.x = 1;
    window.y = -2;
    window.width = 3;
    window.height = 4;
    return window;
}

}  // namespace

TEST_F(plain_instance, Starts_unattached) {
    const recorded_instance fresh("fresh");
    EXPECT_EQ(fresh.npp, nullptr);
    EXPECT_TRUE(fresh.needs_xembed);
    EXPECT_FALSE(fresh.preloaded);
    EXPECT_FALSE(fresh.npobj_allocated);
    EXPECT_FALSE(fresh.destroy_pending);
    EXPECT_FALSE(fresh.npobj_deallocated);
    EXPECT_EQ(fresh.get_window_width(), -1);
    EXPECT_FALSE(fresh.is_window_data_changed());
}

TEST_F(plain_instance, Shows_its_life) {
    { vask_np_instance other("other"); }
    EXPECT_THAT(log.lines(),
                ElementsAre(line("DBG", "other",
                                 "vask_script::vask_script(const char*)(const "
                                 "char*)"),
                            line("DBG", "other", "virtual vask_np_instance::~vask_np_instance()"),
                            line("DBG", "other", "virtual vask_script::~vask_script()"),
                            line("DBG", "other", "vask_np_base::~vask_np_base"),
                            line("DBG", "other", "virtual vask_object::~vask_object()")));
}

TEST_F(plain_instance, Prepares_nothing) {
    instance.init_preload();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(plain_instance, Shows_the_number_of_attributes) {
    char name[] = "src", value[] = "a.html";
    char *names[] = {name}, *values[] = {value};
    instance.parse_props(1, names, values);
    expect_line("virtual void vask_np_instance::parse_props(int16_t, char**, char**): 1");
}

TEST_F(plain_instance, Shows_its_window_and_does_not_store_it) {
    NPWindow window = some_window();
    EXPECT_EQ(instance.set_window(&npp, &window), NPERR_NO_ERROR);
    expect_line(
        "virtual NPError vask_np_instance::set_window(NPP, NPWindow*): (x, y, h, w, id) = "
        "(1, -2, 3, 4, 0xabcd)");
    EXPECT_EQ(instance.get_window_x(), -1);
    EXPECT_EQ(instance.get_window_xid(), 0ul);
}

TEST_F(plain_instance, Accepts_that_there_is_no_window) {
    EXPECT_EQ(instance.set_window(&npp, nullptr), NPERR_NO_ERROR);
    expect_line("virtual NPError vask_np_instance::set_window(NPP, NPWindow*)");
}

TEST_F(plain_instance, Accepts_a_stream_as_it_comes) {
    char type[] = "text/plain";
    uint16_t stype = 42;
    EXPECT_EQ(instance.new_stream(&npp, type, &stream, 1, &stype), NPERR_NO_ERROR);
    EXPECT_EQ(stype, 42);
    expect_line(
        "virtual NPError vask_np_instance::new_stream(NPP, NPMIMEType, NPStream*, NPBool, "
        "uint16*)");
}

TEST_F(plain_instance, Accepts_the_end_of_a_stream) {
    EXPECT_EQ(instance.destroy_stream(&npp, &stream, NPRES_NETWORK_ERR), NPERR_NO_ERROR);
    expect_line("virtual NPError vask_np_instance::destroy_stream(NPP, NPStream*, NPError)");
}

TEST_F(plain_instance, Wants_no_data) {
    EXPECT_EQ(instance.write_ready(&npp, &stream), 0);
    expect_line("virtual int32_t vask_np_instance::write_ready(NPP, NPStream*)");
}

TEST_F(plain_instance, Takes_no_data) {
    char data[] = "data";
    EXPECT_EQ(instance.write(&npp, &stream, 0, 4, data), 0);
    expect_line("virtual int32_t vask_np_instance::write(NPP, NPStream*, int32_t, int32_t, void*)");
}

TEST_F(plain_instance, Hears_of_a_stream_in_a_file) {
    instance.stream_as_file(&npp, &stream, "/tmp/file");
    expect_line("virtual void vask_np_instance::stream_as_file(NPP, NPStream*, const char*)");
}

TEST_F(plain_instance, Hears_of_the_end_of_a_request) {
    instance.url_notify(&npp, "http://host/", NPRES_DONE, nullptr);
    expect_line("virtual void vask_np_instance::url_notify(NPP, const char*, NPReason, void*)");
}

TEST_F(plain_instance, Hears_of_printing) {
    NPPrint print{};
    instance.print(&npp, &print);
    expect_line("virtual void vask_np_instance::print(NPP, NPPrint*)");
}

TEST_F(plain_instance, Handles_no_event) {
    EXPECT_EQ(instance.handle_event(&npp, nullptr), 0);
    expect_line("virtual int16_t vask_np_instance::handle_event(NPP, void*)");
}

TEST_F(plain_instance, Accepts_every_value) {
    EXPECT_EQ(instance.set_value(&npp, NPNVisOfflineBool, nullptr), NPERR_NO_ERROR);
    expect_line("virtual NPError vask_np_instance::set_value(NPP, NPNVariable, void*)");
}

TEST_F(plain_instance, Needs_xembed) {
    // One byte, with neighbours that have to stay as they are.
    NPBool answer[3] = {42, 42, 42};
    EXPECT_EQ(instance.get_value(&npp, NPPVpluginNeedsXEmbed, &answer[1]), NPERR_NO_ERROR);
    EXPECT_THAT(answer, ElementsAre(42, 1, 42));
    expect_line(
        "virtual NPError vask_np_instance::get_value(NPP, NPPVariable, void*): 14 "
        "(NPPVpluginNeedsXEmbed)");
}

TEST_F(plain_instance, Needs_no_xembed_when_a_derived_class_says_so) {
    without_xembed other;
    NPBool answer[3] = {42, 42, 42};
    EXPECT_EQ(other.get_value(&npp, NPPVpluginNeedsXEmbed, &answer[1]), NPERR_NO_ERROR);
    EXPECT_THAT(answer, ElementsAre(42, 0, 42));
}

TEST_F(plain_instance, Has_no_object_of_the_old_interface) {
    int value = 42;
    EXPECT_EQ(instance.get_value(&npp, NPPVpluginScriptableInstance, &value), NPERR_GENERIC_ERROR);
    expect_line(
        "virtual NPError vask_np_instance::get_value(NPP, NPPVariable, void*): 10 "
        "(NPPVpluginScriptableInstance)");
    EXPECT_EQ(value, 42);
}

TEST_F(plain_instance, Has_no_interface_id_of_the_old_interface) {
    int value = 42;
    EXPECT_EQ(instance.get_value(&npp, NPPVpluginScriptableIID, &value), NPERR_GENERIC_ERROR);
    expect_line(
        "virtual NPError vask_np_instance::get_value(NPP, NPPVariable, void*): 11 "
        "(NPPVpluginSriptableIID)");
    EXPECT_EQ(value, 42);
}

TEST_F(plain_instance, Leaves_every_other_question_to_the_factory) {
    for (int variable : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 12, 13, 16, 17, 1000}) {
        log.clear();
        int value = 42;
        EXPECT_EQ(instance.get_value(&npp, static_cast<NPPVariable>(variable), &value),
                  NPERR_INVALID_PARAM);
        EXPECT_EQ(log.lines().back(),
                  line("WARN", "plain", "Unknown value: " + std::to_string(variable)));
        EXPECT_EQ(log.text().back(), '\n');
        EXPECT_EQ(value, 42);
    }
}

TEST_F(plain_instance, Stores_the_window_for_a_derived_class) {
    NPWindow window = some_window();
    instance.save_window_data(&window);
    EXPECT_EQ(instance.get_window_x(), 1);
    EXPECT_EQ(instance.get_window_y(), -2);
    EXPECT_EQ(instance.get_window_width(), 3);
    EXPECT_EQ(instance.get_window_height(), 4);
    EXPECT_EQ(instance.get_window_xid(), 0xabcdul);
    EXPECT_TRUE(instance.is_window_data_changed());
}

TEST_F(plain_instance, Notices_a_window_that_has_not_changed) {
    NPWindow window{};
    instance.save_window_data(&window);
    instance.save_window_data(&window);
    EXPECT_FALSE(instance.is_window_data_changed());
}

TEST_F(plain_instance, Keeps_its_window_when_there_is_none) {
    NPWindow window{};
    window.width = 3;
    instance.save_window_data(&window);
    instance.save_window_data(nullptr);
    EXPECT_EQ(instance.get_window_width(), 3);
    EXPECT_TRUE(instance.is_window_data_changed());
}

TEST_F(plain_instance, Stores_a_window_value_by_value_as_well) {
    instance.save_window_data(1, 2, 3, 4, 5);
    EXPECT_EQ(instance.get_window_xid(), 5ul);
}
