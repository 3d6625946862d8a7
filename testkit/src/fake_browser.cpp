// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/fake_browser.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "fake_page_object.h"
#include "fake_table.h"

namespace vask_test {

namespace {

fake_browser* the_browser = nullptr;

std::string described(const void* address) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", address);
    return text;
}

}  // namespace

fake_browser::fake_browser(object_counts counts)
    : m_counts(counts), m_thread(std::this_thread::get_id()), m_functions(fake_functions()) {
    if (the_browser) {
        std::abort();
    }
    the_browser = this;
    m_window = new_page_object();
}

fake_browser::~fake_browser() {
    unload();
    free_everything();
    let_go_of_members();
    for (const auto& object : m_objects) {
        if (object.second.is_of_page) {
            fake_page_object::deallocate(object.first);
        }
    }
    the_browser = nullptr;
}

fake_browser& fake_browser::the() {
    if (!the_browser) {
        std::abort();
    }
    return *the_browser;
}

void fake_browser::complain(const std::string& about) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_complaints.push_back(about + ", from " + call_place::here().text());
}

bool fake_browser::begin_call(const char* function, NPP npp) {
    if (m_keeps_ledger) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back(function);
    }
    if (std::this_thread::get_id() != m_thread) {
        complain(std::string(function) + ": called on another thread");
    } else if (npp && m_closed_elements.count(npp) != 0) {
        complain(std::string(function) + ": for an element that is closed");
    }
    const auto known = m_failures.find(function);
    if (known == m_failures.end()) {
        return true;
    }
    failure& wanted = known->second;
    if (wanted.after > 0) {
        --wanted.after;
        return true;
    }
    if (wanted.times > 0) {
        --wanted.times;
        return false;
    }
    return wanted.times == 0;
}

void fake_browser::fail(const std::string& function, int times, int after) {
    if (!can_fail(function)) {
        throw std::invalid_argument(function + ": no function that can fail");
    }
    m_failures[function] = {after, times};
}

std::vector<std::string> fake_browser::complaints() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_complaints;
}

std::vector<std::string> fake_browser::calls() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::vector<std::string>(m_calls.begin(), m_calls.end());
}

int fake_browser::calls_of(const std::string& function) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(std::count(m_calls.begin(), m_calls.end(), function));
}

void fake_browser::forget_calls() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.clear();
}

void fake_browser::note(ledger_entry::action_type action, const void* subject, bool by_page) {
    if (m_keeps_ledger) {
        m_ledger.push_back({action, subject, by_page, call_place::here()});
    }
}

void fake_browser::keep_no_ledger() {
    m_keeps_ledger = false;
    m_ledger.clear();
    m_closed_elements.clear();
    m_buried.clear();
    forget_calls();
}

std::vector<ledger_entry> fake_browser::entries_of(ledger_entry::action_type action,
                                                   const void* subject) const {
    std::vector<ledger_entry> found;
    for (const ledger_entry& entry : m_ledger) {
        if (entry.action == action && entry.subject == subject) {
            found.push_back(entry);
        }
    }
    return found;
}

std::vector<std::string> fake_browser::unbalanced() const {
    std::vector<std::string> lines;
    for (const auto& block : m_memory) {
        lines.push_back(std::to_string(block.second.size) + " bytes from " +
                        block.second.place.text());
    }
    for (const auto& object : m_objects) {
        if (references_of_plugin(object.first) != 0) {
            lines.push_back(unbalanced_line(object.first));
        }
    }
    for (const auto& stream : streams) {
        lines.push_back("a stream to " + stream.second->target);
    }
    lines.insert(lines.end(), m_lost.begin(), m_lost.end());
    return lines;
}

std::vector<std::string> fake_browser::faults() const {
    std::vector<std::string> lines = complaints();
    const std::vector<std::string> missing = unbalanced();
    lines.insert(lines.end(), missing.begin(), missing.end());
    return lines;
}

std::string fake_browser::unbalanced_line(NPObject* object) const {
    std::string line = std::to_string(references_of_plugin(object)) + " references to an object";
    for (const ledger_entry& entry : m_ledger) {
        if (entry.subject == object && !entry.by_page &&
            (entry.action == ledger_entry::created || entry.action == ledger_entry::retained)) {
            line += ", from " + entry.place.text();
        }
    }
    return line;
}

NPIdentifier fake_browser::identify(NPIdentifier given) {
    note(ledger_entry::identified, given, false);
    return given;
}

fake_browser::identifier* fake_browser::identifier_of(const std::string& name) {
    std::unique_ptr<identifier>& known = m_names[name];
    if (!known) {
        known.reset(new identifier{true, name, 0});
        m_identifiers[known.get()] = known.get();
    }
    return known.get();
}

fake_browser::identifier* fake_browser::identifier_of(int32_t number) {
    std::unique_ptr<identifier>& known = m_numbers[number];
    if (!known) {
        known.reset(new identifier{false, "", number});
        m_identifiers[known.get()] = known.get();
    }
    return known.get();
}

fake_browser::identifier* fake_browser::checked(NPIdentifier given) {
    const auto known = m_identifiers.find(given);
    if (known != m_identifiers.end()) {
        return known->second;
    }
    complain(described(given) + " is no identifier");
    return identifier_of("");
}

void* fake_browser::allocate(uint32_t size) {
    void* memory = std::malloc(size);
    if (!memory) {
        return nullptr;
    }
    m_memory[memory] = {size, call_place::here()};
    note(ledger_entry::allocated, memory, false);
    return memory;
}

