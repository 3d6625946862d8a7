// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Cutting up and cleaning a text of 64 KiB.

#include <glib.h>
#include <string.h>

#include <string>
#include <vector>

#include "table_row.h"
#include "vask_object.h"

namespace {

constexpr std::size_t text_size = 64 * 1024;

// Words of one to ten letters with a blank, a comma or a line end behind each.
std::string make_text() {
    std::string text;
    for (std::size_t word = 0; text.size() < text_size; ++word) {
        text.append(word * 7 % 10 + 1, static_cast<char>('a' + word % 26));
        text += " ,\n"[word % 3];
    }
    text.resize(text_size);
    return text;
}

void g_strsplit_set_only(benchmark::State& state) {
    const std::string text = make_text();
    for (auto _ : state) {
        gchar** pieces = g_strsplit_set(text.c_str(), " ,\n", -1);
        benchmark::DoNotOptimize(pieces);
        g_strfreev(pieces);
    }
    is_baseline(state);
}

void strspn_loop(benchmark::State& state) {
    const std::string text = make_text();
    for (auto _ : state) {
        std::vector<std::string> pieces;
        const char* p = text.c_str();
        while (*(p += strspn(p, " ,\n")) != '\0') {
            const std::size_t length = strcspn(p, " ,\n");
            pieces.emplace_back(p, length);
            p += length;
        }
        benchmark::DoNotOptimize(pieces.data());
    }
}

void split(benchmark::State& state) {
    const std::string text = make_text();
    for (auto _ : state) {
        benchmark::DoNotOptimize(vask_object::split(text.c_str(), ' ', ",\n").data());
    }
}

void strchr_loop(benchmark::State& state) {
    const std::string text = make_text();
    for (auto _ : state) {
        std::string stripped;
        for (const char* p = text.c_str(); *p != '\0'; ++p) {
            if (strchr(" ,\n", *p) == nullptr) {
                stripped += *p;
            }
        }
        benchmark::DoNotOptimize(stripped.data());
    }
    is_baseline(state);
}

void strip(benchmark::State& state) {
    const std::string text = make_text();
    for (auto _ : state) {
        benchmark::DoNotOptimize(vask_object::strip(text.c_str(), ' ', ",\n").data());
    }
}

BENCHMARK(g_strsplit_set_only)->Name("Split of 64 KiB/g_strsplit_set")->UseRealTime();
BENCHMARK(strspn_loop)->Name("Split of 64 KiB/loop of strspn and strcspn")->UseRealTime();
BENCHMARK(split)->Name("Split of 64 KiB/split")->UseRealTime();
BENCHMARK(strchr_loop)->Name("Strip of 64 KiB/loop of strchr")->UseRealTime();
BENCHMARK(strip)->Name("Strip of 64 KiB/strip")->UseRealTime();

}  // namespace
