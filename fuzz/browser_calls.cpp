// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>

#include <cstring>
#include <string>
#include <vector>

#include "plugin/recorded_plugin.h"
#include "target.h"
#include "vask_test/fake_browser.h"

using vask_fuzz::input;
using vask_fuzz::require;
using namespace vask_test;

namespace {

constexpr const char* names[] = {
    "add_callback", "del_callback", "attachEvent", "detachEvent", "call_back", "known", "",
    "value"};

/** Pages that do with their plug-ins whatever an input says. */
class browsing {
public:
    explicit browsing(input& input)
        : m_input(input), m_browser(input.flag() ? object_counts::kept : object_counts::reset) {
        vask_np_base::NPNFuncs = m_browser.functions();
        m_browser.load(plugin_functions(&m_factory));
        m_browser.keep_no_ledger();
        m_browser.on_evaluate = [this](const std::string&, script_value* result) {
            act();
            *result = value();
            return true;
        };
    }

    ~browsing() {
        while (!m_pages.empty()) {
            close(0);
        }
        for (NPObject* object : m_objects) {
            while (m_browser.references(object) > 0) {
                m_browser.drop(object);
            }
        }
        // A factory lives as long as the plug-in: its timers call it.
        while (m_factory.pending_spawns > 0) {
            g_main_context_iteration(nullptr, TRUE);
        }
        m_factory.delete_queue();
        require(recorded_instance::alive == 0,
                "every instance ends with its page and its references");
        vask_np_base::NPNFuncs = NPNetscapeFuncs();
    }

    void act() {
        if (++m_depth > 4) {
            --m_depth;
            return;
        }
        switch (m_input.below(10)) {
            case 0:
                open();
                break;
            case 1:
                close(m_input.below(4));
                break;
            case 2:
                get_object();
                break;
            case 3:
            case 4:
                call();
                break;
            case 5:
                use_property();
                break;
            case 6:
                make_function();
                break;
            case 7:
                drop();
                break;
            case 8:
                ask_instance();
                break;
            default:
                ask_factory();
                break;
        }
        --m_depth;
    }

private:
    std::string name() {
        const std::size_t known = m_input.below(std::size(names) + 1);
        return known < std::size(names) ? names[known] : m_input.text();
    }

    script_value value() {
        switch (m_input.below(7)) {
            case 0:
                return {};
            case 1:
                return script_null();
            case 2:
                return m_input.flag();
            case 3:
                return m_input.number<std::int32_t>();
            case 4:
                return static_cast<double>(m_input.number<std::int32_t>()) / 3;
            case 5:
                return m_input.flag() ? name() : m_input.take(m_input.byte());
            default:
                return living_object() != nullptr ? script_value(living_object()) : script_null();
        }
    }

    std::vector<script_value> values() {
        std::vector<script_value> result(m_input.below(5));
        for (script_value& each : result) {
            each = value();
        }
        return result;
    }

    NPP page() { return m_pages.empty() ? nullptr : m_pages[m_input.below(m_pages.size())]; }

    NPObject* living_object() {
        NPObject* const object =
            m_objects.empty() ? nullptr : m_objects[m_input.below(m_objects.size())];
        return object != nullptr && m_browser.is_alive(object) ? object : nullptr;
    }

    void open() {
        if (m_pages.size() == 4) {
            return;
        }
        fake_browser::attribute_list attributes(m_input.below(4));
        for (auto& attribute : attributes) {
            attribute.first = m_input.text();
            attribute.second = m_input.text();
        }
        const NPP npp = m_browser.open(attributes);
        recorded_instance* const instance = instance_of(npp);
        require(instance->properties == attributes, "an instance gets its attributes");
        instance->add_jscb_func("known");
        m_pages.push_back(npp);
    }

    void close(std::size_t index) {
        if (index < m_pages.size()) {
            const NPP npp = m_pages[index];
            m_pages.erase(m_pages.begin() + static_cast<std::ptrdiff_t>(index));
            m_browser.close(npp);
        }
    }

    void get_object() {
        const NPP npp = page();
        // An object that is obtained again after its end goes with its page, whoever holds it.
        if (npp != nullptr && !instance_of(npp)->npobj_deallocated) {
            NPObject* const object = m_browser.scriptable(npp);
            require(object != nullptr, "an instance has an object");
            m_objects.push_back(object);
        }
    }

    void make_function() {
        m_objects.push_back(m_browser.make_function([this](const std::vector<script_value>&) {
            act();
            return value();
        }));
    }

    /** A browser holds what it calls. */
    template <typename Call>
    void while_held(NPObject* object, Call call) {
        m_browser.hold(object);
        call();
        if (m_browser.is_alive(object)) {
            m_browser.drop(object);
        }
    }

    void call() {
        if (NPObject* const object = living_object()) {
            while_held(object, [&] { m_browser.call(object, name(), values()); });
        }
    }

    void use_property() {
        NPObject* const object = living_object();
        if (object == nullptr) {
            return;
        }
        const NPIdentifier id = m_input.flag() ? m_browser.number(m_input.number<std::int32_t>())
                                               : m_browser.name(name());
        NPClass* const its = object->_class;
        NPVariant result;
        VOID_TO_NPVARIANT(result);
        script_arguments given{value()};
        while_held(object, [&] {
            its->hasMethod(object, id);
            its->hasProperty(object, id);
            its->setProperty(object, id, given.data());
            its->removeProperty(object, id);
            its->invokeDefault(object, given.data(), given.size(), &result);
            if (its->invalidate != nullptr && m_input.flag()) {
                its->invalidate(object);
            }
        });
    }

    void drop() {
        NPObject* const object = living_object();
        if (object != nullptr && m_browser.references(object) > 0) {
            m_browser.drop(object);
        }
    }

    void ask_instance() {
        const NPP npp = page();
        if (npp == nullptr) {
            return;
        }
        recorded_instance* const instance = instance_of(npp);
        NPVariant variant;
        VOID_TO_NPVARIANT(variant);
        variant.type = static_cast<NPVariantType>(m_input.byte());
        instance->get_NPVariant_type(&variant);
        instance->NPPVariable_to_type_descr(static_cast<NPPVariable>(m_input.number<int>()));
        script_arguments uri{m_input.take(m_input.byte())};
        require(instance->NPVariant_to_string(uri.data()).size() ==
                    NPVARIANT_TO_STRING(*uri.data()).UTF8Length,
                "a text is as long as it says");
        char* const directory = instance->anal_base_uri(uri.data());
        require(directory == nullptr ||
                    strlen(directory) <= NPVARIANT_TO_STRING(*uri.data()).UTF8Length,
                "a directory is a part of its URI");
        g_free(directory);
        instance->bytes_at_a_time = m_input.byte();
        m_browser.stream_to(npp, "url", m_input.text());
        instance->create_npobj("script");
    }

    void ask_factory() {
        if (m_input.flag()) {
            m_factory.set_preload(static_cast<int>(m_input.below(4)));
        }
        void* value = nullptr;
        m_factory.NP_GetValue(nullptr, static_cast<NPPVariable>(m_input.byte()), &value);
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
    }

    input& m_input;
    fake_browser m_browser;
    recorded_factory m_factory;
    std::vector<NPP> m_pages;
    std::vector<NPObject*> m_objects;
    int m_depth = 0;
};

}  // namespace

void set_up_target() {
    vask_fuzz::output_of_library::discard();
}

void run_target(input& input) {
    browsing browsing(input);
    for (int i = 0; i < 40 && input.has_more(); ++i) {
        browsing.act();
    }
}
