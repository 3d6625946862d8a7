// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef PUBLISHED_VALUE_H
#define PUBLISHED_VALUE_H

#include <string>

/** A text in shared memory, for programs that do not want to use the bus. It ends with this
 *  object. */
class published_value {
public:
    /** @param name  "/name" of the shared memory */
    explicit published_value(const std::string& name) : m_name(name) {}
    ~published_value();
    published_value(const published_value&) = delete;
    published_value& operator=(const published_value&) = delete;

    /** Replaces the text as a whole, terminator included. */
    void publish(const std::string& text);

private:
    const std::string m_name;
};

#endif
