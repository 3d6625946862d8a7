// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "command_line.h"
#include "complaint.h"
#include "json_writer.h"
#include "record_fields.h"
#include "shared_info/shared_layout.h"
#include "verbs.h"

namespace vaskctl {

namespace {

constexpr unsigned int patience_sec = 2;
constexpr useconds_t pause_usec = 10000;

shared_file open_record() {
    shared_file file(std::string(context_shm_prefix) + shared_info_name);
    if (!file.exists()) {
        throw complaint(status_failed,
                        "there is no shared record yet: the first process that uses it makes it");
    }
    const std::string damage = record_view(file).damage();
    if (!damage.empty()) {
        throw complaint(status_failed,
                        "the shared record is damaged: " + damage + "; see \"vaskctl repair\"");
    }
    if (!file.is_readable()) {
        throw complaint(status_cannot_tell, "the shared record belongs to " + file.owner() +
                                                " and cannot be read: ask again as that user");
    }
    return file;
}

void add_member(json_writer& json, const record_view& record, const record_field& field) {
    json.add_member(field.name, record.value(field));
}

void print_field(const record_view& record, const record_field& field, bool has_name) {
    if (const auto value = record.value(field)) {
        printf("%s%s%s\n", has_name ? field.name : "", has_name ? ": " : "",
               describe(field, *value).c_str());
    }
}

int get(const command_line& line) {
    const std::vector<std::string>& words = line.words();
    const record_field* wanted = words.size() > 1 ? &find_field(words[1]) : nullptr;
    const shared_file file = open_record();
    const record_view record(file);
    json_writer json;
    json.begin_object();
    for (const record_field& field : record_fields()) {
        if (wanted != nullptr && wanted != &field) {
            continue;
        }
        if (line.json) {
            add_member(json, record, field);
        } else {
            print_field(record, field, wanted == nullptr);
        }
    }
    json.end_object();
    if (line.json) {
        json.print_line();
    }
    return status_done;
}

// The library waits for the semaphore without limit, but lets signals through as long as it waits.
void give_up(int) {
    constexpr char text[] =
        "vaskctl: the record's semaphore is taken and not given back; see \"vaskctl status\"\n";
    const ssize_t written = write(STDERR_FILENO, text, sizeof(text) - 1);
    _exit(written < 0 ? status_failed : status_timed_out);
}

// The library's view of the record, for one change.
class record_editor : public vask_shared_info {
public:
    bool change(const record_field& field, int value) {
        struct sigaction action = {};
        action.sa_handler = give_up;
        sigaction(SIGALRM, &action, nullptr);
        alarm(patience_sec);
        vk_shared_info* record = map_shared_info(true);
        if (record == nullptr) {
            return false;
        }
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        // Who has the semaphore is ended by no signal.
        pthread_sigmask(SIG_BLOCK, &all, &before);
        while (sem_trywait(m_shared_info_ctx->get_sem()) != 0) {
            pthread_sigmask(SIG_SETMASK, &before, nullptr);
            usleep(pause_usec);
            pthread_sigmask(SIG_BLOCK, &all, nullptr);
        }
        store(record, field, value);
        sem_post(m_shared_info_ctx->get_sem());
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        alarm(0);
        return true;
    }

private:
    static void store(vk_shared_info* record, const record_field& field, int value) {
        void* place = reinterpret_cast<char*>(record) + field.offset;
        // Under the record's semaphore [S1].
        if (field.size == sizeof(std::uint8_t)) {
            __atomic_store_n(static_cast<std::uint8_t*>(place), static_cast<std::uint8_t>(value),
                             __ATOMIC_RELAXED);
        } else {  // [S1]
            __atomic_store_n(static_cast<std::int32_t*>(place), value, __ATOMIC_RELAXED);
        }
    }
};

int set(const command_line& line) {
    line.expect_words(3, 3);
    const record_field& field = find_field(line.words()[1]);
    const int value = parse_value(field, line.words()[2]);
    record_editor editor;
    if (!editor.change(field, value)) {
        throw complaint(status_failed,
                        "the shared record cannot be changed; see \"vaskctl status\"");
    }
    editor.unmap_shared_info(false);
    return status_done;
}

}  // namespace

int run_record(const std::vector<std::string>& words) {
    command_line line("record", "get [FIELD] | set FIELD VALUE",
                      "Shows or changes a field of the shared record: monitor-rotation, cpu-type, "
                      "gpu-type or\npseudo-portrait. get reads without waiting for the record's "
                      "semaphore; set waits for it for 2 s, and\nmakes the record where there is "
                      "none. VALUE is a number, or the word that get shows for it.");
    line.parse(words);
    line.expect_words(1, 3);
    if (line.words()[0] == "get") {
        line.expect_words(1, 2);
        return get(line);
    }
    if (line.words()[0] == "set") {
        return set(line);
    }
    throw complaint(status_usage, "it is either \"record get\" or \"record set\"");
}

}  // namespace vaskctl
