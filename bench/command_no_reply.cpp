// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Commands without a reply, until the child has handled the last one: each batch ends with a
// command that asks the child how many it has counted.

#include <dbus/dbus-glib.h>
#include <stdlib.h>

#include "child_commands.h"
#include "libdbus_caller.h"
#include "met_child.h"
#include "table_row.h"

namespace {

constexpr int batch_size = 1000;
const char argument[] = "http://www.example.com/some/page.html";

void check_total(benchmark::State& state, const char* total) {
    if (total == nullptr || atoi(total) != batch_size) {
        state.SkipWithError("The child did not get every command");
    }
}

void send_cmd_no_reply(benchmark::State& state) {
    vask_app_bridge& bridge = met_child::get().bridge();
    while (state.KeepRunningBatch(batch_size)) {
        for (int i = 0; i < batch_size; ++i) {
            bridge.send_cmd_no_reply(BENCH_COUNT, argument);
        }
        char* total = nullptr;
        bridge.send_cmd(BENCH_TOTAL, &total, "");
        check_total(state, total);
        g_free(total);
    }
    has_ratio_limit(state, "1.08");
}

void bare_dbus_g_proxy_call_no_reply(benchmark::State& state) {
    DBusGProxy* proxy = met_child::get().proxy();
    while (state.KeepRunningBatch(batch_size)) {
        for (int i = 0; i < batch_size; ++i) {
            dbus_g_proxy_call_no_reply(proxy, "Command", G_TYPE_INT, static_cast<int>(BENCH_COUNT),
                                       G_TYPE_STRING, argument, G_TYPE_INVALID);
        }
        char* total = nullptr;
        dbus_g_proxy_call(proxy, "Command", nullptr, G_TYPE_INT, static_cast<int>(BENCH_TOTAL),
                          G_TYPE_STRING, "", G_TYPE_INVALID, G_TYPE_STRING, &total, G_TYPE_INVALID);
        check_total(state, total);
        g_free(total);
    }
    is_baseline(state);
}

void bare_libdbus_no_reply(benchmark::State& state) {
    const char* name = met_child::get().bus_name();
    libdbus_caller caller;
    while (state.KeepRunningBatch(batch_size)) {
        for (int i = 0; i < batch_size; ++i) {
            caller.call_no_reply(name, BENCH_COUNT, argument);
        }
        const auto total = caller.call(name, BENCH_TOTAL, "");
        check_total(state, total ? total->c_str() : nullptr);
    }
}

BENCHMARK(bare_dbus_g_proxy_call_no_reply)
    ->Name("Command without reply/dbus_g_proxy_call_no_reply")
    ->UseRealTime();
BENCHMARK(send_cmd_no_reply)->Name("Command without reply/send_cmd_no_reply")->UseRealTime();
BENCHMARK(bare_libdbus_no_reply)->Name("Command without reply/libdbus")->UseRealTime();

}  // namespace
