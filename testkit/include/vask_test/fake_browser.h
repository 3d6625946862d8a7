// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_FAKE_BROWSER_H
#define VASK_TEST_FAKE_BROWSER_H

/**
 * @file
 * A browser for tests of plug-ins.
 * @since 2.0
 */

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "npapi/npfunctions.h"
#include "vask_test/call_place.h"
#include "vask_test/script_value.h"

namespace vask_test {

/** One event in the life of memory, of an object, of a stream or of an identifier. */
struct ledger_entry {
    /** What has happened. Whoever asks for the same identifier again has it identified again. */
    enum action_type { allocated, freed, created, retained, released, deallocated, identified };

    action_type action;   ///< what has happened
    const void* subject;  ///< the memory, NPObject, NPStream or NPIdentifier
    bool by_page;         ///< otherwise by the plug-in
    call_place place;     ///< the functions that were running
};

/** What becomes of the count of an object that is created again while it lives. */
enum class object_counts {
    reset,  ///< it is one: for this engine every object is new
    kept    ///< it is one more
};

/** A request of the plug-in for a URL, or a message to one. */
struct fake_request {
    std::string url;              ///< as the plug-in gave it
    std::string target;           ///< the window, or empty
    std::string data;             ///< of a message
    bool is_file = false;         ///< whether the data names a file
    bool notifies = false;        ///< whether the plug-in wants to hear of the end
    void* notify_data = nullptr;  ///< what it wants to hear it with
    NPP npp = nullptr;            ///< whose request it is
};

/** A stream that the plug-in writes. */
struct fake_stream {
    NPStream stream{};    ///< what the plug-in knows it by
    std::string type;     ///< its media type
    std::string target;   ///< the window, or empty
    std::string written;  ///< what came so far
};

/** What the browser keeps for one element. */
struct fake_element {
    NPP_t npp{};                        ///< what the plug-in knows it by
    NPObject* dom_object = nullptr;     ///< the element in the page's script
    std::map<int, void*> values;        ///< of NPN_SetValue
    std::vector<NPRect> invalid_rects;  ///< of NPN_InvalidateRect
    int invalid_regions = 0;            ///< calls of NPN_InvalidateRegion
    int forced_redraws = 0;             ///< calls of NPN_ForceRedraw
    std::vector<bool> popups_enabled;   ///< the stack of NPN_PushPopupsEnabledState
};

/**
 * A browser without screen and network: the complete function table, and a page that plays the
 * other side. One at a time, and used on one thread.
 *
 * It notes every allocation, reference, stream and identifier with the place it came from, counts
 * the calls of its functions, and complains about whatever would crash a real browser: memory that
 * is not its own or was freed before, objects and elements that are gone, identifiers that it never
 * gave, calls on another thread than its own. The test asks at its end for faults(). Nothing
 * that it complains about harms the test, but for a call on another thread that comes during one.
 */
class fake_browser {
public:
    /** @param counts the custom of the engine that it plays */
    explicit fake_browser(object_counts counts = object_counts::reset);
    /** Ends the page and shuts down the plug-in that was loaded from a file. */
    ~fake_browser();
    fake_browser(const fake_browser&) = delete;
    fake_browser& operator=(const fake_browser&) = delete;

    /** @return the table for NP_Initialize, which load() calls */
    const NPNetscapeFuncs& functions() const { return m_functions; }

    /** @name What has happened */
    ///@{

    /** @return all events, the oldest first */
    const std::vector<ledger_entry>& ledger() const { return m_ledger; }

    /** The events of one kind in the life of one thing.
     *  @param action  which kind
     *  @param subject which thing
     *  @return the entries, the oldest first */
    std::vector<ledger_entry> entries_of(ledger_entry::action_type action,
                                         const void* subject) const;

    /** @return what the plug-in has not given back, one line each, with the places it came from */
    std::vector<std::string> unbalanced() const;

    /** Forgets the ledger, the calls and closed elements, and notes no more; what is unbalanced is
     *  still known. For tests that load a page a million times. */
    void keep_no_ledger();

    /** @return what would crash a real browser, one line each, with the place it came from */
    std::vector<std::string> complaints() const;

    /** @return complaints() and unbalanced(), which both have to be empty at the end of a test */
    std::vector<std::string> faults() const;

    /** @return the functions of the table that the plug-in has called, in order, by the interface's
     *          names without NPN_: "MemAlloc", "RetainObject" */
    std::vector<std::string> calls() const;

    /** How often the plug-in has called a function.
     *  @param function "MemAlloc"
     *  @return the number of calls since the beginning, or since forget_calls() */
    int calls_of(const std::string& function) const;

    /** Counts calls from none again. */
    void forget_calls();

    ///@}
    /** @name Failures on demand */
    ///@{

