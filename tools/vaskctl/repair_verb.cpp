// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>

#include "command_line.h"
#include "complaint.h"
#include "examination.h"
#include "json_writer.h"
#include "printable.h"
#include "process_table.h"
#include "repair.h"
#include "terminal.h"
#include "verbs.h"

namespace vaskctl {

namespace {

struct outcome {
    repair_plan plan;
    std::vector<std::string> done;
    std::string failure;
};

std::vector<finding> choose(std::vector<finding> findings, const std::vector<std::string>& wanted) {
    if (wanted.empty()) {
        return findings;
    }
    std::vector<finding> chosen;
    for (const std::string& object : wanted) {
        const auto found = std::find_if(findings.begin(), findings.end(),
                                        [&](const finding& each) { return each.object == object; });
        if (found == findings.end()) {
            throw complaint(status_usage, "there is no object '" + printable(object) +
                                              "'; \"vaskctl status\" shows what there is");
        }
        chosen.push_back(*found);
    }
    return chosen;
}

void print_list(const char* heading, const std::vector<std::string>& texts) {
    for (const std::string& text : texts) {
        printf("  %s: %s\n", heading, text.c_str());
    }
}

void print_plan(const repair_plan& plan) {
    printf("%s\n", coloured(printable(plan.object), colour::bold).c_str());
    print_list("seen", plan.evidence);
    print_list("to do", plan.steps);
}

bool is_agreed(const repair_plan& plan) {
    printf("Repair %s? [y/N] ", printable(plan.object).c_str());
    fflush(stdout);
    const int answer = getchar();
    int rest = answer;
    while (rest != '\n' && rest != EOF) {
        rest = getchar();
    }
    return answer == 'y' || answer == 'Y';
}

// Whoever has a semaphore in hand is ended by no signal.
class signals_held_back {
public:
    signals_held_back() {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_BLOCK, &all, &m_before);
    }
    ~signals_held_back() { sigprocmask(SIG_SETMASK, &m_before, nullptr); }
    signals_held_back(const signals_held_back&) = delete;
    signals_held_back& operator=(const signals_held_back&) = delete;

private:
    sigset_t m_before;
};

outcome repair(const repair_plan& plan) {
    outcome result{plan, {}, ""};
    const signals_held_back nobody_disturbs;
    try {
        result.done = carry_out(plan, process_table());
    } catch (const complaint& problem) {
        result.failure = problem.what();
    }
    return result;
}

void print_outcome(const outcome& result) {
    print_list("done", result.done);
    if (!result.failure.empty()) {
        printf("  not done: %s\n", result.failure.c_str());
    }
    print_list("left", result.plan.remaining);
}

void print_json(const outcome& result) {
    json_writer json;
    json.begin_object();
    json.add_member("object", result.plan.object);
    json.add_member("evidence", result.plan.evidence);
    json.add_member("steps", result.plan.steps);
    json.add_member("done", result.done);
    json.add_member("failure", result.failure);
    json.add_member("remaining", result.plan.remaining);
    json.end_object();
    json.print_line();
}

}  // namespace

int run_repair(const std::vector<std::string>& words) {
    command_line line(
        "repair", "[OBJECT...]",
        "Frees what dead processes hold: semaphores, keys of a registry, changes that "
        "were not finished.\nActs only on what \"vaskctl status\" calls abandoned, "
        "looks again before it acts, and asks first.\nIt removes nothing that a "
        "living process uses.");
    bool is_agreed_to_all = false;
    bool is_dry_run = false;
    line.add_flag("yes", "Do not ask", &is_agreed_to_all);
    line.add_flag("dry-run", "Show what would be done", &is_dry_run);
    line.parse(words);
    if (line.json && !is_agreed_to_all && !is_dry_run) {
        throw complaint(status_usage, "--json needs --yes or --dry-run: it cannot ask");
    }

    const system_view system;
    bool has_failed = false;
    bool has_plan = false;
    for (const finding& found : choose(examine_system(system), line.words())) {
        const repair_plan plan = plan_repair(found);
        const bool is_of_interest = found.its_verdict != verdict::healthy || !plan.steps.empty();
        if (!is_of_interest) {
            continue;
        }
        has_plan = true;
        outcome result{plan, {}, ""};
        if (!line.json) {
            print_plan(plan);
        }
        const bool is_done =
            !plan.steps.empty() && !is_dry_run && (is_agreed_to_all || is_agreed(plan));
        if (is_done) {
            fflush(stdout);
            result = repair(plan);
        }
        if (line.json) {
            print_json(result);
        } else {
            print_outcome(result);
        }
        has_failed = has_failed || !result.failure.empty() || !is_done;
    }
    if (!has_plan && line.has_legend()) {
        printf("There is nothing to repair.\n");
    }
    return has_failed ? status_failed : status_done;
}

}  // namespace vaskctl
