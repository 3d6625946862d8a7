// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// vaskctl: shows a running system of parents, children and shared objects, and mends it.

#include <errno.h>
#include <locale.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include <exception>
#include <string>
#include <vector>

#include "complaint.h"
#include "printable.h"
#include "vask_object.h"
#include "verbs.h"

namespace {

using namespace vaskctl;

struct verb {
    const char* name;
    int (*run)(const std::vector<std::string>& words);
    const char* help;
};

const verb verbs[] = {
    {"tree", run_tree, "Show all children below their parents"},
    {"status", run_status, "Show the shared objects, and what is wrong with them"},
    {"call", run_call, "Send a command to a child and print its reply"},
    {"send", run_send, "Send a command to a child that is not to reply"},
    {"monitor", run_monitor, "Show commands, replies and signals as they happen"},
    {"record", run_record, "Show or change a field of the shared record"},
    {"repair", run_repair, "Free what dead processes hold"},
    {"log", run_log, "Merge the logs of several processes"},
};

void print_help() {
    printf(
        "Usage:\n  vaskctl [VERB] [OPTION...] [ARGUMENT...]\n\n"
        "Shows and mends a running system of vask parents and children.\n\nVerbs:\n");
    for (const verb& each : verbs) {
        printf("  %-9s %s\n", each.name, each.help);
    }
    printf("\nWithout a verb it is tree. \"vaskctl VERB --help\" shows the options of a verb.\n");
}

const verb* find_verb(const std::string& name) {
    for (const verb& each : verbs) {
        if (name == each.name) {
            return &each;
        }
    }
    return nullptr;
}

// Where the verb stands: it may have options in front of it. The number of words where there is
// none.
std::size_t find_place_of_verb(const std::vector<std::string>& words) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "--timeout") {
            ++i;  // its value
        } else if (words[i].empty() || words[i][0] != '-') {
            return i;
        }
    }
    return words.size();
}

int run(std::vector<std::string> words) {
    const bool has_one_word = words.size() == 1;
    if (has_one_word && (words[0] == "--help" || words[0] == "-h" || words[0] == "help")) {
        print_help();
        return status_done;
    }
    if (has_one_word && words[0] == "--version") {
        printf("vaskctl %s\n", VASKCTL_VERSION);
        return status_done;
    }
    const std::size_t place = find_place_of_verb(words);
    if (place == words.size()) {
        return run_tree(words);
    }
    const verb* wanted = find_verb(words[place]);
    if (wanted == nullptr) {
        throw complaint(status_usage, "there is no verb '" + printable(words[place]) +
                                          "'; see \"vaskctl --help\"");
    }
    words.erase(words.begin() + static_cast<std::ptrdiff_t>(place));
    return wanted->run(words);
}

// What was printed is only done when it has arrived.
int finish(int status) {
    errno = 0;
    const bool is_lost = fflush(stdout) != 0 || ferror(stdout) != 0;
    if (is_lost && status == status_done) {
        fprintf(stderr, "vaskctl: the output cannot be written%s%s\n", errno != 0 ? ": " : "",
                errno != 0 ? strerror(errno) : "");
        return status_failed;
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    setlocale(LC_ALL, "");
    // The library prints where the tool's output goes.
    vask_object::print_msg_level = VASK_P_EMERG;
    // Whoever reads from a pipe may have seen enough.
    signal(SIGPIPE, SIG_DFL);
    std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
    try {
        return finish(run(std::move(words)));
    } catch (const complaint& problem) {
        fflush(stdout);
        fprintf(stderr, "vaskctl: %s\n", problem.what());
        return problem.status();
    } catch (const std::exception& problem) {
        fprintf(stderr, "vaskctl: %s\n", problem.what());
        return status_failed;
    }
}