void fake_browser::free(void* memory) {
    if (!memory) {
        return;
    }
    if (m_memory.erase(memory) == 0) {
        complain(described(memory) + " is no memory of the browser");
        return;
    }
    note(ledger_entry::freed, memory, false);
    std::free(memory);
}

char* fake_browser::copy_text(const std::string& text) {
    char* copy = static_cast<char*>(allocate(static_cast<uint32_t>(text.size() + 1)));
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

NPObject* fake_browser::new_page_object() {
    fake_page_object* object = new fake_page_object;
    object->_class = &fake_page_object::its_class;
    object->referenceCount = 1;
    m_objects[object] = {1, 1, true};
    return object;
}

bool fake_browser::check_alive(NPObject* object, const char* function) {
    const auto known = m_objects.find(object);
    if (known == m_objects.end()) {
        complain(std::string(function) + ": " + described(object) + " is no object that lives");
        return false;
    }
    if (object->referenceCount != static_cast<uint32_t>(known->second.references)) {
        complain(std::string(function) + ": somebody has changed the count of an object");
        return false;
    }
    return true;
}

NPObject* fake_browser::create(NPP npp, NPClass* its_class) {
    if (on_create_object) {
        return on_create_object(npp, its_class);
    }
    // The browser makes and frees objects of classes that do not do so themselves.
    NPObject* object = its_class->allocate
                           ? its_class->allocate(npp, its_class)
                           : static_cast<NPObject*>(std::calloc(1, sizeof(NPObject)));
    if (!object) {
        return nullptr;
    }
    object->_class = its_class;
    int& references = m_objects[object].references;
    references = m_counts == object_counts::reset ? 1 : references + 1;
    object->referenceCount = static_cast<uint32_t>(references);
    note(ledger_entry::created, object, false);
    return object;
}

void fake_browser::retain(NPObject* object, bool by_page) {
    if (!check_alive(object, "RetainObject")) {
        return;
    }
    object_books& books = m_objects[object];
    ++books.references;
    ++object->referenceCount;
    if (by_page) {
        ++books.references_of_page;
    }
    note(ledger_entry::retained, object, by_page);
}

void fake_browser::release(NPObject* object, bool by_page) {
    if (!check_alive(object, "ReleaseObject")) {
        return;
    }
    object_books& books = m_objects[object];
    // The page goes on using its own. An object of the plug-in may be one that the page has given
    // away.
    if (!by_page && books.is_of_page && books.references <= books.references_of_page) {
        complain("ReleaseObject: a reference to " + described(object) +
                 " of the page, the plug-in has none");
        return;
    }
    --books.references;
    --object->referenceCount;
    if (by_page) {
        --books.references_of_page;
    }
    note(ledger_entry::released, object, by_page);
    if (books.references == 0) {
        end(object, by_page);
    }
}

void fake_browser::end(NPObject* object, bool by_page) {
    note(ledger_entry::deallocated, object, by_page);
    m_objects.erase(object);
    if (object->_class->deallocate) {
        object->_class->deallocate(object);
    } else {
        std::free(object);
    }
}

void fake_browser::give(const script_value& value, NPVariant* result) {
    VOID_TO_NPVARIANT(*result);
    if (const std::string* text = std::get_if<std::string>(&value)) {
        char* copy = static_cast<char*>(allocate(static_cast<uint32_t>(text->size())));
        std::memcpy(copy, text->data(), text->size());
        STRINGN_TO_NPVARIANT(copy, text->size(), *result);
        return;
    }
    if (NPObject* const* object = std::get_if<NPObject*>(&value)) {
        retain(*object, false);
    }
    *result = *script_arguments{value}.data();
}

void fake_browser::release_value(NPVariant* variant, bool by_page) {
    if (NPVARIANT_IS_STRING(*variant)) {
        free(const_cast<char*>(NPVARIANT_TO_STRING(*variant).UTF8Characters));
    } else if (NPVARIANT_IS_OBJECT(*variant)) {
        release(NPVARIANT_TO_OBJECT(*variant), by_page);
    }
    VOID_TO_NPVARIANT(*variant);
}

NPStream* fake_browser::open_stream(const std::string& type, const std::string& target) {
    std::unique_ptr<fake_stream> stream(new fake_stream);
    stream->type = type;
    stream->target = target;
    NPStream* handle = &stream->stream;
    streams[handle] = std::move(stream);
    note(ledger_entry::created, handle, false);
    return handle;
}

NPError fake_browser::close_stream(NPStream* stream) {
    if (streams.erase(stream) == 0) {
        complain("DestroyStream: a stream that is not open");
        return NPERR_INVALID_PARAM;
    }
    note(ledger_entry::deallocated, stream, false);
    return NPERR_NO_ERROR;
}

NPError fake_browser::give_object(NPObject* object, void* value) {
    retain(object, false);
    *static_cast<NPObject**>(value) = object;
    return NPERR_NO_ERROR;
}

NPError fake_browser::answer(NPP npp, NPNVariable variable, void* value) {
    if (on_get_value) {
        return on_get_value(npp, variable, value);
    }
    switch (variable) {
        case NPNVWindowNPObject:
            return give_object(m_window, value);
        case NPNVPluginElementNPObject:
            return give_object(element(npp).dom_object, value);
        case NPNVjavascriptEnabledBool:
        case NPNVSupportsXEmbedBool:
        case NPNVSupportsWindowless:
            *static_cast<NPBool*>(value) = 1;
            return NPERR_NO_ERROR;
        default:
            return NPERR_INVALID_PARAM;
    }
}

}  // namespace vask_test
