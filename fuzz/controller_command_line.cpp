// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <errno.h>
#include <glib-object.h>

#include <algorithm>
#include <string>
#include <vector>

#include "target.h"
#include "vask_child_cmd.h"

using vask_fuzz::input;
using vask_fuzz::require;

namespace {

int commands_run = 0;

// Its commands call nobody, so that any object will do for the proxy of a child.
class silent_tool : public vask_child_cmd {
public:
    explicit silent_tool(const char* program) : vask_child_cmd("tool", program, "1.2.3", true) {
        m_proxy = static_cast<DBusGProxy*>(g_object_new(G_TYPE_OBJECT, nullptr));
        add("count", static_cast<cmd_handler>(&silent_tool::count), "count: Counts.");
        add("test", &vask_child_cmd::cmd_func_test, "test: Tests.");
    }

    bool count(std::vector<std::string>& args) {
        commands_run += static_cast<int>(args.size()) + 1;
        return true;
    }
};

// GLib prints its help and ends the process, as it must.
bool asks_for_help(const std::string& word) {
    return word.compare(0, 6, "--help") == 0 ||
           (word.size() > 1 && word[0] == '-' && word[1] != '-' &&
            word.find_first_of("h?") != std::string::npos);
}

int run(silent_tool& tool, const std::vector<std::string>& words) {
    std::vector<std::string> copies = words;
    std::vector<char*> argv;
    for (std::string& word : copies) {
        argv.push_back(&word[0]);
    }
    argv.push_back(nullptr);
    return tool.run(static_cast<int>(words.size()), argv.data());
}

}  // namespace

void set_up_target() {
    vask_fuzz::output_of_library::discard();
    g_log_set_default_handler([](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
}

void run_target(input& input) {
    const bool is_running = input.flag();
    std::vector<std::string> words;
    while (input.has_more()) {
        words.push_back(input.text());
    }
    if (std::any_of(words.begin(), words.end(), asks_for_help)) {
        return;
    }
    vask_child_cmd::options = {};
    commands_run = 0;
    silent_tool tool(is_running ? program_invocation_short_name : "no such program");
    const int code = run(tool, words);
    require(code == 0 || code == 1, "a tool succeeds or fails");
    require(is_running || commands_run == 0, "without a target nothing is run");
    require(words.size() > 1 || code == 1, "a tool without arguments shows its usage");
}
