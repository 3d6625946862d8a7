// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdio.h>

#include "command_line.h"
#include "complaint.h"
#include "examination.h"
#include "json_writer.h"
#include "printable.h"
#include "process_table.h"
#include "terminal.h"
#include "verbs.h"

namespace vaskctl {

namespace {

colour colour_of(verdict its_verdict) {
    switch (its_verdict) {
        case verdict::healthy:
            return colour::green;
        case verdict::unknown:
        case verdict::held:
            return colour::yellow;
        default:
            return colour::red;
    }
}

void print_file(const finding_file& file, const process_table& processes) {
    printf("    %s  %s %s  %lld bytes", printable(file.path).c_str(), file.owner.c_str(),
           file.mode.c_str(), static_cast<long long>(file.size));
    if (file.value) {
        printf("  value %d", *file.value);
    }
    std::string users;
    for (const int pid : file.mapped_by) {
        users += (users.empty() ? "" : ", ") + processes.describe(pid);
    }
    if (!users.empty()) {
        printf("  mapped by %s", users.c_str());
    }
    printf("\n");
}

void print_contents(const finding& found) {
    if (found.sequence && found.count) {
        printf("    sequence %u  count %d\n", *found.sequence, *found.count);
    }
    for (const finding_entry& entry : found.entries) {
        printf("    key %llu  pid %d  %s  %s\n", static_cast<unsigned long long>(entry.key),
               entry.pid, entry.program.empty() ? "-" : printable(entry.program).c_str(),
               entry.state.c_str());
    }
    for (const auto& field : found.fields) {
        printf("    %s: %s\n", field.first.c_str(), field.second.c_str());
    }
}

void print_text(const finding& found, const process_table& processes) {
    printf("%s  %s\n", coloured(printable(found.object), colour::bold).c_str(),
           coloured(name_of(found.its_verdict), colour_of(found.its_verdict)).c_str());
    for (const std::string& text : found.evidence) {
        printf("  %s\n", text.c_str());
    }
    for (const finding_file& file : found.files) {
        print_file(file, processes);
    }
    print_contents(found);
}

void add_file(json_writer& json, const finding_file& file) {
    json.begin_object();
    json.add_member("path", file.path);
    json.add_member("owner", file.owner);
    json.add_member("mode", file.mode);
    json.add_member("size", file.size);
    json.add_member("value", file.value);
    json.name("mapped_by");
    json.begin_array();
    for (const int pid : file.mapped_by) {
        json.add(pid);
    }
    json.end_array();
    json.end_object();
}

void add_entry(json_writer& json, const finding_entry& entry) {
    json.begin_object();
    json.add_member("pid", entry.pid);
    json.add_member("key", entry.key);
    json.add_member("program", entry.program);
    json.add_member("state", entry.state);
    json.end_object();
}

void add_finding(json_writer& json, const finding& found) {
    json.begin_object();
    json.add_member("object", found.object);
    json.add_member("verdict", name_of(found.its_verdict));
    json.add_member("evidence", found.evidence);
    json.name("files");
    json.begin_array();
    for (const finding_file& file : found.files) {
        add_file(json, file);
    }
    json.end_array();
    if (found.sequence && found.count) {
        json.add_member("sequence", static_cast<std::int64_t>(*found.sequence));
        json.add_member("count", *found.count);
        json.name("entries");
        json.begin_array();
        for (const finding_entry& entry : found.entries) {
            add_entry(json, entry);
        }
        json.end_array();
    }
    if (!found.fields.empty()) {
        json.name("fields");
        json.begin_object();
        for (const auto& field : found.fields) {
            json.add_member(field.first.c_str(), field.second);
        }
        json.end_object();
    }
    json.end_object();
}

void print_json(const std::vector<finding>& findings) {
    json_writer json;
    json.begin_object();
    json.add_member("verdict", name_of(worst_of(findings)));
    json.name("objects");
    json.begin_array();
    for (const finding& found : findings) {
        add_finding(json, found);
    }
    json.end_array();
    json.end_object();
    json.print_line();
}

int status_for(verdict worst) {
    if (worst == verdict::healthy) {
        return status_done;
    }
    return worst == verdict::unknown ? status_cannot_tell : status_failed;
}

}  // namespace

int run_status(const std::vector<std::string>& words) {
    command_line line("status", nullptr,
                      "Shows the library lock, every registry, the shared record and other shared "
                      "memory: who owns\nand who uses them, what they hold, and whether they are "
                      "healthy, held, abandoned or damaged.\n\nThe exit status is 0 when all are "
                      "healthy, 1 when one is not, and 7 when that cannot be told.");
    line.parse(words);
    line.expect_words(0, 0);

    const system_view system;
    const std::vector<finding> findings = examine_system(system);
    if (line.json) {
        print_json(findings);
    } else {
        for (const finding& found : findings) {
            print_text(found, system.processes);
        }
        if (findings.empty() && line.has_legend()) {
            printf("There are no shared objects: nobody has registered or used the record.\n");
        }
    }
    return status_for(worst_of(findings));
}

}  // namespace vaskctl
