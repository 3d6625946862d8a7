// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What a page and its user do with a plug-in.

#include <algorithm>
#include <cstdlib>

#include "fake_page_object.h"
#include "vask_test/fake_browser.h"

namespace vask_test {

fake_element& fake_browser::element(NPP npp) {
    const auto known = m_elements.find(npp);
    if (known != m_elements.end()) {
        return *known->second;
    }
    complain("an NPP that does not exist");
    std::abort();
}

NPP fake_browser::open(const attribute_list& attributes, NPError* answer) {
    std::unique_ptr<fake_element> element(new fake_element);
    element->dom_object = new_page_object();
    NPP npp = &element->npp;
    npp->ndata = this;
    m_elements[npp] = std::move(element);

    attribute_list copies = attributes;
    std::vector<char*> names, values;
    for (auto& attribute : copies) {
        names.push_back(&attribute.first[0]);
        values.push_back(&attribute.second[0]);
    }
    if (m_plugin.newp) {
        char type[] = "application/x-fake";
        const NPError error =
            m_plugin.newp(type, npp, NP_EMBED, static_cast<int16_t>(copies.size()), names.data(),
                          values.data(), nullptr);
        if (answer) {
            *answer = error;
        }
    }
    return npp;
}

NPError fake_browser::close(NPP npp) {
    NPSavedData* saved = nullptr;
    const NPError error = m_plugin.destroy ? m_plugin.destroy(npp, &saved) : NPERR_NO_ERROR;
    if (saved) {
        free(saved->buf);
        free(saved);
    }
    drop(element(npp).dom_object);
    m_elements.erase(npp);
    return error;
}

NPObject* fake_browser::scriptable(NPP npp) {
    NPObject* object = nullptr;
    if (m_plugin.getvalue(npp, NPPVpluginScriptableNPObject, &object) != NPERR_NO_ERROR) {
        return nullptr;
    }
    ++m_objects[object].references_of_page;
    return object;
}

size_t fake_browser::stream_to(NPP npp, const std::string& url, const std::string& text) {
    NPStream stream{};
    stream.url = url.c_str();
    stream.end = static_cast<uint32_t>(text.size());
    char type[] = "text/plain";
    uint16_t stype = NP_NORMAL;
    if (m_plugin.newstream(npp, type, &stream, 0, &stype) != NPERR_NO_ERROR) {
        return 0;
    }

    std::string rest = text;
    size_t taken = 0;
    while (!rest.empty()) {
        const int32_t ready =
            std::min(m_plugin.writeready(npp, &stream), static_cast<int32_t>(rest.size()));
        if (ready <= 0) {
            break;
        }
        const int32_t written =
            m_plugin.write(npp, &stream, static_cast<int32_t>(taken), ready, &rest[0]);
        if (written <= 0) {
            break;
        }
        taken += static_cast<size_t>(written);
        rest.erase(0, static_cast<size_t>(written));
    }
    m_plugin.destroystream(npp, &stream, rest.empty() ? NPRES_DONE : NPRES_USER_BREAK);
    return taken;
}

void fake_browser::finish_request(NPP npp, NPReason reason) {
    const auto waiting = std::find_if(requests.begin(), requests.end(),
                                      [](const fake_request& request) { return request.notifies; });
    if (waiting == requests.end()) {
        complain("no request waits for an answer");
        return;
    }
    const fake_request request = *waiting;
    requests.erase(waiting);
    m_plugin.urlnotify(npp, request.url.c_str(), reason, request.notify_data);
}

NPObject* fake_browser::make_function(function_type body) {
    NPObject* function = new_page_object();
    fake_page_object::from(function).body = std::move(body);
    return function;
}

void fake_browser::set_member(NPObject* object, const std::string& name,
                              const script_value& value) {
    fake_page_object::from(object).members[identifier_of(name)] = value;
}

void fake_browser::hold(NPObject* object) {
    retain(object, true);
}

void fake_browser::drop(NPObject* object) {
    release(object, true);
}

void fake_browser::tear_down(NPObject* object) {
    if (object->_class->invalidate) {
        object->_class->invalidate(object);
    }
    end(object, true);
}

void fake_browser::forget(NPObject* object) {
    m_objects.erase(object);
}

bool fake_browser::with_result(bool succeeded, NPVariant* variant, script_value* result) {
    if (!succeeded) {
        return false;
    }
    if (NPVARIANT_IS_OBJECT(*variant)) {
        ++m_objects[NPVARIANT_TO_OBJECT(*variant)].references_of_page;
    }
    if (result) {
        *result = value_of(*variant);
    }
    if (!result || !NPVARIANT_IS_OBJECT(*variant)) {
        release_value(variant, true);
    }
    return true;
}

bool fake_browser::call(NPObject* object, const std::string& method,
                        const std::vector<script_value>& arguments, script_value* result) {
    script_arguments given(arguments);
    NPVariant variant;
    VOID_TO_NPVARIANT(variant);
    return with_result(
        object->_class->invoke(object, identifier_of(method), given.data(), given.size(), &variant),
        &variant, result);
}

bool fake_browser::read(NPObject* object, const std::string& property, script_value* result) {
    NPVariant variant;
    VOID_TO_NPVARIANT(variant);
    return with_result(object->_class->getProperty(object, identifier_of(property), &variant),
                       &variant, result);
}

bool fake_browser::write(NPObject* object, const std::string& property, const script_value& value) {
    script_arguments given{value};
    return object->_class->setProperty(object, identifier_of(property), given.data());
}

int fake_browser::references_of_plugin(NPObject* object) const {
    const auto known = m_objects.find(object);
    return known == m_objects.end() ? 0
                                    : known->second.references - known->second.references_of_page;
}

int fake_browser::references(NPObject* object) const {
    const auto known = m_objects.find(object);
    return known == m_objects.end() ? 0 : known->second.references;
}

void fake_browser::free_everything() {
    while (!m_memory.empty()) {
        free(m_memory.begin()->first);
    }
}

void fake_browser::run_async_calls() {
    std::vector<std::pair<void (*)(void*), void*>> calls;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        calls.swap(m_async_calls);
    }
    for (const auto& call : calls) {
        call.first(call.second);
    }
}

}  // namespace vask_test
