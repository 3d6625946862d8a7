// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/main_loop.h"

#include <glib.h>

#include <chrono>
#include <memory>
#include <thread>

#include "vask_test/timeout_factor.h"

namespace vask_test {

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int tick_msec = 5;
constexpr int most_dispatches = 10000;

clock_type::time_point deadline_after(int msec) {
    return clock_type::now() +
           std::chrono::milliseconds(static_cast<long>(msec * timeout_factor()));
}

gboolean keep_ticking(gpointer) {
    return G_SOURCE_CONTINUE;
}

void remove_source(GSource* source) {
    g_source_destroy(source);
    g_source_unref(source);
}

}  // namespace

bool wait_until(const std::function<bool()>& condition, int deadline_msec) {
    const auto deadline = deadline_after(deadline_msec);
    std::unique_ptr<GSource, decltype(&remove_source)> tick(g_timeout_source_new(tick_msec),
                                                            remove_source);
    g_source_set_callback(tick.get(), keep_ticking, nullptr, nullptr);
    g_source_attach(tick.get(), nullptr);
    while (!condition()) {
        if (clock_type::now() >= deadline) {
            return false;
        }
        g_main_context_iteration(nullptr, TRUE);
    }
    return true;
}

bool wait_until_without_loop(const std::function<bool()>& condition, int deadline_msec) {
    const auto deadline = deadline_after(deadline_msec);
    while (!condition()) {
        if (clock_type::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(tick_msec));
    }
    return true;
}

void drain_main_loop() {
    // Bounded, because an idle source may keep itself pending for ever.
    for (int i = 0; i < most_dispatches && g_main_context_iteration(nullptr, FALSE); ++i) {
    }
}

}  // namespace vask_test
