// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// One command and its reply, from the same running child, by the library and by what an
// application would call instead.

#include <gio/gio.h>
#include <sdbus-c++/sdbus-c++.h>
#include <string.h>
#include <systemd/sd-bus.h>

#include "bus/bus_names.h"
#include "child_commands.h"
#include "libdbus_caller.h"
#include "met_child.h"
#include "table_row.h"

namespace {

const char argument[] = "http://www.example.com/some/page.html";

void check_echo(benchmark::State& state, const char* reply) {
    if (reply == nullptr || strcmp(reply, argument) != 0) {
        state.SkipWithError("The child did not echo the argument");
    }
}

void send_cmd(benchmark::State& state) {
    vask_app_bridge& bridge = met_child::get().bridge();
    for (auto _ : state) {
        char* reply = nullptr;
        bridge.send_cmd(BENCH_ECHO, &reply, argument);
        check_echo(state, reply);
        g_free(reply);
    }
    has_ratio_limit(state, "1.05");
}

void send_cmd_strings(benchmark::State& state) {
    vask_app_bridge& bridge = met_child::get().bridge();
    std::string text = argument;
    for (auto _ : state) {
        std::string reply;
        bridge.send_cmd(BENCH_ECHO, reply, text);
        check_echo(state, reply.c_str());
    }
}

void bare_dbus_g_proxy_call(benchmark::State& state) {
    DBusGProxy* proxy = met_child::get().proxy();
    for (auto _ : state) {
        char* reply = nullptr;
        dbus_g_proxy_call(proxy, "Command", nullptr, G_TYPE_INT, static_cast<int>(BENCH_ECHO),
                          G_TYPE_STRING, argument, G_TYPE_INVALID, G_TYPE_STRING, &reply,
                          G_TYPE_INVALID);
        check_echo(state, reply);
        g_free(reply);
    }
    is_baseline(state);
}

void bare_gdbus(benchmark::State& state) {
    const char* name = met_child::get().bus_name();
    GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    for (auto _ : state) {
        GVariant* result = g_dbus_connection_call_sync(
            connection, name, VASK_CHILD_PATH, VASK_CHILD_INTERFACE, "Command",
            g_variant_new("(is)", static_cast<int>(BENCH_ECHO), argument), G_VARIANT_TYPE("(s)"),
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        const char* reply = nullptr;
        if (result != nullptr) {
            g_variant_get(result, "(&s)", &reply);
        }
        check_echo(state, reply);
        g_clear_pointer(&result, g_variant_unref);
    }
    g_object_unref(connection);
}

void bare_libdbus(benchmark::State& state) {
    const char* name = met_child::get().bus_name();
    libdbus_caller caller;
    for (auto _ : state) {
        const auto reply = caller.call(name, BENCH_ECHO, argument);
        check_echo(state, reply ? reply->c_str() : nullptr);
    }
}

void bare_sd_bus(benchmark::State& state) {
    const char* name = met_child::get().bus_name();
    sd_bus* bus = nullptr;
    sd_bus_open_user(&bus);
    for (auto _ : state) {
        sd_bus_message* answer = nullptr;
        const char* reply = nullptr;
        if (sd_bus_call_method(bus, name, VASK_CHILD_PATH, VASK_CHILD_INTERFACE, "Command", nullptr,
                               &answer, "is", static_cast<int>(BENCH_ECHO), argument) >= 0) {
            sd_bus_message_read(answer, "s", &reply);
        }
        check_echo(state, reply);
        sd_bus_message_unref(answer);
    }
    sd_bus_flush_close_unref(bus);
}

void sdbus_cpp(benchmark::State& state) {
    // A connection that the proxy does not own has no thread for signals.
    const auto connection = sdbus::createSessionBusConnection();
    const auto proxy =
        sdbus::createProxy(*connection, met_child::get().bus_name(), VASK_CHILD_PATH);
    for (auto _ : state) {
        std::string reply;
        proxy->callMethod("Command")
            .onInterface(VASK_CHILD_INTERFACE)
            .withArguments(static_cast<int>(BENCH_ECHO), argument)
            .storeResultsTo(reply);
        check_echo(state, reply.c_str());
    }
}

BENCHMARK(bare_dbus_g_proxy_call)->Name("Command and reply/dbus_g_proxy_call")->UseRealTime();
BENCHMARK(send_cmd)->Name("Command and reply/send_cmd")->UseRealTime();
BENCHMARK(send_cmd_strings)->Name("Command and reply/send_cmd with strings")->UseRealTime();
BENCHMARK(bare_gdbus)->Name("Command and reply/GDBus")->UseRealTime();
BENCHMARK(bare_libdbus)->Name("Command and reply/libdbus")->UseRealTime();
BENCHMARK(bare_sd_bus)->Name("Command and reply/sd-bus")->UseRealTime();
BENCHMARK(sdbus_cpp)->Name("Command and reply/sdbus-c++")->UseRealTime();

}  // namespace
