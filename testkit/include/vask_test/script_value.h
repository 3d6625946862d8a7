// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SCRIPT_VALUE_H
#define VASK_TEST_SCRIPT_VALUE_H

/**
 * @file
 * Values of a page's script, for the fake browser.
 * @since 2.0
 */

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "npapi/npruntime.h"

namespace vask_test {

/** The null of a page's script. */
struct script_null {
    /** @return true, since there is only one */
    bool operator==(const script_null&) const { return true; }
};

/** A value of a page's script: nothing, null, bool, int, double, text or an object. It holds no
 *  reference to the object. */
using script_value =
    std::variant<std::monostate, script_null, bool, int, double, std::string, NPObject*>;

/** Copies what a variant holds.
 *  @param variant any
 *  @return the same, without a reference to an object */
script_value value_of(const NPVariant& variant);

/** Variants for a call, valid while the object lives. Their texts are exactly as long as they say,
 *  without a terminator, so that the address sanitizer catches a read behind the end. */
class script_arguments {
public:
    /** @param values to make variants of */
    explicit script_arguments(const std::vector<script_value>& values);
    /** @param values to make variants of */
    script_arguments(std::initializer_list<script_value> values)
        : script_arguments(std::vector<script_value>(values)) {}

    /** @return the first of them */
    const NPVariant* data() const { return m_variants.data(); }
    /** @return the first of them */
    NPVariant* data() { return m_variants.data(); }
    /** @return how many there are */
    uint32_t size() const { return static_cast<uint32_t>(m_variants.size()); }

private:
    NPVariant variant_of(const script_value& value);

    std::vector<std::unique_ptr<char[]>> m_texts;
    std::vector<NPVariant> m_variants;
};

}  // namespace vask_test

#endif
