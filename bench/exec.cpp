// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Calls that are made later: 1000 idle calls of one object, one idle call, and timers.

#include <glib.h>

#include <list>

#include "table_row.h"
#include "vask_exec.h"

namespace {

constexpr int many = 1000;

class counter : public vask_exec {
public:
    void count(void*) { ++calls; }
    int calls = 0;
};

// An idle source with a list of calls, the plain way.
class bare_queue {
public:
    using function = void (*)(void*);

    void add(function func, void* data) {
        if (m_calls.empty()) {
            g_idle_add([](gpointer self) { return static_cast<bare_queue*>(self)->run_first(); },
                       this);
        }
        m_calls.push_back({func, data});
    }

private:
    struct call {
        function func;
        void* data;
    };

    gboolean run_first() {
        const call first = m_calls.front();
        first.func(first.data);
        m_calls.pop_front();
        return !m_calls.empty();
    }

    std::list<call> m_calls;
};

void count_bare(void* calls) {
    ++*static_cast<int*>(calls);
}

void dispatch_until(const int& calls, int count) {
    while (calls < count) {
        g_main_context_iteration(nullptr, TRUE);
    }
}

template <int Count>
void library_idle(benchmark::State& state) {
    counter object;
    for (auto _ : state) {
        object.calls = 0;
        for (int i = 0; i < Count; ++i) {
            object.add_idle_exec_func(static_cast<vask_exec_func>(&counter::count), nullptr);
        }
        dispatch_until(object.calls, Count);
    }
    has_ratio_limit(state, "1.15");
}

template <int Count>
void bare_idle(benchmark::State& state) {
    bare_queue queue;
    int calls = 0;
    for (auto _ : state) {
        calls = 0;
        for (int i = 0; i < Count; ++i) {
            queue.add(count_bare, &calls);
        }
        dispatch_until(calls, Count);
    }
    is_baseline(state);
}

// Without a list, and so in no order that others could rely on.
template <int Count>
void idle_source_for_each(benchmark::State& state) {
    int calls = 0;
    for (auto _ : state) {
        calls = 0;
        for (int i = 0; i < Count; ++i) {
            g_idle_add(
                [](gpointer data) -> gboolean {
                    count_bare(data);
                    return G_SOURCE_REMOVE;
                },
                &calls);
        }
        dispatch_until(calls, Count);
    }
}

struct bare_record {
    void (*func)(void*);
    void* data;
};

guint add_bare_timer(guint interval_msec, void (*func)(void*), void* data) {
    return g_timeout_add_full(
        G_PRIORITY_DEFAULT, interval_msec,
        [](gpointer info) -> gboolean {
            const auto* record = static_cast<bare_record*>(info);
            record->func(record->data);
            return G_SOURCE_REMOVE;
        },
        new bare_record{func, data}, [](gpointer info) { delete static_cast<bare_record*>(info); });
}

void library_timer(benchmark::State& state) {
    counter object;
    for (auto _ : state) {
        object.calls = 0;
        object.add_timer_exec_func(0, static_cast<vask_exec_func>(&counter::count), nullptr);
        dispatch_until(object.calls, 1);
    }
    has_ratio_limit(state, "1.15");
}

void bare_timer(benchmark::State& state) {
    int calls = 0;
    for (auto _ : state) {
        calls = 0;
        add_bare_timer(0, count_bare, &calls);
        dispatch_until(calls, 1);
    }
    is_baseline(state);
}

void library_timer_removed(benchmark::State& state) {
    counter object;
    for (auto _ : state) {
        g_source_remove(object.add_timer_exec_func(
            30000, static_cast<vask_exec_func>(&counter::count), nullptr));
    }
    has_ratio_limit(state, "1.15");
}

void bare_timer_removed(benchmark::State& state) {
    int calls = 0;
    for (auto _ : state) {
        g_source_remove(add_bare_timer(30000, count_bare, &calls));
    }
    is_baseline(state);
}

BENCHMARK(library_idle<1>)->Name("Idle call/add_idle_exec_func")->UseRealTime();
BENCHMARK(bare_idle<1>)->Name("Idle call/g_idle_add with a list")->UseRealTime();
BENCHMARK(idle_source_for_each<1>)->Name("Idle call/g_idle_add")->UseRealTime();
BENCHMARK(library_idle<many>)->Name("1000 idle calls/add_idle_exec_func")->UseRealTime();
BENCHMARK(bare_idle<many>)->Name("1000 idle calls/g_idle_add with a list")->UseRealTime();
BENCHMARK(idle_source_for_each<many>)->Name("1000 idle calls/g_idle_add")->UseRealTime();
BENCHMARK(library_timer)->Name("Timer that runs/add_timer_exec_func")->UseRealTime();
BENCHMARK(bare_timer)->Name("Timer that runs/g_timeout_add_full")->UseRealTime();
BENCHMARK(library_timer_removed)->Name("Timer that is removed/add_timer_exec_func")->UseRealTime();
BENCHMARK(bare_timer_removed)->Name("Timer that is removed/g_timeout_add_full")->UseRealTime();

}  // namespace
