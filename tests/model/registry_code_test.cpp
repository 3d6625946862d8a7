// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Whether the library does step by step what the model of the registry says: its own sources, with
// a note of each fence and of each field that is read or written.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <string>
#include <vector>

#include "foundation/shared_names.h"
#include "model/registry_model.h"

namespace {

std::vector<std::string>* notes = nullptr;

void take_note(const std::string& note) {
    if (notes != nullptr) {
        notes->push_back(note);
    }
}

const std::map<off_t, std::string> fields = {{0, "sequence"}, {4, "count"},  {8, "pid 0"},
                                             {16, "key 0"},   {24, "pid 1"}, {32, "key 1"}};

std::memory_order note_fence(std::memory_order order) {
    take_note(order == std::memory_order_release   ? "release fence"
              : order == std::memory_order_acquire ? "acquire fence"
                                                   : "another fence");
    return order;
}

std::string number_in(const void* bytes, std::size_t size) {
    return size == sizeof(std::uint64_t) ? std::to_string(*static_cast<const std::uint64_t*>(bytes))
                                         : std::to_string(*static_cast<const std::int32_t*>(bytes));
}

ssize_t note_pwrite(int fd, const void* bytes, std::size_t size, off_t offset) {
    const auto field = fields.find(offset);
    if (field != fields.end()) {
        take_note(field->second + " = " + number_in(bytes, size));
    } else if (notes != nullptr && !notes->empty()) {
        // An entry that the model has no room for; its fence goes, too.
        notes->pop_back();
    }
    return pwrite(fd, bytes, size, offset);
}

ssize_t note_pread(int fd, void* bytes, std::size_t size, off_t offset) {
    for (const auto& [place, name] : fields) {
        // What the copy of all has of the sequence is not looked at.
        const bool is_looked_at = place != 0 || size == sizeof(std::uint32_t);
        if (is_looked_at && offset <= place && place < offset + static_cast<off_t>(size)) {
            take_note(name);
        }
    }
    return pread(fd, bytes, size, offset);
}

}  // namespace

#define atomic_thread_fence(order) atomic_thread_fence(note_fence(order))
#define pwrite note_pwrite
#define pread note_pread
// They take the place of those in the library.
#include "foundation/pid_array_view.cpp"
#include "foundation/pid_array_writer.cpp"
#undef pread
#undef pwrite
#undef atomic_thread_fence

using namespace vask_test;
using testing::ElementsAreArray;

namespace {

using note_list = std::vector<std::string>;
using entries = std::vector<registered>;

constexpr char object_name[] = "/vask_proc_pid_model";

note_list notes_of(const steps& thread) {
    note_list result;
    for (const step& one : thread) {
        const std::string& field = std::next(fields.begin(), one.location)->second;
        switch (one.kind) {
            case step::release_fence:
                result.push_back("release fence");
                break;
            case step::acquire_fence:
                result.push_back("acquire fence");
                break;
            case step::write:
                result.push_back(field + " = " + std::to_string(one.value));
                break;
            default:
                result.push_back(field);
        }
    }
    return result;
}

class registry_code : public testing::Test {
protected:
    registry_code() : m_lock(sem_open(library_lock_name, O_CREAT, 0600, 0)) {
        shm_unlink(object_name);
    }

    ~registry_code() override {
        sem_close(m_lock);
        sem_unlink(library_lock_name);
        shm_unlink(object_name);
    }

    // By one entry more than there were, at most, as a registration does it.
    note_list change(const entries& next) {
        note_list noted;
        notes = &noted;
        pid_array_writer writer(m_lock);
        EXPECT_TRUE(writer.open(object_name));
        writer.array()->count = 0;
        for (const registered& entry : next) {
            writer.append(entry.first, static_cast<std::uint64_t>(entry.second));
        }
        writer.commit();
        notes = nullptr;
        EXPECT_EQ(writer.get_outcome().result, pid_array_writer::result::done);
        noted.erase(std::remove_if(noted.begin(), noted.end(),
                                   [](const std::string& note) {
                                       return note.find("fence") == std::string::npos &&
                                              note.find('=') == std::string::npos;
                                   }),
                    noted.end());
        return noted;
    }

    note_list change_in_model(const entries& next) {
        modelled_writer writer(m_record);
        writer.change(next);
        m_record = writer.record();
        return notes_of(writer.thread());
    }

    modelled_record m_record;

private:
    sem_t* const m_lock;
};

}  // namespace

TEST_F(registry_code, Stores_what_the_model_stores_with_the_same_fences) {
    const std::vector<entries> changes = {{{11, 1}},          {{11, 1}, {12, 2}}, {{12, 2}},
                                          {{12, 2}, {13, 3}}, {{13, 3}, {12, 4}}, {},
                                          {{14, 5}}};
    for (const entries& next : changes) {
        EXPECT_THAT(change(next), ElementsAreArray(change_in_model(next)));
    }
}

TEST_F(registry_code, Begins_again_where_the_model_does_when_a_writer_has_died) {
    change({{11, 1}});
    change_in_model({{11, 1}});
    const int object = shm_open(object_name, O_RDWR, 0);
    const std::int32_t odd = m_record.sequence = 5;
    ASSERT_EQ(pwrite(object, &odd, sizeof odd, 0), 4);
    close(object);

    EXPECT_THAT(change({{12, 2}}), ElementsAreArray(change_in_model({{12, 2}})));
}

TEST_F(registry_code, Reads_what_the_model_reads_with_the_same_fences) {
    change({{11, 1}});
    change({{11, 1}, {12, 2}});
    const int object = shm_open(object_name, O_RDONLY, 0);
    pid_array_view view(object);
    note_list noted;
    notes = &noted;
    const pid_array_snapshot snapshot = view.read();
    notes = nullptr;
    EXPECT_THAT(noted, ElementsAreArray(notes_of(modelled_reading())));

    notes = &noted;
    view.drop_changed(snapshot);
    notes = nullptr;
    close(object);
    // Of one entry, from its first copy on.
    noted.erase(noted.begin(), std::find(noted.begin(), noted.end(), "pid 1"));
    noted.erase(std::remove_if(noted.begin(), noted.end(),
                               [](const std::string& note) {
                                   return note == "sequence" || note.back() == '0';
                               }),
                noted.end());
    EXPECT_THAT(noted, ElementsAreArray(
                           notes_of(modelled_copies_of_entry(1, copies_of_a_disturbed_lookup))));
}
