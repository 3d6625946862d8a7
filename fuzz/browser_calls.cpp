// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "plugin/recorded_plugin.h"
#include "target.h"
#include "vask_test/fake_browser.h"

using vask_fuzz::input;
using vask_fuzz::require;
using vask_fuzz::require_equal;
using namespace vask_test;

namespace {

constexpr const char* names[] = {
    "add_callback", "del_callback", "attachEvent", "detachEvent", "call_back", "known", "",
    "value"};

bool is_of_plugin(const NPObject* object) {
    return object->_class == &vask_script_class;
}

recorded_instance* owner_of(NPObject* object) {
    return static_cast<recorded_instance*>(static_cast<vask_np_instance*>(object));
}

/**
 * Pages that do with their plug-ins whatever an input says. As long as they are orderly, the
 * browser has nothing to complain about, and gets everything back.
 */
class browsing {
public:
    explicit browsing(input& input)
        : m_input(input),
          m_counts(input.flag() ? object_counts::kept : object_counts::reset),
          m_browser(m_counts) {
        vask_np_base::NPNFuncs = m_browser.functions();
        m_browser.load(plugin_functions(&m_factory));
        m_browser.keep_no_ledger();
        m_browser.on_evaluate = [this](const std::string&, script_value* result) {
            act();
            *result = value();
            // The library leaves it to nobody.
            m_is_orderly = m_is_orderly && !std::holds_alternative<std::string>(*result);
            return true;
        };
    }

    ~browsing() {
        while (!m_pages.empty()) {
            close(0);
        }
        end_objects_of_plugin();
        // A factory lives as long as the plug-in: its timers call it.
        while (m_factory.pending_spawns > 0) {
            g_main_context_iteration(nullptr, TRUE);
        }
        m_factory.delete_queue();
        require(recorded_instance::alive == 0,
                "every instance ends with its page and its references");
        if (m_is_orderly) {
            look_at_books();
        }
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
                return living_value();
        }
    }

    script_value living_value() {
        NPObject* const object = living_object();
        return object != nullptr ? script_value(object) : script_null();
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
            // An engine for which it is a new one forgets who has references.
            m_is_orderly = m_is_orderly && (m_counts == object_counts::kept ||
                                            !m_browser.is_alive(instance_of(npp)->object()));
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
        ++m_held[object];
        call();
        --m_held[object];
        if (m_browser.is_alive(object)) {
            m_browser.drop(object);
        }
    }

    void call() {
        NPObject* const object = living_object();
        if (object == nullptr) {
            return;
        }
        const std::string method = name();
        const std::vector<script_value> arguments = values();
        while_held(object, [&] {
            if (is_of_plugin(object) && is_registration(method)) {
                change_registration(object, method, arguments);
            } else {
                m_browser.call(object, method, arguments);
            }
        });
    }

    static bool is_registration(const std::string& method) {
        return std::find(std::begin(names), std::begin(names) + 4, method) != std::begin(names) + 4;
    }

    void change_registration(NPObject* object, const std::string& method,
                             const std::vector<script_value>& arguments) {
        const auto* const name =
            arguments.size() < 2 ? nullptr : std::get_if<std::string>(&arguments[0]);
        const auto* const function =
            arguments.size() < 2 ? nullptr : std::get_if<NPObject*>(&arguments[1]);
        const bool is_valid = name != nullptr && function != nullptr && *name == "known";
        NPObject* const before = owner_of(object)->get_jscb_npobj("known");
        NPObject* const given = is_valid ? *function : before;
        const bool adds = method == "add_callback" || method == "attachEvent";
        const bool removes = !adds && before != nullptr;
        // Who removes another function than is registered takes the reference to that one.
        m_is_orderly =
            m_is_orderly && (!is_valid || (!is_of_plugin(given) && (!removes || given == before)));
        const int references = m_browser.references_of_plugin(given);
        require(m_browser.call(object, method, arguments), "a registration never fails");
        if (!m_is_orderly) {
            return;
        }
        const int change = !is_valid ? 0 : adds ? 1 : removes ? -1 : 0;
        require(m_browser.references_of_plugin(given) == references + change,
                "a registration is a reference");
        NPObject* const after = adds || !is_valid ? given : nullptr;
        require(owner_of(object)->get_jscb_npobj("known") == after,
                "a function is registered until it is removed");
        if (is_valid && adds && before != nullptr) {
            m_replaced.push_back(before);
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
        m_browser.functions().releasevariantvalue(&result);
    }

    void drop() {
        NPObject* const object = living_object();
        if (object != nullptr && m_browser.references(object) > 0) {
            const int of_page =
                m_browser.references(object) - m_browser.references_of_plugin(object);
            m_is_orderly = m_is_orderly && of_page > m_held[object];
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
        if (NPObject* const made = instance->create_npobj("script")) {
            m_browser.functions().releaseobject(made);
        }
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

    // Whoever has them.
    void end_objects_of_plugin() {
        for (NPObject* object : m_objects) {
            while (m_browser.references(object) > 0 && is_of_plugin(object)) {
                m_browser.drop(object);
            }
        }
    }

    void look_at_books() {
        // The plug-in keeps them until the page has ended.
        for (NPObject* function : m_replaced) {
            m_browser.functions().releaseobject(function);
        }
        std::string faults;
        for (const std::string& fault : m_browser.faults()) {
            faults += fault + "\n";
        }
        require_equal(faults, "", "the browser gets back what is its own, and once");
    }

    input& m_input;
    const object_counts m_counts;
    fake_browser m_browser;
    recorded_factory m_factory;
    std::vector<NPP> m_pages;
    std::vector<NPObject*> m_objects;
    std::vector<NPObject*> m_replaced;
    std::map<NPObject*, int> m_held;
    bool m_is_orderly = true;
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
