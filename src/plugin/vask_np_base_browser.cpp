// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_np_base.h"

NPError vask_np_base::GetURL(NPP npp, const char* url, const char* target) {
    return NPNFuncs.geturl(npp, url, target);
}

NPError vask_np_base::NPN_PostURL(NPP npp, const char* url, const char* target, uint32_t len,
                                  const char* buffer, NPBool is_file) {
    return NPNFuncs.posturl(npp, url, target, len, buffer, is_file);
}

NPError vask_np_base::NPN_RequestRead(NPStream* stream, NPByteRange* ranges) {
    return NPNFuncs.requestread(stream, ranges);
}

NPError vask_np_base::NPN_NewStream(NPP npp, NPMIMEType type, const char* target,
                                    NPStream** stream) {
    return NPNFuncs.newstream(npp, type, target, stream);
}

int32_t vask_np_base::NPN_WriteUPP(NPP npp, NPStream* stream, int32_t len, void* buffer) {
    return NPNFuncs.write(npp, stream, len, buffer);
}

NPError vask_np_base::NPN_DestroyStream(NPP npp, NPStream* stream, NPReason reason) {
    return NPNFuncs.destroystream(npp, stream, reason);
}

void vask_np_base::NPN_Status(NPP npp, const char* message) {
    NPNFuncs.status(npp, message);
}

const char* vask_np_base::NPN_UserAgent(NPP npp) {
    return NPNFuncs.uagent(npp);
}

void* vask_np_base::NPN_MemAlloc(uint32_t size) {
    return NPNFuncs.memalloc(size);
}

void vask_np_base::NPN_MemFree(void* memory) {
    NPNFuncs.memfree(memory);
}

uint32_t vask_np_base::NPN_MemFlush(uint32_t size) {
    return NPNFuncs.memflush(size);
}

void vask_np_base::NPN_ReloadPlugins(NPBool reload_pages) {
    NPNFuncs.reloadplugins(reload_pages);
}

void* vask_np_base::NPN_GetJavaEnv() {
    return NPNFuncs.getJavaEnv();
}

void* vask_np_base::NPN_GetJavaPeer(NPP npp) {
    return NPNFuncs.getJavaPeer(npp);
}

NPError vask_np_base::NPN_GetURLNotify(NPP npp, const char* url, const char* target,
                                       void* notify_data) {
    return NPNFuncs.geturlnotify(npp, url, target, notify_data);
}

NPError vask_np_base::NPN_PostURLNotify(NPP npp, const char* url, const char* target, uint32_t len,
                                        const char* buffer, NPBool is_file, void* notify_data) {
    return NPNFuncs.posturlnotify(npp, url, target, len, buffer, is_file, notify_data);
}

NPError vask_np_base::NPN_GetValue(NPP npp, NPNVariable variable, void* value) {
    return NPNFuncs.getvalue(npp, variable, value);
}

NPError vask_np_base::NPN_SetValue(NPP npp, NPPVariable variable, void* value) {
    return NPNFuncs.setvalue(npp, variable, value);
}

void vask_np_base::NPN_InvalidateRect(NPP npp, NPRect* rect) {
    NPNFuncs.invalidaterect(npp, rect);
}

void vask_np_base::NPN_InvalidateRegion(NPP npp, NPRegion region) {
    NPNFuncs.invalidateregion(npp, region);
}

void vask_np_base::NPN_ForceRedraw(NPP npp) {
    NPNFuncs.forceredraw(npp);
}

NPIdentifier vask_np_base::NPN_GetStringIdentifier(const NPUTF8* name) {
    return NPNFuncs.getstringidentifier(name);
}

void vask_np_base::NPN_GetStringIdentifiers(const NPUTF8** names, int32_t count,
                                            NPIdentifier* identifiers) {
    NPNFuncs.getstringidentifiers(names, count, identifiers);
}

NPIdentifier vask_np_base::NPN_GetIntIdentifier(int32_t number) {
    return NPNFuncs.getintidentifier(number);
}

bool vask_np_base::NPN_IdentifierIsString(NPIdentifier identifier) {
    return NPNFuncs.identifierisstring(identifier);
}

NPUTF8* vask_np_base::NPN_UTF8FromIdentifier(NPIdentifier identifier) {
    return NPNFuncs.utf8fromidentifier(identifier);
}

int32_t vask_np_base::NPN_IntFromIdentifier(NPIdentifier identifier) {
    return NPNFuncs.intfromidentifier(identifier);
}

NPObject* vask_np_base::NPN_CreateObject(NPP npp, NPClass* its_class) {
    return NPNFuncs.createobject(npp, its_class);
}

NPObject* vask_np_base::NPN_RetainObject(NPObject* object) {
    return NPNFuncs.retainobject(object);
}

void vask_np_base::NPN_ReleaseObject(NPObject* object) {
    NPNFuncs.releaseobject(object);
}

bool vask_np_base::NPN_Invoke(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* args,
                              uint32_t arg_count, NPVariant* result) {
    return NPNFuncs.invoke(npp, object, name, args, arg_count, result);
}

bool vask_np_base::NPN_InvokeDefault(NPP npp, NPObject* object, const NPVariant* args,
                                     uint32_t arg_count, NPVariant* result) {
    return NPNFuncs.invokeDefault(npp, object, args, arg_count, result);
}

bool vask_np_base::NPN_Evaluate(NPP npp, NPObject* object, NPString* script, NPVariant* result) {
    return NPNFuncs.evaluate(npp, object, script, result);
}

bool vask_np_base::NPN_GetProperty(NPP npp, NPObject* object, NPIdentifier name,
                                   NPVariant* result) {
    return NPNFuncs.getproperty(npp, object, name, result);
}

bool vask_np_base::NPN_SetProperty(NPP npp, NPObject* object, NPIdentifier name,
                                   const NPVariant* value) {
    return NPNFuncs.setproperty(npp, object, name, value);
}

bool vask_np_base::NPN_RemoveProperty(NPP npp, NPObject* object, NPIdentifier name) {
    return NPNFuncs.removeproperty(npp, object, name);
}

bool vask_np_base::NPN_HasProperty(NPP npp, NPObject* object, NPIdentifier name) {
    return NPNFuncs.hasproperty(npp, object, name);
}

bool vask_np_base::NPN_HasMethod(NPP npp, NPObject* object, NPIdentifier name) {
    return NPNFuncs.hasmethod(npp, object, name);
}

void vask_np_base::NPN_ReleaseVariantValue(NPVariant* variant) {
    NPNFuncs.releasevariantvalue(variant);
}

void vask_np_base::NPN_SetException(NPObject* object, const NPUTF8* message) {
    NPNFuncs.setexception(object, message);
}

void vask_np_base::NPN_PushPopupsEnabledState(NPP npp, NPBool enabled) {
    NPNFuncs.pushpopupsenabledstate(npp, enabled);
}

void vask_np_base::NPN_PopPopupsEnabledState(NPP npp) {
    NPNFuncs.poppopupsenabledstate(npp);
}

bool vask_np_base::NPN_Enumerate(NPP npp, NPObject* object, NPIdentifier** names, uint32_t* count) {
    return NPNFuncs.enumerate(npp, object, names, count);
}

void vask_np_base::NPN_PluginThreadAsyncCall(NPP npp, void (*function)(void* data), void* data) {
    NPNFuncs.pluginthreadasynccall(npp, function, data);
}

bool vask_np_base::NPN_Construct(NPP npp, NPObject* object, const NPVariant* args,
                                 uint32_t arg_count, NPVariant* result) {
    return NPNFuncs.construct(npp, object, args, arg_count, result);
}
