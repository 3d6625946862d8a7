// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SCRIPT_VALUE_H
#define VASK_TEST_SCRIPT_VALUE_H

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "npapi/npruntime.h"

namespace vask_test {

struct script_null {
    bool operator==(const script_null&) const { return true; }
};

/** A value of a page's script: nothing, null, bool, int, double, text or an object. It holds no
 *  reference to the object. */
using script_value =
    std::variant<std::monostate, script_null, bool, int, double, std::string, NPObject*>;

/** Copies what a variant holds. */
script_value value_of(const NPVariant& variant);

/** Variants for a call, valid while the object lives. Their texts are exactly as long as they say,
 *  without a terminator, so that the address sanitizer catches a read behind the end. */
class script_arguments {
public:
    explicit script_arguments(const std::vector<script_value>& values);
    script_arguments(std::initializer_list<script_value> values)
        : script_arguments(std::vector<script_value>(values)) {}

    const NPVariant* data() const { return m_variants.data(); }
    NPVariant* data() { return m_variants.data(); }
    uint32_t size() const { return static_cast<uint32_t>(m_variants.size()); }

private:
    NPVariant variant_of(const script_value& value);

    std::vector<std::unique_ptr<char[]>> m_texts;
    std::vector<NPVariant> m_variants;
};

}  // namespace vask_test

#endif