    /**
     * Lets calls of a function fail, as those of a real browser may: NPN_MemAlloc, CreateObject,
     * GetStringIdentifier, GetIntIdentifier and UTF8FromIdentifier return null, Write returns -1,
     * calls of scripts return false, and the others NPERR_GENERIC_ERROR. A later call for the same
     * function takes the place of this one.
     *
     * @param function "MemAlloc"
     * @param times    how many calls fail; without it, all of them
     * @param after    how many calls succeed before
     * @throw std::invalid_argument for a function that cannot fail, or that is none
     */
    void fail(const std::string& function, int times = -1, int after = 0);

    /** From now on nothing fails any more. */
    void fail_nothing() { m_failures.clear(); }

    ///@}
    /** @name The plug-in */
    ///@{

    /**
     * Loads a plug-in as a browser does: opens the shared object, asks it for its types, its name
     * and its description, and calls NP_Initialize. Elements of the page are its own from then on.
     *
     * @param path of the shared object; "./name.so" for one in the current directory
     * @return what NP_Initialize answers; NPP functions are only there after NPERR_NO_ERROR
     * @throw std::runtime_error when there is no such file, a symbol is missing in it, or in its
     *        table a function without which no browser takes a plug-in
     */
    NPError load(const std::string& path);

    /** A plug-in that is linked into the test: the page calls these functions.
     *  @param plugin what NP_Initialize would have filled in */
    void load(const NPPluginFuncs& plugin) { m_plugin = plugin; }

    /** Leaves the page, calls NP_Shutdown, and unloads the shared object that load() has opened.
     *  @return what NP_Shutdown answers, or NPERR_NO_ERROR without such an object */
    NPError unload();

    /** @return what NP_GetMIMEDescription said: "type:suffixes:description;..." */
    const std::string& plugin_types() const { return m_types; }

    /** @return what NP_GetValue said is the plug-in's name */
    const std::string& plugin_name() const { return m_name; }

    /** @return what NP_GetValue said is the plug-in's description */
    const std::string& plugin_description() const { return m_description; }

    ///@}
    /** @name The page
     *  References that these give belong to the page, not to the plug-in. All of them may be called
     *  while the plug-in calls the page: a script calls back, deletes the element, or goes
     *  to another page.
     */
    ///@{

    /** Names and values of an element's attributes. */
    typedef std::vector<std::pair<std::string, std::string>> attribute_list;

    /** NPP_New. The element exists whatever it answers.
     *  @param attributes those in the page
     *  @param answer     receives what NPP_New answers, unless null
     *  @return what the plug-in knows the element by, valid until close() */
    NPP open(const attribute_list& attributes = {}, NPError* answer = nullptr);

    /** NPP_Destroy; the element ends with it.
     *  @param npp of an element that is open
     *  @return what NPP_Destroy answers */
    NPError close(NPP npp);

    /**
     * Goes to another page: tells the plug-in that its requests are broken off, closes all
     * elements, and then ends all objects, whoever has references to them; there is a new window().
     * While the plug-in runs a call of the page, its own objects live until that returns.
     */
    void leave_page();

    /** NPP_SetWindow.
     *  @param npp    of an element that is open
     *  @param window what the element draws into
     *  @return what it answers, or NPERR_NO_ERROR if the plug-in has no such function */
    NPError set_window(NPP npp, NPWindow* window);

    /** Asks an instance for its object.
     *  @param npp of an element that is open
     *  @return the object with a reference that the plug-in has taken for the page; null when it
     *          has none */
    NPObject* scriptable(NPP npp);

    /** Streams text to an instance, as much at a time as it asks for, until it takes no more.
     *  @param npp  of an element that is open
     *  @param url  where the text comes from
     *  @param text all of it
     *  @return the number of bytes that it took; none if the plug-in lacks a function for streams
     */
    size_t stream_to(NPP npp, const std::string& url, const std::string& text);

    /** Answers the oldest request of an element for which the plug-in wants to hear.
     *  @param npp    of an element that is open
     *  @param reason how the request has ended */
    void finish_request(NPP npp, NPReason reason);

    /** @return the page's window, an object without functions but those of set_member() */
    NPObject* window() const { return m_window; }

    /** What the browser keeps for an element.
     *  @param npp of an element; complains about one that is closed or that there never was
     *  @return what there is of it */
    fake_element& element(NPP npp);

    /** @param npp of an element @return whether it is open */
    bool is_open(NPP npp) const { return m_elements.count(npp) != 0; }

    /** What a function of the page does, with the arguments that the plug-in gives. */
    typedef std::function<script_value(const std::vector<script_value>& arguments)> function_type;

    /** A function of the page, with one reference of the page.
     *  @param body what it does; without one, calling it fails
     *  @return the function as an object */
    NPObject* make_function(function_type body = {});

    /** A property of one of the page's objects.
     *  @param object which
     *  @param name   of the property
     *  @param value  for the property; of an object it takes no reference */
    void set_member(NPObject* object, const std::string& name, const script_value& value);

    /** The page takes a reference. @param object to which */
    void hold(NPObject* object);

