// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// A command and its reply, from the script of a page in a browser engine, through the sample
// plug-in, to the plug-in's child; against the same command from a program of its own.

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>
#include <vask_app_bridge.h>

#include <string>

#include "demo_protocol.h"
#include "table_row.h"
#include "web_host.h"

namespace {

constexpr int calls_per_script = 100;

// The demonstration's child tells what it does; those that are started meanwhile tell nobody.
class silence {
public:
    silence() : m_output(dup(STDOUT_FILENO)) {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    ~silence() {
        dup2(m_output, STDOUT_FILENO);
        close(m_output);
    }

private:
    int m_output;
};

vask_test::web_host* page_with_child() {
    // Never deleted: at the end of the process the engine is gone before its users.
    static vask_test::web_host* const page = [] {
        const silence during_start;
        auto* const host = new vask_test::web_host;
        const bool is_ready = host->load(VASK_BENCH_PAGE) && host->wait_until("plugin.is_ready");
        return is_ready ? host : nullptr;
    }();
    return page;
}

void run_in_page(benchmark::State& state, const std::string& call, const std::string& expected) {
    vask_test::web_host* page = page_with_child();
    if (page == nullptr) {
        state.SkipWithError("There is no page with a plug-in and its child");
        return;
    }
    const std::string script =
        "for (var i = 1; i < " + std::to_string(calls_per_script) + "; ++i) " + call + "; " + call;
    while (state.KeepRunningBatch(calls_per_script)) {
        if (page->run(script).find(expected) == std::string::npos) {
            state.SkipWithError("The page has seen something else");
            return;
        }
    }
}

void greet_by_bridge(benchmark::State& state) {
    static vask_app_bridge bridge("bench", false);
    if (bridge.get_child_pid() < 0) {
        const silence during_start;
        strlist argv = {DEMO_CHILD_PROGRAM};
        bridge.spawn(argv, vask_object::__empty_strlist);
    }
    while (bridge.get_child_bus_addr() == nullptr && bridge.get_child_pid() > 0) {
        g_main_context_iteration(nullptr, TRUE);
    }
    std::string name = "page";
    for (auto _ : state) {
        std::string reply;
        bridge.send_cmd(DEMO_CMD_GREET, reply, name);
        if (reply.find("Hello page") == std::string::npos) {
            state.SkipWithError("The child did not greet");
        }
    }
    is_baseline(state);
}

void greet_from_page(benchmark::State& state) {
    run_in_page(state, "plugin.greet('page')", "Hello page");
}

void echo_from_page(benchmark::State& state) {
    run_in_page(state, "plugin.echo('page')", "\"page\"");
}

BENCHMARK(greet_by_bridge)->Name("Command from a page/send_cmd in a program")->UseRealTime();
BENCHMARK(greet_from_page)->Name("Command from a page/page, plug-in, child")->UseRealTime();
BENCHMARK(echo_from_page)->Name("Command from a page/page, plug-in")->UseRealTime();

}  // namespace
