// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_child_cmd.h"

#include <dbus/dbus-glib.h>
#include <glib.h>

#include <algorithm>

#include "foundation/glib_handles.h"
#include "foundation/type_system.h"

namespace {

struct option_context_deleter {
    void operator()(GOptionContext* context) const { g_option_context_free(context); }
};

// The texts name one tool and one program, on purpose, whatever the tool.
const GOptionEntry entries[] = {
    {"version", 'V', 0, G_OPTION_ARG_NONE, &vask_child_cmd::options.version,
     "Show the version number of ruvo_cmd", nullptr},
    {"usage", 'U', 0, G_OPTION_ARG_NONE, &vask_child_cmd::options.usage, "Show available commands",
     nullptr},
    {"list", 'l', 0, G_OPTION_ARG_NONE, &vask_child_cmd::options.list,
     "Show the list of the target processes", nullptr},
    {"pid", 'p', 0, G_OPTION_ARG_INT, &vask_child_cmd::options.pid,
     "Specify a ruvoko pid to send command", nullptr},
    {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};

bool parse_options(int& argc, char**& argv) {
    const std::unique_ptr<GOptionContext, option_context_deleter> context(
        g_option_context_new("[command] [command_args]"));
    g_option_context_add_main_entries(context.get(), vask_child_cmd::option_entries, nullptr);
    gerror_holder error;
    if (!g_option_context_parse(context.get(), &argc, &argv, error.out())) {
        g_print("option parsing failed: %s\n", error->message);
        return false;
    }
    return true;
}

}  // namespace

vask_child_cmd::option_values vask_child_cmd::options = {0, 0, 0, 0};
const GOptionEntry* const vask_child_cmd::option_entries = entries;

vask_child_cmd::vask_child_cmd(const char* name, const char* program, const char* version,
                               bool no_sys_init)
    : vask_child_cmd_base(name, program), m_tool_name(name), m_version(version) {
    if (no_sys_init) {
        return;
    }
    init_type_system();
    dbus_g_thread_init();
    add("test", &vask_child_cmd::cmd_func_test,
        "test : Internal test. This does not actually send a message.");
}

vask_child_cmd::~vask_child_cmd() = default;

void vask_child_cmd::add(const char* name, cmd_handler handler, const char* help) {
    m_help_lines.push_back(help);
    m_commands[name] = handler;
}

int vask_child_cmd::run(int argc, char** argv) {
    if (argc < 2) {
        print_usage();
        return 1;
    }
    if (!parse_options(argc, argv)) {
        return 1;
    }
    if (options.version) {
        print_version();
        return 0;
    }
    if (options.usage) {
        print_usage();
        return 0;
    }

    std::vector<int> pids = find_program();
    if (pids.empty()) {
        g_print("Not found '%s' in this computer\n", m_program.c_str());
        return 1;
    }
    if (options.list) {
        print_proc_list(pids);
        return 0;
    }
    int target = 0;
    if (!choose_target(pids, target)) {
        return 1;
    }
    if (argc < 2) {
        print_usage();
        return 1;
    }
    std::vector<std::string> args(argv + 2, argv + argc);
    if (!make_proxy(target, false)) {
        return 1;
    }
    const auto command = m_commands.find(argv[1]);
    if (command == m_commands.end()) {
        g_log(nullptr, G_LOG_LEVEL_WARNING, "The command is not supported\n");
        return 0;
    }
    (this->*command->second)(args);
    return 0;
}

bool vask_child_cmd::choose_target(const std::vector<int>& pids, int& target) {
    if (options.pid < 1) {
        target = pids.front();
        return true;
    }
    if (std::find(pids.begin(), pids.end(), options.pid) == pids.end()) {
        // The text names another program than the target, and is kept.
        g_print("No kelvo-sched process with pid: %d\n", options.pid);
        return false;
    }
    target = options.pid;
    return true;
}

void vask_child_cmd::print_usage() {
    g_print("Usage\n");
    g_print("\n");
    g_print("  $ %s command [arguments]\n", m_tool_name.c_str());
    g_print("\n");
    g_print("  Supported commands are\n");
    for (const std::string& line : m_help_lines) {
        g_print("    %s\n", line.c_str());
    }
    g_print("\n");
}

void vask_child_cmd::print_version() {
    g_print("%s\n", m_version.c_str());
}

void vask_child_cmd::print_proc_list(std::vector<int>& pids) {
    g_print("List of processes: %s\n", m_program.c_str());
    for (int pid : pids) {
        g_print("  %6d\n", pid);
    }
}

bool vask_child_cmd::cmd_func_test(std::vector<std::string>& args) {
    g_print("\n");
    g_print("*** This is test command\n");
    for (std::size_t i = 0; i < args.size(); ++i) {
        g_print("[%02d] %s\n", static_cast<int>(i), args[i].c_str());
    }
    g_print("\n");
    return true;
}
