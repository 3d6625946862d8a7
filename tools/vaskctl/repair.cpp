// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "repair.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "complaint.h"
#include "examination.h"
#include "held_semaphore.h"
#include "mapping_table.h"
#include "printable.h"
#include "record_fields.h"
#include "registry.h"
#include "shared_info/shared_layout.h"

namespace vaskctl {

namespace {

constexpr char cannot_know[] =
    "cannot be known: whether a process outside of this /proc holds it, or one waits for itself";
constexpr char none_of_ours[] = "it is none of the library's: remove it by hand";

bool has_prefix(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

// The name of a context; empty for an object that is none.
std::string context_in(const std::string& object) {
    if (object == shared_record_object) {
        return shared_info_name;
    }
    return has_prefix(object, context_object_prefix) ? object.substr(strlen(context_object_prefix))
                                                     : "";
}

bool is_dead(const std::string& state) {
    return state == name_of(registrant_state::zombie) ||
           state == name_of(registrant_state::recycled);
}

bool is_regular(const finding& found) {
    struct stat facts = {};
    return !found.files.empty() && lstat(found.files[0].path.c_str(), &facts) == 0 &&
           S_ISREG(facts.st_mode);
}

void plan_registry(const finding& found, repair_plan& plan) {
    const bool has_odd_sequence = found.sequence.value_or(0) % 2 != 0;
    for (const finding_entry& entry : found.entries) {
        if (is_dead(entry.state)) {
            plan.steps.push_back("drop key " + std::to_string(entry.key) + " of process " +
                                 std::to_string(entry.pid));
        }
        if (entry.state == name_of(registrant_state::zombie)) {
            plan.remaining.push_back("process " + std::to_string(entry.pid) +
                                     " stays a zombie until its parent reaps it or ends");
        }
    }
    if (has_odd_sequence && found.its_verdict == verdict::abandoned) {
        plan.steps.push_back("end the change that its writer has not finished");
    }
    if (found.its_verdict == verdict::damaged) {
        plan.remaining.push_back(is_regular(found)
                                     ? "the next registration under this name sets it right"
                                     : none_of_ours);
    }
}

void plan_semaphore(const finding& found, repair_plan& plan) {
    if (found.its_verdict != verdict::abandoned) {
        return;
    }
    plan.steps.push_back("give the semaphore back");
    plan.remaining.push_back(cannot_know);
}

// A maker that was killed before it gave the record its size has left one that everybody refuses.
void plan_short_record(const finding& found, repair_plan& plan) {
    const std::string path = std::string(shm_directory) + context_shm_prefix;
    const bool is_short = found.object == shared_record_object && !found.files.empty() &&
                          has_prefix(found.files[0].path, path) &&
                          found.files[0].size < static_cast<std::int64_t>(sizeof(vk_shared_info));
    if (is_short && !is_regular(found)) {
        plan.remaining.push_back(none_of_ours);
    } else if (is_short && found.files[0].mapped_by.empty()) {
        plan.steps.push_back("remove the record, which is too short and in nobody's memory");
    }
}

void plan_context(const finding& found, repair_plan& plan) {
    plan_semaphore(found, plan);
    plan_short_record(found, plan);
    const bool is_all_zero = [&found] {
        for (const auto& field : found.fields) {
            if (field.second[0] != '0') {
                return false;
            }
        }
        return !found.fields.empty();
    }();
    if (is_all_zero && found.its_verdict == verdict::abandoned) {
        plan.remaining.push_back(
            "cannot be known: whether its maker has filled it in, because it is all zero. If "
            "nobody has set rotation 0, run: vaskctl record set monitor-rotation 'not set'");
    }
}

// Publishes what a dead writer has stored before it, too.
void write_field(const shared_file& file, int fd, std::size_t offset, std::uint32_t value) {
    std::atomic_thread_fence(std::memory_order_release);  // [R2]
    if (!file.is_current() || pwrite(fd, &value, sizeof(value), static_cast<off_t>(offset)) !=
                                  static_cast<ssize_t>(sizeof(value))) {
        throw complaint(status_failed, "it was replaced meanwhile, or cannot be written to");
    }
}

// Runs with the library lock in hand. A pid of 0 makes an entry an unused slot in one step: no
// reader sees anything in between.
std::vector<std::string> repair_registry(const std::string& name, const held_semaphore& lock,
                                         const process_table& processes) {
    const registry examined(name);
    const unique_fd file(
        open(examined.file().path().c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!file) {
        throw complaint(status_failed, std::string("it cannot be written to: ") + strerror(errno));
    }
    std::vector<std::string> done;
    for (const registry_entry& entry : examined.entries()) {
        if (is_dead(name_of(examined.state_of(entry, processes))) && lock.is_current()) {
            write_field(examined.file(), file.get(),
                        entry_offset(entry.index) + offsetof(pid_array_entry, pid), 0);
            done.push_back("dropped key " + std::to_string(entry.key) + " of process " +
                           std::to_string(entry.pid));
        }
    }
    if (examined.is_being_written() && lock.is_current()) {
        write_field(examined.file(), file.get(), offsetof(pid_array, sequence),
                    examined.sequence() + 1);
        done.push_back("ended the change that its writer had not finished");
    }
    return done;
}

// As the library makes it, where somebody has removed it.
void make_semaphore(const std::string& name, mode_t mode) {
    sem_t* made = sem_open(name.c_str(), O_CREAT, mode, 1);
    if (made != SEM_FAILED) {
        sem_close(made);
    }
}

std::vector<std::string> carry_out_registry(const std::string& name,
                                            const process_table& processes) {
    make_semaphore(library_lock_name, 0644);
    const held_semaphore lock(library_lock_name, processes);
    std::vector<std::string> done = repair_registry(name, lock, processes);
    if (lock.is_adopted()) {
        done.push_back("gave back the library lock, whose holder is dead");
    }
    return done;
}

std::vector<std::string> carry_out_context(const std::string& name,
                                           const process_table& processes) {
    make_semaphore(context_sem_prefix + name, 0666);
    const held_semaphore held(context_sem_prefix + name, processes);
    std::vector<std::string> done;
    const shared_file memory(context_shm_prefix + name);
    const bool is_short = name == shared_info_name && memory.exists() && memory.is_regular() &&
                          memory.facts().st_size < static_cast<off_t>(sizeof(vk_shared_info));
    if (is_short && mapping_table().of(memory.facts()).empty() && held.is_current() &&
        memory.is_current() && shm_unlink((context_shm_prefix + name).c_str()) == 0) {
        done.push_back("removed the record, which was too short");
    }
    if (held.is_adopted()) {
        done.push_back("gave the semaphore back");
    }
    return done;
}

}  // namespace

repair_plan plan_repair(const finding& found) {
    repair_plan plan;
    plan.object = found.object;
    plan.evidence = found.evidence;
    if (has_prefix(found.object, registry_object_prefix)) {
        plan_registry(found, plan);
    } else if (found.object == library_lock_object) {
        plan_semaphore(found, plan);
    } else {
        plan_context(found, plan);
    }
    return plan;
}

std::vector<std::string> carry_out(const repair_plan& plan, const process_table& processes) {
    if (has_prefix(plan.object, registry_object_prefix)) {
        return carry_out_registry(plan.object.substr(strlen(registry_object_prefix)), processes);
    }
    if (plan.object == library_lock_object) {
        const held_semaphore lock(library_lock_name, processes);
        return lock.is_adopted() ? std::vector<std::string>{"gave the semaphore back"}
                                 : std::vector<std::string>();
    }
    return carry_out_context(context_in(plan.object), processes);
}

}  // namespace vaskctl
