// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A script's call of a method, against a map that a plug-in would look names up in by itself; and a
// new element's instance, from the queue of preloaded ones and made on the spot.

#include <glib.h>
#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "table_row.h"
#include "vask_np_factory.h"

namespace {

// What a call needs of a browser: identifiers are pointers to the names.
NPUTF8* copy_name(NPIdentifier identifier) {
    return strdup(static_cast<const char*>(identifier));
}

void fill_browser_table() {
    vask_np_base::NPNFuncs.utf8fromidentifier = copy_name;
    vask_np_base::NPNFuncs.memfree = free;
}

std::vector<std::string> method_names(int count) {
    std::vector<std::string> names = {"add_callback", "attachEvent", "del_callback", "detachEvent"};
    for (int i = 0; i < count; ++i) {
        names.push_back("method_" + std::to_string(i));
    }
    return names;
}

// The one in the middle of those that the product has registered.
NPIdentifier called_method(const std::vector<std::string>& names, int count) {
    return const_cast<char*>(names[4 + static_cast<std::size_t>(count) / 2].c_str());
}

class counting_script : public vask_script {
public:
    explicit counting_script(const std::vector<std::string>& names) : vask_script("bench") {
        for (const std::string& name : names) {
            method_map[name] = static_cast<script_method>(&counting_script::count);
        }
    }

    bool count(const NPVariant*, uint32_t, NPVariant*) {
        ++calls;
        return true;
    }

    unsigned long calls = 0;
};

class counting_map {
public:
    explicit counting_map(const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            m_methods[name] = &counting_map::count;
        }
    }

    bool invoke(NPIdentifier identifier, const NPVariant* args, uint32_t arg_count,
                NPVariant* result) {
        NPUTF8* text = vask_np_base::NPNFuncs.utf8fromidentifier(identifier);
        const std::string name = text;
        vask_np_base::NPNFuncs.memfree(text);
        return invoke(name, args, arg_count, result);
    }

    bool invoke(const std::string& name, const NPVariant* args, uint32_t arg_count,
                NPVariant* result) {
        const auto method = m_methods.find(name);
        return method != m_methods.end() && (this->*method->second)(args, arg_count, result);
    }

    bool count(const NPVariant*, uint32_t, NPVariant*) {
        ++calls;
        return true;
    }

    unsigned long calls = 0;

private:
    std::map<std::string, bool (counting_map::*)(const NPVariant*, uint32_t, NPVariant*)> m_methods;
};

template <typename Target>
void check_calls(benchmark::State& state, const Target& target) {
    if (target.calls != static_cast<unsigned long>(state.iterations())) {
        state.SkipWithError("Not every call has reached the method");
    }
}

void map_lookup(benchmark::State& state, int count) {
    fill_browser_table();
    const std::vector<std::string> names = method_names(count);
    const NPIdentifier identifier = called_method(names, count);
    counting_map target(names);
    NPVariant result;
    VOID_TO_NPVARIANT(result);
    for (auto _ : state) {
        benchmark::DoNotOptimize(target.invoke(identifier, nullptr, 0, &result));
    }
    check_calls(state, target);
    is_baseline(state);
}

// What remains when the name is there already.
void bare_map_lookup(benchmark::State& state, int count) {
    const std::vector<std::string> names = method_names(count);
    const std::string name = static_cast<const char*>(called_method(names, count));
    counting_map target(names);
    NPVariant result;
    VOID_TO_NPVARIANT(result);
    for (auto _ : state) {
        benchmark::DoNotOptimize(target.invoke(name, nullptr, 0, &result));
    }
    check_calls(state, target);
}

void class_record(benchmark::State& state, int count) {
    fill_browser_table();
    const std::vector<std::string> names = method_names(count);
    const NPIdentifier identifier = called_method(names, count);
    counting_script target(names);
    NPVariant result;
    VOID_TO_NPVARIANT(result);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            vask_script_class.invoke(&target, identifier, nullptr, 0, &result));
    }
    check_calls(state, target);
    has_ratio_limit(state, "1.20");
}

// Needs 5 ms before a page can use it, as for starting a child; computing, since a sleep would take
// some longer.
class slow_instance : public vask_np_instance {
public:
    slow_instance() : vask_np_instance("bench") {}

    void init_preload() override {
        const auto ready = std::chrono::steady_clock::now() + std::chrono::milliseconds(5);
        while (std::chrono::steady_clock::now() < ready) {
        }
        m_prepared = true;
    }

    void parse_props(int16_t, char**, char**) override {
        if (!m_prepared) {
            init_preload();
        }
    }

    bool is_prepared() const { return m_prepared; }

private:
    bool m_prepared = false;
};

class slow_factory : public vask_np_factory {
public:
    slow_factory() : vask_np_factory("", "bench", "", "") {}

    vask_np_instance* create_instance() override { return new slow_instance; }

    // As if nothing had been taken out of the queue.
    void forget_spawn() {
        g_source_remove_by_user_data(this);
        pending_spawns = 0;
    }
};

void make_instances(benchmark::State& state, bool preload) {
    slow_factory factory;
    factory.set_preload(0);
    for (auto _ : state) {
        state.PauseTiming();
        if (preload) {
            factory.set_preload(1);
        }
        NPP_t npp = {nullptr, nullptr};
        state.ResumeTiming();

        factory.new_instance(nullptr, &npp, NP_EMBED, 0, nullptr, nullptr, nullptr);

        state.PauseTiming();
        const auto* instance =
            static_cast<slow_instance*>(static_cast<vask_np_instance*>(npp.pdata));
        if (!instance->is_prepared() || instance->preloaded != preload) {
            state.SkipWithError("The instance is not what it should be");
        }
        factory.destroy_instance(&npp, nullptr);
        if (preload) {
            factory.forget_spawn();
        }
        state.ResumeTiming();
    }
}

void fresh_instance(benchmark::State& state) {
    make_instances(state, false);
    is_baseline(state);
}

void preloaded_instance(benchmark::State& state) {
    make_instances(state, true);
    has_ratio_limit(state, "0.01");
}

BENCHMARK_CAPTURE(map_lookup, 1, 1)->Name("Script call, 1 method/name, std::map, handler");
BENCHMARK_CAPTURE(bare_map_lookup, 1, 1)->Name("Script call, 1 method/std::map, name at hand");
BENCHMARK_CAPTURE(class_record, 1, 1)->Name("Script call, 1 method/vask_script_class");
BENCHMARK_CAPTURE(map_lookup, 10, 10)->Name("Script call, 10 methods/name, std::map, handler");
BENCHMARK_CAPTURE(bare_map_lookup, 10, 10)->Name("Script call, 10 methods/std::map, name at hand");
BENCHMARK_CAPTURE(class_record, 10, 10)->Name("Script call, 10 methods/vask_script_class");
BENCHMARK_CAPTURE(map_lookup, 1000, 1000)
    ->Name("Script call, 1000 methods/name, std::map, handler");
BENCHMARK_CAPTURE(bare_map_lookup, 1000, 1000)
    ->Name("Script call, 1000 methods/std::map, name at hand");
BENCHMARK_CAPTURE(class_record, 1000, 1000)->Name("Script call, 1000 methods/vask_script_class");

BENCHMARK(fresh_instance)
    ->Name("New instance that needs 5 ms/made for the element")
    ->Iterations(10)
    ->UseRealTime();
BENCHMARK(preloaded_instance)
    ->Name("New instance that needs 5 ms/from the preload queue")
    ->Iterations(10)
    ->UseRealTime();

}  // namespace
