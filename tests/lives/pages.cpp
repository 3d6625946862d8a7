// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Plug-in elements and their page in a random program.

#include <algorithm>
#include <utility>

#include "life.h"
#include "plugin/recorded_plugin.h"

namespace vask_test {

namespace {

constexpr int slots = 3;
constexpr int names = 3;
constexpr int none = -1;
const char* const function_names[names] = {"x", "y", "unknown"};

class pages;

class live_instance : public recorded_instance {
public:
    live_instance(pages& owner, const char* name);

    bool react(const NPVariant* args, uint32_t count, NPVariant* result);
    int32_t write(NPP for_npp, NPStream* stream, int32_t offset, int32_t len, void* data) override;
    void url_notify(NPP, const char*, NPReason, void*) override {}

private:
    pages& m_owner;
};

class live_factory : public recorded_factory {
public:
    explicit live_factory(pages& owner) : m_owner(owner) {}
    vask_np_instance* create_instance() override { return new live_instance(m_owner, obj_name); }

private:
    pages& m_owner;
};

class pages : public family {
public:
    static constexpr int number = 3;

    explicit pages(life& owner) : m_life(owner) {}

    life& its_life() { return m_life; }

    void open(int slot, int how) {
        start(how);
        if (m_npps[slot % slots] == nullptr && m_objects[slot % slots] == nullptr) {
            m_asked[slot % slots] = false;
            std::fill_n(m_registered[slot % slots], names, none);
            m_npps[slot % slots] = m_browser->open({{"src", "http://example.com/"}});
        }
    }

    void close(int slot) {
        if (NPP npp = m_npps[slot % slots]) {
            m_npps[slot % slots] = nullptr;
            m_browser->close(npp);
        }
    }

    // Held once for the page, whatever it asks for. Browsers differ in what becomes of an object
    // that is asked for again: this page does not.
    NPObject* object(int slot) {
        NPObject*& held = m_objects[slot % slots];
        if (m_npps[slot % slots] != nullptr && !m_asked[slot % slots]) {
            m_asked[slot % slots] = true;
            m_holders[slot % slots] = m_npps[slot % slots];
            held = m_browser->scriptable(m_npps[slot % slots]);
        }
        return held;
    }

    void drop(int slot) {
        if (NPObject* held = m_objects[slot % slots]) {
            m_objects[slot % slots] = nullptr;
            m_browser->drop(held);
        }
    }

    void call(int slot, const std::string& method, const std::vector<script_value>& arguments) {
        NPObject* const callee = object(slot);
        // The objects of an element that is closed are not called: browsers invalidate them.
        const bool is_open =
            m_npps[slot % slots] != nullptr && m_holders[slot % slots] == m_npps[slot % slots];
        if (callee != nullptr && is_open) {
            // As a browser does while a method runs.
            m_browser->hold(callee);
            m_browser->call(callee, method, arguments);
            m_browser->drop(callee);
        }
    }

    script_value function(int slot) {
        if (m_browser == nullptr) {
            return script_value();
        }
        NPObject*& known = m_functions[slot % slots];
        if (known == nullptr) {
            known = m_browser->make_function([this, slot](const std::vector<script_value>&) {
                // No browser lets an exception of one script into another one's caller.
                try {
                    m_life.react("on_page", answers(slot));
                } catch (...) {
                }
                return script_value(slot);
            });
        }
        return known;
    }

    // A second function under the same name would keep the reference to the first one, and one that
    // was not registered would lose a reference: both are part of the interface.
    void add_callback(int slot, int value) {
        int& registered = m_registered[slot % slots][value % names];
        if (registered == none && object(slot) != nullptr) {
            registered = value % slots;
            call(slot, "add_callback", {function_names[value % names], function(registered)});
        }
    }

    void del_callback(int slot, int value) {
        const int registered = std::exchange(m_registered[slot % slots][value % names], none);
        if (registered != none) {
            call(slot, "del_callback", {function_names[value % names], function(registered)});
        }
    }

    void stream(int slot, int size) {
        if (NPP npp = m_npps[slot % slots]) {
            m_browser->stream_to(npp, "http://example.com/x",
                                 std::string(static_cast<std::size_t>(size), 'x'));
        }
    }

    void end() override;

    bool has_page() const { return m_browser != nullptr; }
    reactions answers(int slot);
    fake_browser& browser() { return *m_browser; }
    live_factory& factory() { return *m_factory; }
    int slot_of(NPP npp) const;

private:
    void start(int how) {
        if (m_browser != nullptr) {
            return;
        }
        m_browser.reset(new fake_browser(how % 2 ? object_counts::kept : object_counts::reset));
        vask_np_base::NPNFuncs = m_browser->functions();
        m_factory.reset(new live_factory(*this));
        m_browser->load(plugin_functions(m_factory.get()));
    }

