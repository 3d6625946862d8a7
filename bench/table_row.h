// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_BENCH_TABLE_ROW_H
#define VASK_BENCH_TABLE_ROW_H

#include <benchmark/benchmark.h>

// What a benchmark says about its row in the table. It travels as the label of the results, where
// summarise.py finds it. Benchmarks are named "group/competitor", and ratios are taken within a
// group.

inline void is_baseline(benchmark::State& state) {
    state.SetLabel("baseline");
}

// The limit of the ratio to the baseline.
inline void has_ratio_limit(benchmark::State& state, const char* ratio) {
    state.SetLabel(std::string("ratio <= ") + ratio);
}

// The limit of what the row costs beyond the baseline.
inline void has_added_time_limit_ns(benchmark::State& state, const char* nanoseconds) {
    state.SetLabel(std::string("added ns <= ") + nanoseconds);
}

// What the row shows instead of a time. The unit is one that summarise.py knows.
inline void shows_amount(benchmark::State& state, double amount, const char* unit) {
    state.counters[unit] = amount;
}

// The limit of that amount.
inline void has_amount_limit(benchmark::State& state, const char* amount) {
    state.SetLabel(std::string("amount <= ") + amount);
}

#endif
