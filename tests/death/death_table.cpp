// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Kills, stops and fails the operations on shared state at each of their steps, and prints what has
// become of them as tables in Markdown. Status 1 when an invariant does not hold somewhere.
//
// usage: death_table [--parallel N] [--selection] [PART-OF-A-NAME]...
//        --selection takes a few steps of each operation, and lets all wait for less time
//        Status 2, with all names, when a part is in none of them.

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "death/death_cell.h"

using namespace vask_test;

namespace {

constexpr int haste_of_selection = 20;
constexpr std::size_t steps_of_selection = 16;
constexpr std::size_t slow_steps_of_selection = 3;

struct wishes {
    int parallel = 24;
    bool is_selection = false;
    std::vector<std::string> names;
};

std::string full_name(const operation& of) {
    return std::string(of.subsystem) + ": " + of.name;
}

bool has_part(const operation& of, const std::string& part) {
    return full_name(of).find(part) != std::string::npos;
}

bool is_wanted(const wishes& wanted, const operation& of) {
    return wanted.names.empty() ||
           std::any_of(wanted.names.begin(), wanted.names.end(),
                       [&of](const std::string& part) { return has_part(of, part); });
}

// False, with a message, when a wish would go unheard.
bool knows_all(const wishes& wanted) {
    const std::vector<operation>& all = all_operations();
    for (const std::string& part : wanted.names) {
        if (std::none_of(all.begin(), all.end(),
                         [&part](const operation& of) { return has_part(of, part); })) {
            fprintf(stderr, "no operation has \"%s\" in its name; there are:\n", part.c_str());
            for (const operation& of : all) {
                fprintf(stderr, "%s\n", full_name(of).c_str());
            }
            return false;
        }
    }
    return true;
}

std::string why_not(const operation& of, const fail_point& point, fault wanted) {
    if (wanted == fault::rob && of.why_not_robbed != nullptr) {
        return of.why_not_robbed;
    }
    return can_happen(point.call, wanted) ? "" : "–";
}

struct table_row {
    std::string step;
    std::vector<std::string> texts;
};

// Steps of one function with one result in a row are one line.
void print_rows(const std::vector<table_row>& rows) {
    for (std::size_t i = 0; i < rows.size();) {
        std::size_t end = i + 1;
        const std::string call = rows[i].step.substr(0, rows[i].step.find(' '));
        while (end < rows.size() && rows[end].texts == rows[i].texts &&
               rows[end].step.substr(0, rows[end].step.find(' ')) == call) {
            ++end;
        }
        printf("| %s", rows[i].step.c_str());
        if (end > i + 1) {
            const std::string& last = rows[end - 1].step;
            printf(" to %s", last.substr(last.find(' ') + 1).c_str());
        }
        for (const std::string& text : rows[i].texts) {
            printf(" | %s", text.c_str());
        }
        printf(" |\n");
        i = end;
    }
}

class operation_table {
public:
    operation_table(const operation& of, const wishes& wanted)
        : m_of(of),
          m_wanted(wanted),
          m_runner(wanted.parallel, wanted.is_selection ? haste_of_selection : 1) {}

    // False when something is broken.
    bool print() {
        m_normal = m_runner.record(m_of);
        printf("\n### %s\n\n", full_name(m_of).c_str());
        complain("", m_normal.complaint);
        std::vector<cell> cells = cells_to_run();
        const std::vector<verdict> verdicts = m_runner.run(cells, m_normal);
        std::vector<table_row> rows;
        std::size_t next = 0;
        for (const fail_point& point : m_normal.steps) {
            table_row row = {point.call + " " + std::to_string(point.turn), {}};
            for (const fault wanted : all_faults) {
                row.texts.push_back(runs(point, wanted) ? text_of(cells[next], verdicts[next])
                                                        : why_not_run(point, wanted));
                next += runs(point, wanted) ? 1 : 0;
            }
            rows.push_back(row);
        }
        printf("| Step |");
        for (const fault wanted : all_faults) {
            printf(" %s |", fault_name(wanted));
        }
        printf("\n|%s\n", " --- | --- | --- | --- | --- | --- | --- | --- | --- |");
        print_rows(rows);
        fflush(stdout);
        return m_complaints == 0;
    }

private:
    bool runs(const fail_point& point, fault wanted) const {
        return why_not_run(point, wanted).empty();
    }

    std::string why_not_run(const fail_point& point, fault wanted) const {
        const std::string reason = why_not(m_of, point, wanted);
        const bool is_left_out = m_wanted.is_selection && !is_selected(point, wanted);
        return reason.empty() && is_left_out ? "left out" : reason;
    }

    // A few, evenly over all that the fault can strike.
    bool is_selected(const fail_point& point, fault wanted) const {
        std::vector<const fail_point*> possible;
        for (const fail_point& step : m_normal.steps) {
            if (can_happen(step.call, wanted)) {
                possible.push_back(&step);
            }
        }
        const std::size_t most = is_slow(wanted) ? slow_steps_of_selection : steps_of_selection;
        const std::size_t distance = (possible.size() + most - 1) / most;
        for (std::size_t i = distance / 2; i < possible.size(); i += distance) {
            if (possible[i]->call == point.call && possible[i]->turn == point.turn) {
                return true;
            }
        }
        return false;
    }

    std::vector<cell> cells_to_run() const {
        std::vector<cell> cells;
        for (const fail_point& point : m_normal.steps) {
            for (const fault wanted : all_faults) {
                if (runs(point, wanted)) {
                    cells.push_back({&m_of, point, wanted});
                }
            }
        }
        return cells;
    }

    std::string text_of(const cell& of, const verdict& found) {
        complain(of.point.call + " " + std::to_string(of.point.turn) + ", " +
                     fault_name(of.wanted) + ": " + found.text,
                 found.complaint);
        return found.complaint.empty() ? found.text : "**broken**: " + found.text;
    }

    void complain(const std::string& where, const std::string& complaint) {
        if (!complaint.empty()) {
            ++m_complaints;
            fprintf(stderr, "%s, %s\n%s\n\n", full_name(m_of).c_str(), where.c_str(),
                    complaint.c_str());
        }
    }

    const operation& m_of;
    const wishes& m_wanted;
    const cell_runner m_runner;
    recording m_normal;
    int m_complaints = 0;
};

wishes read_arguments(int argc, char** argv) {
    wishes wanted;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--parallel" && i + 1 < argc) {
            wanted.parallel = atoi(argv[++i]);
        } else if (argument == "--selection") {
            wanted.is_selection = true;
        } else {
            wanted.names.push_back(argument);
        }
    }
    return wanted;
}

}  // namespace

int main(int argc, char** argv) {
    const wishes wanted = read_arguments(argc, argv);
    if (!knows_all(wanted)) {
        return 2;
    }
    if (!can_run_cells()) {
        fprintf(stderr, "no private /dev/shm\n");
        return 77;
    }
    bool is_whole = true;
    for (const operation& of : all_operations()) {
        if (is_wanted(wanted, of)) {
            is_whole = operation_table(of, wanted).print() && is_whole;
        }
    }
    return is_whole ? 0 : 1;
}
