// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "semaphore.h"

#include <semaphore.h>
#include <unistd.h>

#include "bus_link.h"
#include "mapping_table.h"
#include "printable.h"
#include "shared_info/shared_layout.h"

namespace vaskctl {

namespace {

constexpr int patience_msec = 1000;
constexpr int between_proofs_msec = 150;
constexpr useconds_t pause_usec = 10000;

// What one look at the users of a semaphore has shown.
struct look {
    bool proves_death = false;
    bool is_hindered = false;
    std::string text;
    std::set<int> users;
};

std::string list(const std::set<int>& pids, const process_table& processes) {
    std::string text;
    for (const int pid : pids) {
        text += (text.empty() ? "" : ", ") + processes.describe(pid);
    }
    return text;
}

look look_at_users(const semaphore& examined, const process_table& processes) {
    const mapping_table table;
    const std::vector<shm_mapping> mappings = table.of(examined.file().facts());
    const std::string hidden = table.hidden_users();
    look seen;
    std::set<int> awake;
    for (const shm_mapping& mapping : mappings) {
        seen.users.insert(mapping.pid);
    }
    for (const int pid : seen.users) {
        std::vector<shm_mapping> own;
        for (const shm_mapping& mapping : mappings) {
            if (mapping.pid == pid) {
                own.push_back(mapping);
            }
        }
        if (!is_asleep_in(pid, own)) {
            awake.insert(pid);
        }
    }
    if (!awake.empty()) {
        seen.text = "it is taken, and may be held by " + list(awake, processes);
    } else if (!hidden.empty()) {
        seen.is_hindered = true;
        seen.text = "it is taken, and the processes of " + hidden +
                    " cannot be looked into: ask again as root";
    } else {
        seen.proves_death = true;
        seen.text = seen.users.empty() ? "it is taken, and nobody has it mapped"
                                       : "it is taken, and all who have it mapped wait for it: " +
                                             list(seen.users, processes);
    }
    return seen;
}

sem_evidence free_again() {
    return {verdict::healthy, "", {}};
}

}  // namespace

semaphore::semaphore(const std::string& name) : m_file(named_sem_file_prefix + name) {}

std::optional<int> semaphore::value() const {
    sem_t copy = {};
    int value = 0;
    const bool is_read =
        m_file.is_readable() && m_file.facts().st_size == static_cast<off_t>(sizeof(copy)) &&
        pread(m_file.fd(), &copy, sizeof(copy), 0) == static_cast<ssize_t>(sizeof(copy)) &&
        sem_getvalue(&copy, &value) == 0;
    return is_read ? std::optional<int>(value) : std::nullopt;
}

std::string semaphore::damage() const {
    if (!m_file.is_regular()) {
        return "its semaphore is not a regular file";
    }
    if (m_file.facts().st_size != static_cast<off_t>(sizeof(sem_t))) {
        return "its semaphore is " + std::to_string(m_file.facts().st_size) + " bytes long, not " +
               std::to_string(sizeof(sem_t)) +
               ": it was emptied, or made by a process of another word size";
    }
    const std::optional<int> count = value();
    // Those who take it do not know a count below 0.
    const auto places = static_cast<unsigned int>(count.value_or(1));
    return places > 1 ? "its semaphore was given back once too often, and lets " +
                            std::to_string(places) + " in at the same time"
                      : "";
}

sem_evidence examine(const semaphore& examined, const process_table& processes) {
    const deadline until(patience_msec);
    std::optional<deadline> next_proof;
    look seen;
    bool was_hindered = false;
    do {
        seen = look_at_users(examined, processes);
        if (examined.value() != 0 || !examined.file().is_current()) {
            return free_again();
        }
        if (seen.proves_death && next_proof && next_proof->is_over()) {
            return {verdict::abandoned, seen.text, seen.users};
        }
        if (seen.proves_death && !next_proof) {
            next_proof.emplace(between_proofs_msec);
        }
        was_hindered = seen.is_hindered;
        usleep(pause_usec);
    } while (!until.is_over());
    return {was_hindered ? verdict::unknown : verdict::held, seen.text, seen.users};
}

void judge_semaphore(const std::string& name, const system_view& system, finding& found) {
    const semaphore examined(name);
    if (!examined.file().exists()) {
        return;
    }
    finding_file file = describe_file(examined.file());
    file.value = examined.value();
    for (const shm_mapping& mapping : system.mappings.of(examined.file().facts())) {
        file.mapped_by.insert(mapping.pid);
    }
    found.files.push_back(file);
    const std::string damage = examined.damage();
    if (!damage.empty()) {
        found.judge(verdict::damaged, damage);
    } else if (!file.value) {
        found.judge(verdict::unknown, "its semaphore belongs to " + file.owner +
                                          " and cannot be read: ask again as that user");
    } else if (*file.value == 0) {
        const sem_evidence evidence = examine(examined, system.processes);
        if (evidence.its_verdict == verdict::healthy) {
            found.files.back().value = examined.value();
        } else {
            found.judge(evidence.its_verdict, evidence.text);
        }
    }
}

}  // namespace vaskctl
