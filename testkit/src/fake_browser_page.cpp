// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// What a page and its user do with a plug-in.

#include <algorithm>
#include <utility>

#include "fake_page_object.h"
#include "vask_test/fake_browser.h"

namespace vask_test {

/** While the page calls the plug-in, objects of the plug-in live that a page left behind. */
class fake_browser::call_of_page {
public:
    explicit call_of_page(fake_browser* browser) : m_browser(browser) {
        ++m_browser->m_calls_of_page;
    }
    ~call_of_page() {
        if (--m_browser->m_calls_of_page == 0) {
            m_browser->end_doomed_objects();
        }
    }
    call_of_page(const call_of_page&) = delete;
    call_of_page& operator=(const call_of_page&) = delete;

private:
    fake_browser* const m_browser;
};

fake_element& fake_browser::element(NPP npp) {
    const auto open = m_elements.find(npp);
    if (open != m_elements.end()) {
        return *open->second;
    }
    const auto closed = m_closed_elements.find(npp);
    complain(closed == m_closed_elements.end() ? "an NPP that does not exist"
                                               : "an element that is closed");
    return closed == m_closed_elements.end() ? m_no_element : *closed->second;
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
        const call_of_page opening(this);
        std::string type = m_types.substr(0, m_types.find_first_of(":;"));
        if (type.empty()) {
            type = "application/x-fake";
        }
        const NPError error =
            m_plugin.newp(&type[0], npp, NP_EMBED, static_cast<int16_t>(copies.size()),
                          names.data(), values.data(), nullptr);
        if (answer) {
            *answer = error;
        }
    }
    return npp;
}

NPError fake_browser::close(NPP npp) {
    if (!is_open(npp)) {
        element(npp);
        return NPERR_INVALID_INSTANCE_ERROR;
    }
    // A script that NPP_Destroy runs may remove the element again.
    if (!m_closing.insert(npp).second) {
        return NPERR_NO_ERROR;
    }
    const call_of_page closing(this);
    break_off_requests(npp);
    NPSavedData* saved = nullptr;
    const NPError error = m_plugin.destroy ? m_plugin.destroy(npp, &saved) : NPERR_NO_ERROR;
    if (saved) {
        free(saved->buf);
        free(saved);
    }
    if (is_alive(element(npp).dom_object)) {
        drop(element(npp).dom_object);
    }
    if (m_keeps_ledger) {
        m_closed_elements[npp] = std::move(m_elements[npp]);
    }
    m_elements.erase(npp);
    m_closing.erase(npp);
    return error;
}

std::deque<fake_request>::iterator fake_browser::waiting_request(NPP npp) {
    return std::find_if(requests.begin(), requests.end(), [npp](const fake_request& request) {
        return request.notifies && request.npp == npp;
    });
}

// The plug-in hears of the end before the element is gone.
void fake_browser::break_off_requests(NPP npp) {
    for (;;) {
        const auto waiting = waiting_request(npp);
        if (waiting == requests.end()) {
            return;
        }
        const fake_request request = *waiting;
        requests.erase(waiting);
        if (m_plugin.urlnotify) {
            m_plugin.urlnotify(npp, request.url.c_str(), NPRES_USER_BREAK, request.notify_data);
        }
    }
}

void fake_browser::leave_page() {
    const call_of_page leaving(this);
    std::vector<NPP> open;
    for (const auto& element : m_elements) {
        open.push_back(element.first);
    }
    for (NPP npp : open) {
        // One may have closed another, and NPP_Destroy of one may have run the script that leaves.
        if (is_open(npp) && m_closing.count(npp) == 0) {
            close(npp);
        }
    }
    end_page();
    m_window = new_page_object();
}

void fake_browser::bury(std::shared_ptr<void> page_object) {
    if (m_keeps_ledger) {
        m_buried.push_back(std::move(page_object));
    }
}

// Who ends all objects needs no references to some of them.
void fake_browser::let_go_of_members() {
    for (const auto& object : m_objects) {
        if (object.second.is_of_page) {
            fake_page_object::from(object.first).held.clear();
        }
    }
}

