// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "examination.h"

#include <unistd.h>

#include <algorithm>
#include <set>

#include "mapping_table.h"
#include "printable.h"
#include "record_fields.h"
#include "semaphore.h"
#include "shared_info/shared_layout.h"

namespace vaskctl {

namespace {

constexpr useconds_t writer_needs_usec = 100000;

std::string describe(const registry_entry& entry, const process_table& processes) {
    return "key " + std::to_string(entry.key) + " belongs to " + processes.describe(entry.pid);
}

void judge_entry(const registry_entry& entry, registrant_state state,
                 const process_table& processes, finding& found) {
    const process_info* process = processes.find(entry.pid);
    switch (state) {
        case registrant_state::zombie:
            found.judge(verdict::abandoned, describe(entry, processes) + ", a zombie that " +
                                                processes.describe(process->parent) +
                                                " has not reaped: lookups still find it");
            break;
        case registrant_state::recycled:
            found.judge(verdict::abandoned, describe(entry, processes) +
                                                ", which is not the process that registered: "
                                                "lookups find a stranger");
            break;
        case registrant_state::doubtful:
            found.judge(verdict::unknown,
                        describe(entry, processes) +
                            ", which began after the last registration under this name: it may "
                            "be a stranger, or the clock was set");
            break;
        default:
            break;
    }
}

finding_entry describe_entry(const registry_entry& entry, registrant_state state,
                             const process_table& processes) {
    const process_info* process = processes.find(entry.pid);
    return {entry.pid, entry.key, process != nullptr ? process->program : "", name_of(state)};
}

// A writer needs microseconds; who finds the same odd number again finds one that has stopped.
void judge_sequence(const registry& first, verdict of_lock, finding& found) {
    if (!first.is_being_written()) {
        return;
    }
    usleep(writer_needs_usec);
    const registry later(first.name());
    if (later.sequence() != first.sequence()) {
        found.sequence = later.sequence();
        return;
    }
    if (of_lock == verdict::held || of_lock == verdict::unknown) {
        found.judge(of_lock, "it is being written to by whoever holds the library lock");
    } else {
        found.judge(verdict::abandoned,
                    "its writer has died in the middle: every lookup takes 5 seconds, until the "
                    "next registration under this name");
    }
}

// Users who do not see each other any more.
void judge_split(const shared_file& memory, const std::string& sem_path, const std::set<int>& users,
                 const system_view& system, finding& found) {
    const mapping_table table;
    std::set<int> lost = table.users_of_removed(memory.path());
    for (const int pid : system.mappings.users_of_removed(sem_path)) {
        lost.insert(pid);
    }
    for (const int pid : lost) {
        found.judge(verdict::damaged, system.processes.describe(pid) +
                                          " uses one that was removed, and shares nothing with "
                                          "those who came later: restart it");
    }
    const shared_file sem(sem_path.substr(std::string(shm_directory).size()));
    if (memory.exists() && !sem.exists() && lost.empty() && !users.empty()) {
        found.judge(verdict::damaged, "its semaphore was removed while it is in use");
    }
}

std::set<int> users_of(const shared_file& file, const mapping_table& table) {
    std::set<int> users;
    if (file.exists()) {
        for (const shm_mapping& mapping : table.of(file.facts())) {
            users.insert(mapping.pid);
        }
    }
    return users;
}

void judge_record(const shared_file& memory, finding& found) {
    const record_view record(memory);
    if (!record.damage().empty()) {
        found.judge(verdict::damaged, record.damage());
    }
    for (const record_field& field : record_fields()) {
        if (const auto value = record.value(field)) {
            found.fields.emplace_back(field.name, describe(field, *value));
            if (*value < 0 || *value > field.largest) {
                found.judge(verdict::damaged, std::string(field.name) + " is " +
                                                  std::to_string(*value) + ", which means nothing");
            }
        }
    }
}

}  // namespace

finding examine_library_lock(const system_view& system) {
    finding found;
    found.object = library_lock_object;
    judge_semaphore(library_lock_name, system, found);
    return found;
}

finding examine_registry(const std::string& name, const system_view& system, verdict of_lock) {
    const registry examined(name);
    finding found;
    found.object = registry_object_prefix + name;
    found.files.push_back(describe_file(examined.file()));
    found.files.back().mapped_by = users_of(examined.file(), system.mappings);
    if (!examined.damage().empty()) {
        found.judge(verdict::damaged, examined.damage());
    }
    if (examined.file().is_regular() && !examined.is_readable()) {
        found.judge(verdict::unknown, "it belongs to " + examined.file().owner() +
                                          " and cannot be read: ask again as that user");
        return found;
    }
    found.sequence = examined.sequence();
    found.count = examined.count();
    judge_sequence(examined, of_lock, found);
    for (const registry_entry& entry : examined.entries()) {
        const registrant_state state = examined.state_of(entry, system.processes);
        found.entries.push_back(describe_entry(entry, state, system.processes));
        judge_entry(entry, state, system.processes, found);
    }
    return found;
}

finding examine_context(const std::string& name, const system_view& system) {
    const bool is_record = name == shared_info_name;
    finding found;
    found.object = is_record ? shared_record_object : context_object_prefix + name;
    const shared_file memory(context_shm_prefix + name);
    const std::set<int> users = users_of(memory, system.mappings);
    if (memory.exists()) {
        found.files.push_back(describe_file(memory));
        found.files.back().mapped_by = users;
    }
    judge_semaphore(context_sem_prefix + name, system, found);
    judge_split(memory, named_sem_path((context_sem_prefix + name).c_str()), users, system, found);
    if (is_record && memory.exists()) {
        judge_record(memory, found);
    }
    return found;
}

std::vector<finding> examine_system(const system_view& system) {
    std::vector<finding> findings;
    const finding lock = examine_library_lock(system);
    if (!lock.files.empty()) {
        findings.push_back(lock);
    }
    for (const std::string& name : list_shared_files(registry_prefix)) {
        findings.push_back(examine_registry(name, system, lock.its_verdict));
    }
    std::set<std::string> contexts;
    for (const std::string& name : list_shared_files(context_shm_prefix)) {
        contexts.insert(name);
    }
    for (const std::string& name :
         list_shared_files(std::string(named_sem_file_prefix) + context_sem_prefix)) {
        contexts.insert(name);
    }
    for (const std::string& name : contexts) {
        findings.push_back(examine_context(name, system));
    }
    return findings;
}

verdict worst_of(const std::vector<finding>& findings) {
    verdict worst = verdict::healthy;
    for (const finding& each : findings) {
        worst = std::max(worst, each.its_verdict);
    }
    return worst;
}

}  // namespace vaskctl
