// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdexcept>

#include "recorded_plugin.h"

using namespace vask_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class page_uri : public in_browser {
protected:
    void SetUp() override { npp = browser.open(); }

    NPObject* dom_object() { return browser.element(npp).dom_object; }

    void set_base_uri(const script_value& value) {
        browser.set_member(dom_object(), "baseURI", value);
    }

    /** The element's reference is the one that stays. */
    void TearDown() override {
        EXPECT_THAT(browser.complaints(), IsEmpty());
        EXPECT_THAT(browser.unbalanced(), ElementsAre(HasSubstr("vask_np_base::get_baseURI")));
        EXPECT_EQ(browser.references_of_plugin(dom_object()), 1);
    }

    NPP npp;
    vask_np_base base{"base"};
};

class page_uri_without_element : public page_uri {
protected:
    void TearDown() override { in_browser::TearDown(); }
};

}  // namespace

TEST_F(page_uri, Is_the_directory_of_the_page) {
    set_base_uri("http://host/docs/page.html");
    EXPECT_EQ(base.get_baseURI(npp), "http://host/docs/");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(page_uri, Comes_from_an_unterminated_text) {
    set_base_uri("/");
    EXPECT_EQ(base.get_baseURI(npp), "/");
}

TEST_F(page_uri, Keeps_one_more_reference_to_the_element_with_every_question) {
    set_base_uri("/docs/");
    base.get_baseURI(npp);
    base.get_baseURI(npp);
    EXPECT_EQ(browser.references_of_plugin(dom_object()), 2);
    browser.drop(dom_object());
    browser.hold(dom_object());
    vask_np_base::NPNFuncs.releaseobject(dom_object());
}

TEST_F(page_uri, Is_asked_of_the_element_for_its_own_instance) {
    static NPP asked_npp;
    static NPObject* asked_object;
    static NPIdentifier asked_name;
    vask_np_base::NPNFuncs.getproperty = [](NPP of, NPObject* object, NPIdentifier name,
                                            NPVariant*) {
        asked_npp = of;
        asked_object = object;
        asked_name = name;
        return false;
    };
    EXPECT_THROW(base.get_baseURI(npp), std::logic_error);
    EXPECT_EQ(asked_npp, npp);
    EXPECT_EQ(asked_object, dom_object());
    EXPECT_EQ(asked_name, browser.name("baseURI"));
}

TEST_F(page_uri, Fails_when_the_element_has_none) {
    EXPECT_THROW(base.get_baseURI(npp), std::logic_error);
    EXPECT_EQ(log.text().find('\n'), std::string::npos);
    EXPECT_THAT(log.lines(), ElementsAre(line("ERR", "base", "Failed to get the base URI")));
}

TEST_F(page_uri, Fails_with_the_address_of_the_object_that_asked) {
    const vask_object* const address = &base;
    vask_object::print_flags |= VASK_P_FLAG_ADDR;

    EXPECT_THROW(base.get_baseURI(npp), std::logic_error);

    EXPECT_THAT(log.text(),
                HasSubstr(vask_object::vask_sprintf(":%p] ERR: Failed to get the base URI",
                                                    static_cast<const void*>(address))));
    vask_object::print_flags &= ~static_cast<unsigned int>(VASK_P_FLAG_ADDR);
}

TEST_F(page_uri, Fails_without_a_line_when_it_has_no_slash) {
    set_base_uri("about:blank");
    EXPECT_THROW(base.get_baseURI(npp), std::logic_error);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(page_uri, Fails_when_the_page_has_put_a_number_in_its_place) {
    set_base_uri(0x41414141);
    EXPECT_THROW(base.get_baseURI(npp), std::logic_error);
}

TEST_F(page_uri, Fails_when_the_page_has_put_an_object_in_its_place) {
    NPObject* object = browser.make_function();
    set_base_uri(object);
    EXPECT_THROW(base.get_baseURI(npp), std::logic_error);
    EXPECT_EQ(browser.references_of_plugin(object), 0);
}

TEST_F(page_uri, Fails_when_the_page_has_put_nothing_in_its_place) {
    set_base_uri(script_null());
    EXPECT_THROW(base.get_baseURI(npp), std::logic_error);
}

TEST_F(page_uri_without_element, Fails_when_the_browser_refuses_the_element) {
    browser.on_get_value = [](NPP, NPNVariable, void*) -> NPError { return NPERR_GENERIC_ERROR; };
    EXPECT_THROW(base.get_baseURI(npp), std::logic_error);
    EXPECT_EQ(log.text().find('\n'), std::string::npos);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "base", "Failed to get our DOM Element NPObject")));
}

TEST_F(page_uri_without_element, Fails_when_the_browser_gives_the_element_and_refuses_it) {
    set_base_uri("http://host/docs/page.html");
    browser.on_get_value = [this](NPP, NPNVariable, void* value) -> NPError {
        *static_cast<NPObject**>(value) = dom_object();
        return NPERR_GENERIC_ERROR;
    };
    EXPECT_THROW(base.get_baseURI(npp), std::logic_error);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "base", "Failed to get our DOM Element NPObject")));
}

TEST_F(page_uri_without_element, Asks_for_the_element_of_its_own_instance) {
    NPP asked_npp = nullptr;
    int asked_variable = 0;
    browser.on_get_value = [&](NPP of, NPNVariable variable, void*) -> NPError {
        asked_npp = of;
        asked_variable = variable;
        return NPERR_GENERIC_ERROR;
    };
    EXPECT_THROW(base.get_baseURI(npp), std::logic_error);
    EXPECT_EQ(asked_npp, npp);
    EXPECT_EQ(asked_variable, 16);
}

TEST_F(page_uri_without_element, Fails_when_the_browser_gives_no_object) {
    browser.on_get_value = [](NPP, NPNVariable, void*) -> NPError { return NPERR_NO_ERROR; };
    EXPECT_THROW(base.get_baseURI(npp), std::logic_error);
    EXPECT_THAT(log.lines(),
                ElementsAre(line("ERR", "base", "Failed to get our DOM Element NPObject")));
}
