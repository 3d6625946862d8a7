// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_np_base.h"

#include <glib.h>
#include <string.h>

#include <iterator>
#include <stdexcept>

#include "foundation/malloced_text.h"
#include "foundation/message_line.h"

namespace {

const char unknown[] = "Unknown";

// Indexed by the variable's number. The misspelling of number 11 is part of the diagnostics.
const char* const variable_names[] = {unknown,
                                      "NPPVpluginNameString",
                                      "NPPVpluginDescriptionString",
                                      "NPPVpluginWindowBool",
                                      "NPPVpluginTransparentBool",
                                      "NPPVjavaClass",
                                      "NPPVpluginWindowSize",
                                      "NPPVpluginTimerInterval",
                                      unknown,
                                      unknown,
                                      "NPPVpluginScriptableInstance",
                                      "NPPVpluginSriptableIID",
                                      "NPPVjavascriptPushCallerBool",
                                      "NPPVpluginKeepLibraryInMemory",
                                      "NPPVpluginNeedsXEmbed",
                                      "NPPVpluginScriptableNPObject",
                                      "NPPVformValue"};

// Indexed by the type. The misspelling of number 0 is part of the diagnostics.
const char* const variant_type_names[] = {
    "NPVarintType_Void",    "NPVariantType_Null",   "NPVariantType_Bool",  "NPVariantType_Int32",
    "NPVariantType_Double", "NPVariantType_String", "NPVariantType_Object"};

template <std::size_t Count>
const char* name_at(const char* const (&names)[Count], unsigned int index) {
    return index < Count ? names[index] : unknown;
}

char* directory_of(const NPVariant& uri) {
    // A page may have put a number or an object where the browser has a text.
    if (!NPVARIANT_IS_STRING(uri)) {
        return nullptr;
    }
    const NPString& text = NPVARIANT_TO_STRING(uri);
    if (text.UTF8Characters == nullptr) {
        return nullptr;
    }
    const void* last_slash = memrchr(text.UTF8Characters, '/', text.UTF8Length);
    if (last_slash == nullptr) {
        return nullptr;
    }
    const std::ptrdiff_t length = static_cast<const char*>(last_slash) - text.UTF8Characters + 1;
    return g_strndup(text.UTF8Characters, static_cast<gsize>(length));
}

[[noreturn]] void fail_without_base_uri() {
    throw std::logic_error("there is no base URI");
}

}  // namespace

NPNetscapeFuncs vask_np_base::NPNFuncs;
bool vask_np_base::setNPNFuncs = false;

vask_np_base::vask_np_base(const char* name) {
    obj_name = name;
}

vask_np_base::~vask_np_base() {
    vask_p(VASK_P_DBG, "vask_np_base::~vask_np_base\n");
}

const char* vask_np_base::NPPVariable_to_type_descr(NPPVariable variable) const {
    return name_at(variable_names, static_cast<unsigned int>(variable));
}

const char* vask_np_base::get_NPVariant_type(const NPVariant* variant) const {
    return variant != nullptr
               ? name_at(variant_type_names, static_cast<unsigned int>(variant->type))
               : unknown;
}

std::string vask_np_base::NPVariant_to_string(const NPVariant* variant) const {
    if (variant == nullptr || NPVARIANT_TO_STRING(*variant).UTF8Characters == nullptr) {
        return std::string();
    }
    const NPString& text = NPVARIANT_TO_STRING(*variant);
    return std::string(text.UTF8Characters, text.UTF8Length);
}

char* vask_np_base::anal_base_uri(const NPVariant* uri) const {
    return uri != nullptr ? directory_of(*uri) : nullptr;
}

std::string vask_np_base::get_baseURI(NPP npp) {
    // Never released: this reference is meant to stay.
    NPObject* element = nullptr;
    if (NPN_GetValue(npp, NPNVPluginElementNPObject, &element) != NPERR_NO_ERROR ||
        element == nullptr) {
        vask_p(VASK_P_ERR, "Failed to get our DOM Element NPObject");
        fail_without_base_uri();
    }

    // A page may have put a function of its own in the property's place, which may do anything, up
    // to having this object deleted.
    const char* const name = obj_name;
    const vask_object* const address = this;
    NPVariant uri;
    VOID_TO_NPVARIANT(uri);
    if (!NPNFuncs.getproperty(npp, element, NPNFuncs.getstringidentifier("baseURI"), &uri)) {
        print_message_of(name, address, VASK_P_ERR, "Failed to get the base URI");
        fail_without_base_uri();
    }
    const unique_malloced_text directory(directory_of(uri));
    NPNFuncs.releasevariantvalue(&uri);
    if (directory == nullptr) {
        fail_without_base_uri();
    }
    return std::string(directory.get());
}
