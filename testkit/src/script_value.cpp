// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/script_value.h"

#include <cstring>

namespace vask_test {

script_value value_of(const NPVariant& variant) {
    switch (variant.type) {
        case NPVariantType_Void:
            return std::monostate();
        case NPVariantType_Null:
            return script_null();
        case NPVariantType_Bool:
            return NPVARIANT_TO_BOOLEAN(variant);
        case NPVariantType_Int32:
            return NPVARIANT_TO_INT32(variant);
        case NPVariantType_Double:
            return NPVARIANT_TO_DOUBLE(variant);
        case NPVariantType_String: {
            const NPString& text = NPVARIANT_TO_STRING(variant);
            return std::string(text.UTF8Characters, text.UTF8Length);
        }
        case NPVariantType_Object:
            return NPVARIANT_TO_OBJECT(variant);
    }
    return std::monostate();
}

script_arguments::script_arguments(const std::vector<script_value>& values) {
    for (const script_value& value : values) {
        m_variants.push_back(variant_of(value));
    }
}

NPVariant script_arguments::variant_of(const script_value& value) {
    NPVariant variant;
    VOID_TO_NPVARIANT(variant);
    if (std::holds_alternative<script_null>(value)) {
        NULL_TO_NPVARIANT(variant);
    } else if (const bool* boolean = std::get_if<bool>(&value)) {
        BOOLEAN_TO_NPVARIANT(*boolean, variant);
    } else if (const int* number = std::get_if<int>(&value)) {
        INT32_TO_NPVARIANT(*number, variant);
    } else if (const double* real = std::get_if<double>(&value)) {
        DOUBLE_TO_NPVARIANT(*real, variant);
    } else if (const std::string* text = std::get_if<std::string>(&value)) {
        m_texts.emplace_back(new char[text->size()]);
        std::memcpy(m_texts.back().get(), text->data(), text->size());
        STRINGN_TO_NPVARIANT(m_texts.back().get(), text->size(), variant);
    } else if (NPObject* const* object = std::get_if<NPObject*>(&value)) {
        OBJECT_TO_NPVARIANT(*object, variant);
    }
    return variant;
}

}  // namespace vask_test