    life& m_life;
    std::unique_ptr<fake_browser> m_browser;
    std::unique_ptr<live_factory> m_factory;
    NPP m_npps[slots] = {};
    NPObject* m_objects[slots] = {};
    bool m_asked[slots] = {};
    NPP m_holders[slots] = {};  // whose object a page has asked for
    NPObject* m_functions[slots] = {};
    // By slot and name: which function.
    int m_registered[slots][names] = {};
};

live_instance::live_instance(pages& owner, const char* name)
    : recorded_instance(name), m_owner(owner) {
    method_map["react"] = static_cast<script_method>(&live_instance::react);
    add_jscb_func("x");
    add_jscb_func("y");
    bytes_at_a_time = 7;
}

bool live_instance::react(const NPVariant*, uint32_t, NPVariant* result) {
    m_owner.its_life().react("on_method", m_owner.answers(m_owner.slot_of(npp)));
    VOID_TO_NPVARIANT(*result);
    return true;
}

int32_t live_instance::write(NPP for_npp, NPStream* stream, int32_t offset, int32_t len,
                             void* data) {
    recorded_instance::write(for_npp, stream, offset, len, data);
    return len;
}

int pages::slot_of(NPP npp) const {
    for (int slot = 0; slot < slots; ++slot) {
        if (m_npps[slot] == npp) {
            return slot;
        }
    }
    return 0;
}

// A page never ends an element while the browser is in one of its streams, but in its scripts.
reactions pages::answers(int slot) {
    reactions possible;
    possible.delete_self = [this, slot] {
        close(slot);
        drop(slot);
    };
    possible.delete_other = [this, slot] {
        close(slot + 1);
        drop(slot + 1);
    };
    possible.again = [this, slot] { call(slot, "call_back", {"x"}); };
    return possible;
}

void pages::end() {
    if (m_browser == nullptr) {
        return;
    }
    for (int slot = 0; slot < slots; ++slot) {
        close(slot);
        drop(slot);
    }
    while (m_factory->pending_spawns > 0) {
        m_life.loop(1);
    }
    m_factory->delete_queue();
    m_browser->run_async_calls();
    if (recorded_instance::alive != 0) {
        m_life.blame(std::to_string(recorded_instance::alive) + " instances are left");
    }
    for (const auto& lines : {m_browser->complaints(), m_browser->unbalanced()}) {
        for (const std::string& line : lines) {
            m_life.blame("browser: " + line);
        }
    }
    vask_np_base::NPNFuncs = NPNetscapeFuncs();
    m_factory.reset();
    m_browser.reset();
}

using step = std::function<void(pages&, int slot, int value)>;

operation_kind with_pages(const char* name, double weight, const step& what) {
    return {name, pages::number, weight,
            [what](life& the, int slot, int value) { what(the.of<pages>(), slot, value); }};
}

std::vector<operation_kind> script_kinds() {
    return {with_pages("call_method", 10,
                       [](pages& all, int slot, int value) {
                           const char* const names[] = {"react", "react", "call_back", "unknown"};
                           all.call(slot, names[value % 4], {function_names[value % 3]});
                       }),
            with_pages("add_callback", 10,
                       [](pages& all, int slot, int value) { all.add_callback(slot, value); }),
            with_pages("del_callback", 6,
                       [](pages& all, int slot, int value) { all.del_callback(slot, value); }),
            with_pages("property", 3, [](pages& all, int slot, int value) {
                if (NPObject* object = all.object(slot)) {
                    script_value result;
                    all.browser().read(object, value % 2 ? "unknown" : "title", &result);
                    all.browser().write(object, "unknown", value);
                }
            })};
}

}  // namespace

std::vector<operation_kind> page_kinds() {
    std::vector<operation_kind> all = script_kinds();
    const std::vector<operation_kind> more = {
        with_pages("open", 12, [](pages& those, int slot, int value) { those.open(slot, value); }),
        with_pages("close_element", 6, [](pages& those, int slot, int) { those.close(slot); }),
        with_pages("hold_object", 5, [](pages& those, int slot, int) { those.object(slot); }),
        with_pages("drop_object", 5, [](pages& those, int slot, int) { those.drop(slot); }),
        with_pages("stream", 4,
                   [](pages& those, int slot, int value) { those.stream(slot, value * 3); }),
        with_pages("preload", 3, [](pages& those, int, int value) {
            if (those.has_page()) {
                those.factory().set_preload(value % 3);
            }
        })};
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

std::unique_ptr<family> make_pages(life& owner) {
    return std::unique_ptr<family>(new pages(owner));
}

}  // namespace vask_test
