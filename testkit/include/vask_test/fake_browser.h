// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_FAKE_BROWSER_H
#define VASK_TEST_FAKE_BROWSER_H

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "npapi/npfunctions.h"
#include "vask_test/call_place.h"
#include "vask_test/script_value.h"

namespace vask_test {

/** One event in the life of memory, of an object or of a stream. */
struct ledger_entry {
    enum action_type { allocated, freed, created, retained, released, deallocated };

    action_type action;
    const void* subject;
    bool by_page;  // otherwise by the plug-in
    call_place place;
};

/** What becomes of the count of an object that is created again while it lives. */
enum class object_counts {
    reset,  // to one, which is what real browsers do: for them every object is new
    kept    // one more
};

/** A request of the plug-in for a URL, or a message to one. */
struct fake_request {
    std::string url;
    std::string target;
    std::string data;
    bool is_file = false;
    bool notifies = false;
    void* notify_data = nullptr;
};

/** A stream that the plug-in writes. */
struct fake_stream {
    NPStream stream{};
    std::string type;
    std::string target;
    std::string written;
};

/** What the browser keeps for one element. */
struct fake_element {
    NPP_t npp{};
    NPObject* dom_object = nullptr;
    std::map<int, void*> values;  // of NPN_SetValue
    std::vector<NPRect> invalid_rects;
    int invalid_regions = 0;
    int forced_redraws = 0;
    std::vector<bool> popups_enabled;
};

/**
 * A browser without screen and network: the complete function table, and a page that plays the
 * other side. One at a time.
 *
 * It notes every allocation, reference and stream with the place it came from, and complains about
 * whatever would crash a real browser: memory that is not its own or was freed before, objects that
 * are gone, identifiers that it never gave, calls on another thread than its own.
 */
class fake_browser {
public:
    explicit fake_browser(object_counts counts = object_counts::reset);
    ~fake_browser();
    fake_browser(const fake_browser&) = delete;
    fake_browser& operator=(const fake_browser&) = delete;

    const NPNetscapeFuncs& functions() const { return m_functions; }

    /** @name What has happened */
    ///@{
    const std::vector<ledger_entry>& ledger() const { return m_ledger; }
    std::vector<ledger_entry> entries_of(ledger_entry::action_type action,
                                         const void* subject) const;

    /** What the plug-in has not given back, one line each, with the places it came from. */
    std::vector<std::string> unbalanced() const;

    /** Forgets the ledger, and notes no more; what is unbalanced is still known. */
    void keep_no_ledger();

    const std::vector<std::string>& complaints() const { return m_complaints; }
    ///@}

    /** @name The page
     *  References that these give belong to the page, not to the plug-in.
     */
    ///@{

    /** The plug-in whose functions the page calls. */
    void load(const NPPluginFuncs& plugin) { m_plugin = plugin; }

    typedef std::vector<std::pair<std::string, std::string>> attribute_list;

    /** NPP_New. The element exists whatever it answers. */
    NPP open(const attribute_list& attributes = {}, NPError* answer = nullptr);

    /** NPP_Destroy; the element ends with it. */
    NPError close(NPP npp);

    /** Asks an instance for its object; null when it has none. */
    NPObject* scriptable(NPP npp);

    /** Streams text to an instance, as much at a time as it asks for, until it takes no more.
     *  @return the number of bytes that it took */
    size_t stream_to(NPP npp, const std::string& url, const std::string& text);

    /** Answers the oldest request for which the plug-in wants to hear. */
    void finish_request(NPP npp, NPReason reason);

    NPObject* window() const { return m_window; }
    fake_element& element(NPP npp);

    typedef std::function<script_value(const std::vector<script_value>& arguments)> function_type;

    /** A function of the page, with one reference of the page. */
    NPObject* make_function(function_type body = {});

    /** A property of one of the page's objects. */
    void set_member(NPObject* object, const std::string& name, const script_value& value);

    void hold(NPObject* object);
    void drop(NPObject* object);

    /** Ends an object whoever has references, as a page does that is left. */
    void tear_down(NPObject* object);

