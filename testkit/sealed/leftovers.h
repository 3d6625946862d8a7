// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SEALED_LEFTOVERS_H
#define VASK_TEST_SEALED_LEFTOVERS_H

#include <map>
#include <string>

#include "options.h"

namespace vask_test {

/** Counts what a program has left behind and was not allowed to, and names each. */
class leftovers {
public:
    explicit leftovers(const options& wanted) : m_wanted(wanted) {}

    /** Counts it unless its name may be left, and shows it by its description. */
    void add(leftover_kind kind, const std::string& name, const std::string& description);

    bool none() const { return m_counts.empty(); }

    /** Says how many there are. */
    void sum_up() const;

private:
    const options& m_wanted;
    std::map<leftover_kind, int> m_counts;
};

/** One line on standard error. */
void complain(const std::string& text);

}  // namespace vask_test

#endif
