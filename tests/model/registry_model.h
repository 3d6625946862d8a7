// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_REGISTRY_MODEL_H
#define VASK_TEST_REGISTRY_MODEL_H

#include <array>
#include <utility>
#include <vector>

#include "model/memory_model.h"

namespace vask_test {

/** Process id and key. */
using registered = std::pair<int, int>;

constexpr int modelled_entries = 2;

/** The record of the process registry with room for two entries. */
struct modelled_record {
    int sequence = 0;
    int count = 0;
    std::array<registered, modelled_entries> entries{};

    static int sequence_location() { return 0; }
    static int count_location() { return 1; }
    static int pid_location(int index) { return 2 + 2 * index; }
    static int key_location(int index) { return 3 + 2 * index; }
    static int locations() { return 2 + 2 * modelled_entries; }

    int& at(int location);
    std::vector<int> values() const;
};

/** What one or several registrations do to a record, step by step. */
class modelled_writer {
public:
    explicit modelled_writer(const modelled_record& before) : m_record(before) {}

    /** Brings such entries into the record. */
    void change(const std::vector<registered>& entries);

    /** Dies after that many steps of it. */
    void change_in_part(const std::vector<registered>& entries, std::size_t steps_done);

    const steps& thread() const { return m_steps; }
    const modelled_record& record() const { return m_record; }

private:
    void put(const char* site, int location, int value);
    void put_entry(int index, const registered& entry);

    modelled_record m_record;
    steps m_steps;
};

/** A lookup's first copy: the sequence, the record, the sequence. */
steps modelled_reading();

/** What that copy holds, if the lookup takes it. */
struct modelled_copy {
    explicit modelled_copy(const std::vector<int>& values);

    bool is_stable;
    modelled_record record;
};

/** How often a lookup that was disturbed copies each entry. */
constexpr int copies_of_a_disturbed_lookup = 3;

/** Copies of one entry, as such a lookup makes them, with a fence between two of them. */
steps modelled_copies_of_entry(int index, int copies);

}  // namespace vask_test

#endif