    /** Takes an object out of the books, because the plug-in has deleted it. */
    void forget(NPObject* object);

    /** Calls a method of an object. @return whether it succeeds */
    bool call(NPObject* object, const std::string& method,
              const std::vector<script_value>& arguments, script_value* result = nullptr);
    bool read(NPObject* object, const std::string& property, script_value* result = nullptr);
    bool write(NPObject* object, const std::string& property, const script_value& value);

    NPIdentifier name(const std::string& text) { return identifier_of(text); }
    NPIdentifier number(int32_t value) { return identifier_of(value); }

    /** References to an object that the plug-in has. */
    int references_of_plugin(NPObject* object) const;
    int references(NPObject* object) const;
    bool is_alive(NPObject* object) const { return m_objects.count(object) != 0; }

    /** Frees whatever memory the plug-in has not freed. */
    void free_everything();

    /** Runs what came by NPN_PluginThreadAsyncCall. */
    void run_async_calls();

    ///@}
    /** @name What the page and the user decide */
    ///@{

    /** Answers NPN_Evaluate; a script that it does not know fails. */
    std::function<bool(const std::string& script, script_value* result)> on_evaluate;

    /** Answers NPN_GetValue in the browser's stead. */
    std::function<NPError(NPP npp, NPNVariable variable, void* value)> on_get_value;

    /** Answers NPN_CreateObject in the browser's stead. */
    std::function<NPObject*(NPP npp, NPClass* its_class)> on_create_object;

    ///@}

    /** @name What the plug-in has said */
    ///@{
    std::deque<fake_request> requests;
    std::map<NPStream*, std::unique_ptr<fake_stream>> streams;
    std::string status_text;
    std::string exception_text;
    ///@}

private:
    friend struct fake_table;
    friend struct fake_page_object;

    struct identifier {
        bool is_name;
        std::string name;
        int32_t number;
    };

    struct object_books {
        int references = 0;
        int references_of_page = 0;
    };

    struct memory_books {
        uint32_t size;
        call_place place;
    };

    static fake_browser& the();
    void complain(const std::string& about);
    void check_thread(const char* function);
    void note(ledger_entry::action_type action, const void* subject, bool by_page);
    NPObject* new_page_object();

    identifier* identifier_of(const std::string& name);
    identifier* identifier_of(int32_t number);
    identifier* checked(NPIdentifier given);

    void* allocate(uint32_t size);
    void free(void* memory);
    char* copy_text(const std::string& text);
    NPObject* create(NPP npp, NPClass* its_class);
    void retain(NPObject* object, bool by_page);
    void release(NPObject* object, bool by_page);
    void end(NPObject* object, bool by_page);
    bool check_alive(NPObject* object, const char* function);

    /** A result that goes to the plug-in, which releases it. */
    void give(const script_value& value, NPVariant* result);
    void release_value(NPVariant* variant, bool by_page);
    bool with_result(bool succeeded, NPVariant* variant, script_value* result);
    NPError give_object(NPObject* object, void* value);
    NPError answer(NPP npp, NPNVariable variable, void* value);
    void add_request(const fake_request& request) { requests.push_back(request); }
    NPStream* open_stream(const std::string& type, const std::string& target);
    NPError close_stream(NPStream* stream);

    const object_counts m_counts;
    const std::thread::id m_thread;
    NPNetscapeFuncs m_functions{};
    NPPluginFuncs m_plugin{};
    NPObject* m_window = nullptr;
    std::map<NPP, std::unique_ptr<fake_element>> m_elements;
    std::map<std::string, std::unique_ptr<identifier>> m_names;
    std::map<int32_t, std::unique_ptr<identifier>> m_numbers;
    std::map<NPIdentifier, identifier*> m_identifiers;
    std::map<void*, memory_books> m_memory;
    std::map<NPObject*, object_books> m_objects;
    std::vector<ledger_entry> m_ledger;
    bool m_keeps_ledger = true;
    std::vector<std::string> m_complaints;
    std::mutex m_mutex;  // for what may come from other threads
    std::vector<std::pair<void (*)(void*), void*>> m_async_calls;
};

}  // namespace vask_test

#endif