void fake_browser::end_page() {
    let_go_of_members();
    std::vector<NPObject*> of_page;
    for (const auto& object : m_objects) {
        (object.second.is_of_page ? of_page : m_doomed).push_back(object.first);
    }
    for (NPObject* object : of_page) {
        end_whoever_has(object);
    }
}

void fake_browser::end_doomed_objects() {
    std::vector<NPObject*> doomed;
    doomed.swap(m_doomed);
    // All are told before any is gone, since they may have references to each other.
    for (NPObject* object : doomed) {
        if (is_alive(object) && object->_class->invalidate) {
            object->_class->invalidate(object);
        }
    }
    for (NPObject* object : doomed) {
        if (is_alive(object)) {
            end_whoever_has(object);
        }
    }
}

void fake_browser::end_whoever_has(NPObject* object) {
    if (references_of_plugin(object) != 0) {
        m_lost.push_back(unbalanced_line(object));
    }
    end(object, true);
}

NPError fake_browser::set_window(NPP npp, NPWindow* window) {
    const call_of_page setting(this);
    return m_plugin.setwindow ? m_plugin.setwindow(npp, window) : NPERR_NO_ERROR;
}

NPObject* fake_browser::scriptable(NPP npp) {
    const call_of_page asking(this);
    NPObject* object = nullptr;
    if (!m_plugin.getvalue ||
        m_plugin.getvalue(npp, NPPVpluginScriptableNPObject, &object) != NPERR_NO_ERROR ||
        !object) {
        return nullptr;
    }
    if (!check_alive(object, "NPP_GetValue")) {
        return nullptr;
    }
    ++m_objects[object].references_of_page;
    return object;
}

size_t fake_browser::stream_to(NPP npp, const std::string& url, const std::string& text) {
    const call_of_page streaming(this);
    NPStream stream{};
    stream.url = url.c_str();
    stream.end = static_cast<uint32_t>(text.size());
    char type[] = "text/plain";
    uint16_t stype = NP_NORMAL;
    if (!m_plugin.newstream || !m_plugin.writeready || !m_plugin.write || !m_plugin.destroystream ||
        m_plugin.newstream(npp, type, &stream, 0, &stype) != NPERR_NO_ERROR) {
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
    const auto waiting = waiting_request(npp);
    if (waiting == requests.end()) {
        complain("no request waits for an answer");
        return;
    }
    const fake_request request = *waiting;
    requests.erase(waiting);
    const call_of_page finishing(this);
    if (m_plugin.urlnotify) {
        m_plugin.urlnotify(npp, request.url.c_str(), reason, request.notify_data);
    }
}

NPObject* fake_browser::make_function(function_type body) {
    NPObject* function = new_page_object();
    fake_page_object::from(function).body = std::move(body);
    return function;
}

void fake_browser::set_member(NPObject* object, const std::string& name,
                              const script_value& value) {
    fake_page_object::set_member(object, identifier_of(name), value, false);
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
        NPObject* object = NPVARIANT_TO_OBJECT(*variant);
        if (!check_alive(object, "result of the plug-in")) {
            return false;
        }
        ++m_objects[object].references_of_page;
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
    const call_of_page calling(this);
    script_arguments given(arguments);
    NPVariant variant;
    VOID_TO_NPVARIANT(variant);
    const bool succeeded =
        object->_class->invoke &&
        object->_class->invoke(object, identifier_of(method), given.data(), given.size(), &variant);
    return with_result(succeeded, &variant, result);
}

bool fake_browser::read(NPObject* object, const std::string& property, script_value* result) {
    const call_of_page reading(this);
    NPVariant variant;
    VOID_TO_NPVARIANT(variant);
    const bool succeeded = object->_class->getProperty &&
                           object->_class->getProperty(object, identifier_of(property), &variant);
    return with_result(succeeded, &variant, result);
}

bool fake_browser::write(NPObject* object, const std::string& property, const script_value& value) {
    const call_of_page writing(this);
    script_arguments given{value};
    return object->_class->setProperty &&
           object->_class->setProperty(object, identifier_of(property), given.data());
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

void fake_browser::add_async_call(void (*function)(void*), void* data) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_keeps_ledger) {
        m_calls.push_back("PluginThreadAsyncCall");
    }
    m_async_calls.emplace_back(function, data);
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
