// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Data that the browser streams to an instance, and the end of requests.

#include "recorded_plugin.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class instance_stream : public in_browser_with_plugin {
protected:
    void SetUp() override { npp = browser.open(); }

    void TearDown() override {
        browser.close(npp);
        in_browser_with_plugin::TearDown();
    }

    NPP npp = nullptr;
};

/** An instance of the library's own class, which wants nothing. */
class plain_instance_stream : public in_browser {
protected:
    void SetUp() override {
        browser.load(plugin_functions(&factory));
        npp = browser.open();
    }

    void TearDown() override {
        browser.close(npp);
        in_browser::TearDown();
    }

    vask_np_factory factory{"", "plain", "", ""};
    NPP npp = nullptr;
};

}  // namespace

TEST_F(instance_stream, Comes_in_the_portions_that_a_derived_class_asks_for) {
    instance_of(npp)->bytes_at_a_time = 4;
    EXPECT_EQ(browser.stream_to(npp, "http://host/", "0123456789"), 10u);
    EXPECT_EQ(instance_of(npp)->written, "0123456789");
}

TEST_F(instance_stream, May_be_empty) {
    instance_of(npp)->bytes_at_a_time = 4;
    EXPECT_EQ(browser.stream_to(npp, "http://host/", ""), 0u);
    EXPECT_EQ(instance_of(npp)->written, "");
}

TEST_F(plain_instance_stream, Brings_nothing_where_nobody_asks_for_data) {
    show_everything();
    EXPECT_EQ(browser.stream_to(npp, "http://host/", "0123456789"), 0u);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            line("DBG", "plain",
                 "virtual NPError vask_np_instance::new_stream(NPP, NPMIMEType, NPStream*, NPBool, "
                 "uint16*)"),
            line("DBG", "plain", "virtual int32_t vask_np_instance::write_ready(NPP, NPStream*)"),
            line("DBG", "plain",
                 "virtual NPError vask_np_instance::destroy_stream(NPP, NPStream*, NPError)")));
}

TEST_F(plain_instance_stream, Is_asked_for_and_its_end_is_heard_of) {
    vask_np_base base("base");
    EXPECT_EQ(base.NPN_GetURLNotify(npp, "http://host/", nullptr, nullptr), NPERR_NO_ERROR);
    show_everything();
    browser.finish_request(npp, NPRES_DONE);
    EXPECT_THAT(log.lines(), ElementsAre(line("DBG", "plain",
                                              "virtual void vask_np_instance::url_notify(NPP, "
                                              "const char*, NPReason, void*)")));
    EXPECT_THAT(browser.requests, IsEmpty());
}
