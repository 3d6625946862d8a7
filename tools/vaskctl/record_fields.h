// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_RECORD_FIELDS_H
#define VASKCTL_RECORD_FIELDS_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "shared_file.h"

namespace vaskctl {

// A field of the shared record.
struct record_field {
    const char* name;
    std::size_t offset;
    std::size_t size;
    int largest;
};

const std::vector<record_field>& record_fields();

// Throws a complaint for a name that no field has.
const record_field& find_field(const std::string& name);

// A value as it is shown: "5 (not set)".
std::string describe(const record_field& field, int value);

// A value from a command line: a number, or a word that describe() shows. Throws a complaint for
// what the field cannot hold.
int parse_value(const record_field& field, const std::string& text);

// The shared record, read from its file without its semaphore. Each field is stored in one step, so
// it is never half of a value.
class record_view {
public:
    explicit record_view(const shared_file& file) : m_file(file) {}

    std::string damage() const;

    // Nothing where it cannot be read.
    std::optional<int> value(const record_field& field) const;

private:
    const shared_file& m_file;
};

}  // namespace vaskctl

#endif
