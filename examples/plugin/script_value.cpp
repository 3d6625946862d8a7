// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "script_value.h"

#include <vask_np_base.h>

#include <sstream>

NPVariant borrowed(const std::string& text) {
    NPVariant value;
    STRINGN_TO_NPVARIANT(text.data(), text.size(), value);
    return value;
}

bool store_text(const std::string& text, NPVariant* result) {
    // Not with malloc(): the browser frees it, and it may have an allocator of its own. An empty
    // text needs its memory as well.
    void* copy = vask_np_base::NPNFuncs.memalloc(static_cast<uint32_t>(text.size() + 1));
    if (copy == nullptr) {
        return false;
    }
    memcpy(copy, text.c_str(), text.size() + 1);
    STRINGN_TO_NPVARIANT(static_cast<NPUTF8*>(copy), text.size(), *result);
    return true;
}

bool store_value(const NPVariant& value, NPVariant* result) {
    if (NPVARIANT_IS_STRING(value)) {
        const NPString& text = NPVARIANT_TO_STRING(value);
        return store_text(std::string(text.UTF8Characters, text.UTF8Length), result);
    }
    if (NPVARIANT_IS_OBJECT(value)) {
        vask_np_base::NPNFuncs.retainobject(NPVARIANT_TO_OBJECT(value));
    }
    *result = value;
    return true;
}

std::string describe_value(const NPVariant& value) {
    std::ostringstream text;
    switch (value.type) {
        case NPVariantType_Void:
            text << "void";
            break;
        case NPVariantType_Null:
            text << "null";
            break;
        case NPVariantType_Bool:
            text << "bool " << (NPVARIANT_TO_BOOLEAN(value) ? "true" : "false");
            break;
        case NPVariantType_Int32:
            text << "int32 " << NPVARIANT_TO_INT32(value);
            break;
        case NPVariantType_Double:
            text << "double " << NPVARIANT_TO_DOUBLE(value);
            break;
        case NPVariantType_String:
            text << "string ";
            text.write(NPVARIANT_TO_STRING(value).UTF8Characters,
                       NPVARIANT_TO_STRING(value).UTF8Length);
            break;
        case NPVariantType_Object:
            text << "object";
            break;
    }
    return text.str();
}
