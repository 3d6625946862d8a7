// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_error.h"

#include <utility>

vask_abstract_error::vask_abstract_error() : next(nullptr), code(VASK_ERR_NONE) {}

vask_abstract_error::vask_abstract_error(const vask_abstract_error& source)
    : next(nullptr), code(source.code), message(source.message) {
    // Cloned last: nothing may throw when this object owns the copy of the chain.
    if (source.next != nullptr) {
        next = source.next->clone();
    }
}

vask_abstract_error& vask_abstract_error::operator=(const vask_abstract_error& source) {
    if (this == &source) {
        return *this;
    }
    // The source may be part of the chain that is about to be deleted, so everything is copied
    // first.
    std::string new_message = source.message;
    const vask_error_code_t new_code = source.code;
    vask_abstract_error* new_next = source.next != nullptr ? source.next->clone() : nullptr;
    delete next;
    next = new_next;
    code = new_code;
    message = std::move(new_message);
    dump_text.clear();
    return *this;
}

vask_abstract_error::~vask_abstract_error() {
    delete next;
}

const std::string& vask_abstract_error::get_message() const {
    return message;
}

void vask_abstract_error::set_message(std::string new_message) {
    message = std::move(new_message);
}

vask_abstract_error* vask_abstract_error::get_next() const {
    return next;
}

void vask_abstract_error::set_next(const vask_abstract_error* error) {
    if (error == nullptr) {
        return;
    }
    // Cloned first: the argument may be part of the chain that is deleted.
    vask_abstract_error* copy = error->clone();
    delete next;
    next = copy;
}

std::string& vask_abstract_error::dump_errors(int depth) {
    if (depth > 0) {
        dump_text += '\n';
        dump_text.append(static_cast<std::string::size_type>(depth), ' ');
    }
    dump_text += message;
    if (next != nullptr) {
        // Takes only what this call adds: an earlier call has left its text in the successor.
        const std::string::size_type already = next->dump_text.size();
        dump_text.append(next->dump_errors(depth + 1), already, std::string::npos);
    }
    return dump_text;
}

vask_error::vask_error() = default;
vask_error::vask_error(const vask_error& source) = default;
vask_error& vask_error::operator=(const vask_error& source) = default;
vask_error::~vask_error() = default;

vask_error* vask_error::clone() const {
    return new vask_error(*this);
}

vask_error_code_t vask_error::get_code() const {
    return code;
}

void vask_error::set_code(vask_error_code_t new_code) {
    code = new_code;
}
