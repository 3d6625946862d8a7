// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "model/registry_model.h"

namespace vask_test {

namespace {

step read_of(int location) {
    return {step::read, location};
}

step fence(step::kind_of_step kind, const char* site) {
    return {kind, 0, 0, site};
}

}  // namespace

int& modelled_record::at(int location) {
    if (location == sequence_location()) {
        return sequence;
    }
    if (location == count_location()) {
        return count;
    }
    registered& entry = entries[(location - pid_location(0)) / 2];
    return location % 2 == pid_location(0) % 2 ? entry.first : entry.second;
}

std::vector<int> modelled_record::values() const {
    modelled_record copy = *this;
    std::vector<int> result;
    for (int location = 0; location < locations(); ++location) {
        result.push_back(copy.at(location));
    }
    return result;
}

// As pid_array_writer does it: make_room(), begin(), write(), end().
void modelled_writer::change(const std::vector<registered>& entries) {
    if (m_record.count < modelled_entries) {
        const registered unused = m_record.entries[m_record.count];
        put("room", modelled_record::pid_location(m_record.count), unused.first);
        put("room", modelled_record::key_location(m_record.count), unused.second);
    }
    const int sequence = m_record.sequence % 2 != 0 ? 1 : m_record.sequence + 1;
    put("odd sequence", modelled_record::sequence_location(), sequence);
    const int count = static_cast<int>(entries.size());
    for (int i = 0; i < count; ++i) {
        if (entries[i] != m_record.entries[i]) {
            put_entry(i, entries[i]);
        }
    }
    put("count", modelled_record::count_location(), count);
    put("even sequence", modelled_record::sequence_location(), sequence + 1);
}

void modelled_writer::change_in_part(const std::vector<registered>& entries,
                                     std::size_t steps_done) {
    modelled_writer whole(m_record);
    whole.change(entries);
    for (std::size_t i = 0; i < steps_done; ++i) {
        const step& one = whole.m_steps[i];
        m_steps.push_back(one);
        if (one.kind == step::write) {
            m_record.at(one.location) = one.value;
        }
    }
}

void modelled_writer::put_entry(int index, const registered& entry) {
    put("pid 0", modelled_record::pid_location(index), 0);
    put("key", modelled_record::key_location(index), entry.second);
    put("pid", modelled_record::pid_location(index), entry.first);
}

void modelled_writer::put(const char* site, int location, int value) {
    m_record.at(location) = value;
    m_steps.push_back(fence(step::release_fence, site));
    m_steps.push_back({step::write, location, value});
}

// As pid_array_view::read() does it.
steps modelled_reading() {
    steps result = {read_of(modelled_record::sequence_location()),
                    fence(step::acquire_fence, "before the copy"),
                    read_of(modelled_record::count_location())};
    for (int i = 0; i < modelled_entries; ++i) {
        result.push_back(read_of(modelled_record::pid_location(i)));
        result.push_back(read_of(modelled_record::key_location(i)));
    }
    result.push_back(fence(step::acquire_fence, "behind the copy"));
    result.push_back(read_of(modelled_record::sequence_location()));
    return result;
}

modelled_copy::modelled_copy(const std::vector<int>& values)
    : is_stable(values.front() % 2 == 0 && values.back() == values.front()) {
    for (int location = 0; location < modelled_record::locations(); ++location) {
        record.at(location) = values[location];
    }
}

// As pid_array_view::read() and then drop_changed() do it.
steps modelled_copies_of_entry(int index, int copies) {
    steps result;
    for (int i = 0; i < copies; ++i) {
        if (i == 1) {
            result.push_back(fence(step::acquire_fence, "behind the copy"));
            result.push_back(fence(step::acquire_fence, "before the second copy"));
        } else if (i == 2) {
            result.push_back(fence(step::acquire_fence, "before the third copy"));
        }
        result.push_back(read_of(modelled_record::pid_location(index)));
        result.push_back(read_of(modelled_record::key_location(index)));
    }
    return result;
}

}  // namespace vask_test