    /** The page gives a reference back. @param object to which */
    void drop(NPObject* object);

    /** Ends an object whoever has references, as a page does that is left. @param object which */
    void tear_down(NPObject* object);

    /** Takes an object out of the books, because the plug-in has deleted it. @param object which */
    void forget(NPObject* object);

    /** Calls a method of an object.
     *  @param object    whose
     *  @param method    its name
     *  @param arguments for it
     *  @param result    receives what it returns, unless null; of an object, with a
     *                  reference of the page
     *  @return whether it succeeds */
    bool call(NPObject* object, const std::string& method,
              const std::vector<script_value>& arguments, script_value* result = nullptr);

    /** Reads a property of an object.
     *  @param object   whose
     *  @param property its name
     *  @param result   receives the value, as that of call()
     *  @return whether it succeeds */
    bool read(NPObject* object, const std::string& property, script_value* result = nullptr);

    /** Writes a property of an object. One of the page's takes a reference to a value that is an
     *  object, as it does when the plug-in writes it.
     *  @param object   whose
     *  @param property its name
     *  @param value    for it
     *  @return whether it succeeds */
    bool write(NPObject* object, const std::string& property, const script_value& value);

    /** @param text a name @return the identifier for it */
    NPIdentifier name(const std::string& text) { return identifier_of(text); }

    /** @param value an index @return the identifier for it */
    NPIdentifier number(int32_t value) { return identifier_of(value); }

    /** @param object any @return how many references to it the plug-in has */
    int references_of_plugin(NPObject* object) const;

    /** @param object any @return how many references to it there are */
    int references(NPObject* object) const;

    /** @param object any @return whether it is in the books and was not ended */
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
    std::deque<fake_request> requests;                          ///< the oldest first
    std::map<NPStream*, std::unique_ptr<fake_stream>> streams;  ///< those that are open
    std::string status_text;                                    ///< of NPN_Status
    std::string exception_text;                                 ///< of NPN_SetException
    ///@}

private:
    friend struct fake_table;
    friend struct fake_page_object;
    class call_of_page;

    struct identifier {
        bool is_name;
        std::string name;
        int32_t number;
    };

    struct object_books {
        int references = 0;
        int references_of_page = 0;
        bool is_of_page = false;
    };

    /** Calls that are to fail. */
    struct failure {
        int after;
        int times;  // less than none: all
    };

    struct memory_books {
        uint32_t size;
        call_place place;
    };

    static fake_browser& the();
    void complain(const std::string& about);
    /** Notes a call of the plug-in. False when it is to fail. */
    bool begin_call(const char* function, NPP npp);
    void add_async_call(void (*function)(void*), void* data);
    void note(ledger_entry::action_type action, const void* subject, bool by_page);
    void close_library(void* library);
    NPObject* new_page_object();
    void bury(std::shared_ptr<void> page_object);
    void end_page();
    void let_go_of_members();
    void end_doomed_objects();
    void end_whoever_has(NPObject* object);
    /** The oldest one of which the plug-in wants to hear, or the end. */
    std::deque<fake_request>::iterator waiting_request(NPP npp);
    void break_off_requests(NPP npp);
    std::string unbalanced_line(NPObject* object) const;

    NPIdentifier identify(NPIdentifier given);
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
    NPStream* open_stream(const std::string& type, const std::string& target);
    NPError close_stream(NPStream* stream);

    const object_counts m_counts;
    const std::thread::id m_thread;
    NPNetscapeFuncs m_functions{};
    NPPluginFuncs m_plugin{};
    void* m_library = nullptr;
    std::string m_types;
    std::string m_name;
    std::string m_description;
    NPObject* m_window = nullptr;
    std::map<NPP, std::unique_ptr<fake_element>> m_elements;
    std::map<NPP, std::unique_ptr<fake_element>> m_closed_elements;
    fake_element m_no_element;
    std::vector<std::shared_ptr<void>> m_buried;
    std::set<NPP> m_closing;
    int m_calls_of_page = 0;
    std::vector<NPObject*> m_doomed;  // of the plug-in, on a page that was left
    std::vector<std::string> m_lost;  // what was unbalanced when its page was left
    std::map<std::string, std::unique_ptr<identifier>> m_names;
    std::map<int32_t, std::unique_ptr<identifier>> m_numbers;
    std::map<NPIdentifier, identifier*> m_identifiers;
    std::map<void*, memory_books> m_memory;
    std::map<NPObject*, object_books> m_objects;
    std::vector<ledger_entry> m_ledger;
    bool m_keeps_ledger = true;
    std::map<std::string, failure> m_failures;
    mutable std::mutex m_mutex;  // for what may come from other threads
    std::vector<std::string> m_complaints;
    std::vector<const char*> m_calls;
    std::vector<std::pair<void (*)(void*), void*>> m_async_calls;
};

}  // namespace vask_test

#endif
