// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdio.h>
#include <vask_script.h>

class page_object : public vask_script {
public:
    page_object() : vask_script("page_object") { add_jscb_func("tick"); }
};

NPVariant as_variant(NPObject* function) {
    NPVariant variant;
    OBJECT_TO_NPVARIANT(function, variant);
    return variant;
}

int main() {
    vask_np_base::NPNFuncs.retainobject = [](NPObject* object) {
        return ++object->referenceCount, object;
    };
    vask_np_base::NPNFuncs.releaseobject = [](NPObject* object) { --object->referenceCount; };
    NPObject added = {nullptr, 1}, given = {nullptr, 1};
    NPVariant name;
    STRINGZ_TO_NPVARIANT("tick", name);
    const NPVariant add[] = {name, as_variant(&added)}, del[] = {name, as_variant(&given)};
    page_object object;
    object.add_jscb_request(add, 2, nullptr);
    object.del_jscb_request(del, 2, nullptr);
    printf("added: %u, given: %u\n", added.referenceCount, given.referenceCount);
}
