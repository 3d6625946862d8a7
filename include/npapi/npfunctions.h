/* SPDX-FileCopyrightText: 2026 The libvask authors */
/* SPDX-License-Identifier: MIT */

#ifndef NPAPI_NPFUNCTIONS_H
#define NPAPI_NPFUNCTIONS_H

/**
 * @file
 * @brief The two tables through which browser and plug-in reach each other's functions, and the
 *        entry points of a plug-in's shared object.
 *
 * A newer browser's table goes on behind the last entry of this one: a plug-in copies as many bytes
 * as both have, going by the size field.
 */

#include "npapi.h"
#include "npruntime.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @name The plug-in's functions */
/**@{*/
/** NPP_New() */
typedef NPError (*NPP_NewProcPtr)(NPMIMEType type, NPP npp, uint16_t mode, int16_t argc,
                                  char* argn[], char* argv[], NPSavedData* saved);
/** NPP_Destroy() */
typedef NPError (*NPP_DestroyProcPtr)(NPP npp, NPSavedData** save);
/** NPP_SetWindow() */
typedef NPError (*NPP_SetWindowProcPtr)(NPP npp, NPWindow* window);
/** NPP_NewStream() */
typedef NPError (*NPP_NewStreamProcPtr)(NPP npp, NPMIMEType type, NPStream* stream, NPBool seekable,
                                        uint16_t* stype);
/** NPP_DestroyStream() */
typedef NPError (*NPP_DestroyStreamProcPtr)(NPP npp, NPStream* stream, NPReason reason);
/** NPP_StreamAsFile() */
typedef void (*NPP_StreamAsFileProcPtr)(NPP npp, NPStream* stream, const char* file_name);
/** NPP_WriteReady() */
typedef int32_t (*NPP_WriteReadyProcPtr)(NPP npp, NPStream* stream);
/** NPP_Write() */
typedef int32_t (*NPP_WriteProcPtr)(NPP npp, NPStream* stream, int32_t offset, int32_t len,
                                    void* buffer);
/** NPP_Print() */
typedef void (*NPP_PrintProcPtr)(NPP npp, NPPrint* print);
/** NPP_HandleEvent() */
typedef int16_t (*NPP_HandleEventProcPtr)(NPP npp, void* event);
/** NPP_URLNotify() */
typedef void (*NPP_URLNotifyProcPtr)(NPP npp, const char* url, NPReason reason, void* notify_data);
/** NPP_GetValue() */
typedef NPError (*NPP_GetValueProcPtr)(NPP npp, NPPVariable variable, void* value);
/** NPP_SetValue() */
typedef NPError (*NPP_SetValueProcPtr)(NPP npp, NPNVariable variable, void* value);

/** The functions of a plug-in, filled by its NP_Initialize. */
typedef struct _NPPluginFuncs {
    uint16_t size;                  /**< of the table, in bytes */
    uint16_t version;               /**< major number in the high byte, minor one in the low byte */
    NPP_NewProcPtr newp;            /**< NPP_New() */
    NPP_DestroyProcPtr destroy;     /**< NPP_Destroy() */
    NPP_SetWindowProcPtr setwindow; /**< NPP_SetWindow() */
    NPP_NewStreamProcPtr newstream; /**< NPP_NewStream() */
    NPP_DestroyStreamProcPtr destroystream; /**< NPP_DestroyStream() */
    NPP_StreamAsFileProcPtr asfile;         /**< NPP_StreamAsFile() */
    NPP_WriteReadyProcPtr writeready;       /**< NPP_WriteReady() */
    NPP_WriteProcPtr write;                 /**< NPP_Write() */
    NPP_PrintProcPtr print;                 /**< NPP_Print() */
    NPP_HandleEventProcPtr event;           /**< NPP_HandleEvent() */
    NPP_URLNotifyProcPtr urlnotify;         /**< NPP_URLNotify() */
    void* javaClass;                        /**< not used any more */
    NPP_GetValueProcPtr getvalue;           /**< NPP_GetValue() */
    NPP_SetValueProcPtr setvalue;           /**< NPP_SetValue() */
} NPPluginFuncs;
/**@}*/

/** @name The browser's functions */
/**@{*/
/** NPN_GetURL() */
typedef NPError (*NPN_GetURLProcPtr)(NPP npp, const char* url, const char* target);
/** NPN_PostURL() */
typedef NPError (*NPN_PostURLProcPtr)(NPP npp, const char* url, const char* target, uint32_t len,
                                      const char* buffer, NPBool is_file);
/** NPN_RequestRead() */
typedef NPError (*NPN_RequestReadProcPtr)(NPStream* stream, NPByteRange* ranges);
/** NPN_NewStream() */
typedef NPError (*NPN_NewStreamProcPtr)(NPP npp, NPMIMEType type, const char* target,
                                        NPStream** stream);
/** NPN_Write() */
typedef int32_t (*NPN_WriteProcPtr)(NPP npp, NPStream* stream, int32_t len, void* buffer);
/** NPN_DestroyStream() */
typedef NPError (*NPN_DestroyStreamProcPtr)(NPP npp, NPStream* stream, NPReason reason);
/** NPN_Status() */
typedef void (*NPN_StatusProcPtr)(NPP npp, const char* message);
/** NPN_UserAgent() */
typedef const char* (*NPN_UserAgentProcPtr)(NPP npp);
/** NPN_MemAlloc() */
typedef void* (*NPN_MemAllocProcPtr)(uint32_t size);
/** NPN_MemFree() */
typedef void (*NPN_MemFreeProcPtr)(void* memory);
/** NPN_MemFlush() */
typedef uint32_t (*NPN_MemFlushProcPtr)(uint32_t size);
/** NPN_ReloadPlugins() */
typedef void (*NPN_ReloadPluginsProcPtr)(NPBool reload_pages);
/** NPN_GetJavaEnv() */
typedef void* (*NPN_GetJavaEnvProcPtr)(void);
/** NPN_GetJavaPeer() */
typedef void* (*NPN_GetJavaPeerProcPtr)(NPP npp);
/** NPN_GetURLNotify() */
typedef NPError (*NPN_GetURLNotifyProcPtr)(NPP npp, const char* url, const char* target,
                                           void* notify_data);
/** NPN_PostURLNotify() */
typedef NPError (*NPN_PostURLNotifyProcPtr)(NPP npp, const char* url, const char* target,
                                            uint32_t len, const char* buffer, NPBool is_file,
                                            void* notify_data);
/** NPN_GetValue() */
typedef NPError (*NPN_GetValueProcPtr)(NPP npp, NPNVariable variable, void* value);
/** NPN_SetValue() */
typedef NPError (*NPN_SetValueProcPtr)(NPP npp, NPPVariable variable, void* value);
/** NPN_InvalidateRect() */
typedef void (*NPN_InvalidateRectProcPtr)(NPP npp, NPRect* rect);
/** NPN_InvalidateRegion() */
typedef void (*NPN_InvalidateRegionProcPtr)(NPP npp, NPRegion region);
/** NPN_ForceRedraw() */
typedef void (*NPN_ForceRedrawProcPtr)(NPP npp);
/** NPN_GetStringIdentifier() */
typedef NPIdentifier (*NPN_GetStringIdentifierProcPtr)(const NPUTF8* name);
/** NPN_GetStringIdentifiers() */
typedef void (*NPN_GetStringIdentifiersProcPtr)(const NPUTF8** names, int32_t count,
                                                NPIdentifier* identifiers);
/** NPN_GetIntIdentifier() */
typedef NPIdentifier (*NPN_GetIntIdentifierProcPtr)(int32_t number);
/** NPN_IdentifierIsString() */
typedef bool (*NPN_IdentifierIsStringProcPtr)(NPIdentifier identifier);
/** NPN_UTF8FromIdentifier() */
typedef NPUTF8* (*NPN_UTF8FromIdentifierProcPtr)(NPIdentifier identifier);
/** NPN_IntFromIdentifier() */
typedef int32_t (*NPN_IntFromIdentifierProcPtr)(NPIdentifier identifier);
/** NPN_CreateObject() */
typedef NPObject* (*NPN_CreateObjectProcPtr)(NPP npp, NPClass* its_class);
/** NPN_RetainObject() */
typedef NPObject* (*NPN_RetainObjectProcPtr)(NPObject* object);
/** NPN_ReleaseObject() */
typedef void (*NPN_ReleaseObjectProcPtr)(NPObject* object);
/** NPN_Invoke() */
typedef bool (*NPN_InvokeProcPtr)(NPP npp, NPObject* object, NPIdentifier name,
                                  const NPVariant* args, uint32_t arg_count, NPVariant* result);
/** NPN_InvokeDefault() */
typedef bool (*NPN_InvokeDefaultProcPtr)(NPP npp, NPObject* object, const NPVariant* args,
                                         uint32_t arg_count, NPVariant* result);
/** NPN_Evaluate() */
typedef bool (*NPN_EvaluateProcPtr)(NPP npp, NPObject* object, NPString* script, NPVariant* result);
/** NPN_GetProperty() */
typedef bool (*NPN_GetPropertyProcPtr)(NPP npp, NPObject* object, NPIdentifier name,
                                       NPVariant* result);
/** NPN_SetProperty() */
typedef bool (*NPN_SetPropertyProcPtr)(NPP npp, NPObject* object, NPIdentifier name,
                                       const NPVariant* value);
/** NPN_RemoveProperty() */
typedef bool (*NPN_RemovePropertyProcPtr)(NPP npp, NPObject* object, NPIdentifier name);
/** NPN_HasProperty() */
typedef bool (*NPN_HasPropertyProcPtr)(NPP npp, NPObject* object, NPIdentifier name);
/** NPN_HasMethod() */
typedef bool (*NPN_HasMethodProcPtr)(NPP npp, NPObject* object, NPIdentifier name);
/** NPN_ReleaseVariantValue() */
typedef void (*NPN_ReleaseVariantValueProcPtr)(NPVariant* variant);
/** NPN_SetException() */
typedef void (*NPN_SetExceptionProcPtr)(NPObject* object, const NPUTF8* message);
/** NPN_PushPopupsEnabledState() */
typedef void (*NPN_PushPopupsEnabledStateProcPtr)(NPP npp, NPBool enabled);
/** NPN_PopPopupsEnabledState() */
typedef void (*NPN_PopPopupsEnabledStateProcPtr)(NPP npp);
/** NPN_Enumerate() */
typedef bool (*NPN_EnumerateProcPtr)(NPP npp, NPObject* object, NPIdentifier** names,
                                     uint32_t* count);
/** NPN_PluginThreadAsyncCall() */
typedef void (*NPN_PluginThreadAsyncCallProcPtr)(NPP npp, void (*function)(void* data), void* data);
/** NPN_Construct() */
typedef bool (*NPN_ConstructProcPtr)(NPP npp, NPObject* object, const NPVariant* args,
                                     uint32_t arg_count, NPVariant* result);

/** The functions of a browser, valid from NP_Initialize on. An entry may be null. */
typedef struct _NPNetscapeFuncs {
    uint16_t size;              /**< of the table, in bytes */
    uint16_t version;           /**< major number in the high byte, minor one in the low byte */
    NPN_GetURLProcPtr geturl;   /**< NPN_GetURL() */
    NPN_PostURLProcPtr posturl; /**< NPN_PostURL() */
    NPN_RequestReadProcPtr requestread;                       /**< NPN_RequestRead() */
    NPN_NewStreamProcPtr newstream;                           /**< NPN_NewStream() */
    NPN_WriteProcPtr write;                                   /**< NPN_Write() */
    NPN_DestroyStreamProcPtr destroystream;                   /**< NPN_DestroyStream() */
    NPN_StatusProcPtr status;                                 /**< NPN_Status() */
    NPN_UserAgentProcPtr uagent;                              /**< NPN_UserAgent() */
    NPN_MemAllocProcPtr memalloc;                             /**< NPN_MemAlloc() */
    NPN_MemFreeProcPtr memfree;                               /**< NPN_MemFree() */
    NPN_MemFlushProcPtr memflush;                             /**< NPN_MemFlush() */
    NPN_ReloadPluginsProcPtr reloadplugins;                   /**< NPN_ReloadPlugins() */
    NPN_GetJavaEnvProcPtr getJavaEnv;                         /**< NPN_GetJavaEnv() */
    NPN_GetJavaPeerProcPtr getJavaPeer;                       /**< NPN_GetJavaPeer() */
    NPN_GetURLNotifyProcPtr geturlnotify;                     /**< NPN_GetURLNotify() */
    NPN_PostURLNotifyProcPtr posturlnotify;                   /**< NPN_PostURLNotify() */
    NPN_GetValueProcPtr getvalue;                             /**< NPN_GetValue() */
    NPN_SetValueProcPtr setvalue;                             /**< NPN_SetValue() */
    NPN_InvalidateRectProcPtr invalidaterect;                 /**< NPN_InvalidateRect() */
    NPN_InvalidateRegionProcPtr invalidateregion;             /**< NPN_InvalidateRegion() */
    NPN_ForceRedrawProcPtr forceredraw;                       /**< NPN_ForceRedraw() */
    NPN_GetStringIdentifierProcPtr getstringidentifier;       /**< NPN_GetStringIdentifier() */
    NPN_GetStringIdentifiersProcPtr getstringidentifiers;     /**< NPN_GetStringIdentifiers() */
    NPN_GetIntIdentifierProcPtr getintidentifier;             /**< NPN_GetIntIdentifier() */
    NPN_IdentifierIsStringProcPtr identifierisstring;         /**< NPN_IdentifierIsString() */
    NPN_UTF8FromIdentifierProcPtr utf8fromidentifier;         /**< NPN_UTF8FromIdentifier() */
    NPN_IntFromIdentifierProcPtr intfromidentifier;           /**< NPN_IntFromIdentifier() */
    NPN_CreateObjectProcPtr createobject;                     /**< NPN_CreateObject() */
    NPN_RetainObjectProcPtr retainobject;                     /**< NPN_RetainObject() */
    NPN_ReleaseObjectProcPtr releaseobject;                   /**< NPN_ReleaseObject() */
    NPN_InvokeProcPtr invoke;                                 /**< NPN_Invoke() */
    NPN_InvokeDefaultProcPtr invokeDefault;                   /**< NPN_InvokeDefault() */
    NPN_EvaluateProcPtr evaluate;                             /**< NPN_Evaluate() */
    NPN_GetPropertyProcPtr getproperty;                       /**< NPN_GetProperty() */
    NPN_SetPropertyProcPtr setproperty;                       /**< NPN_SetProperty() */
    NPN_RemovePropertyProcPtr removeproperty;                 /**< NPN_RemoveProperty() */
    NPN_HasPropertyProcPtr hasproperty;                       /**< NPN_HasProperty() */
    NPN_HasMethodProcPtr hasmethod;                           /**< NPN_HasMethod() */
    NPN_ReleaseVariantValueProcPtr releasevariantvalue;       /**< NPN_ReleaseVariantValue() */
    NPN_SetExceptionProcPtr setexception;                     /**< NPN_SetException() */
    NPN_PushPopupsEnabledStateProcPtr pushpopupsenabledstate; /**< NPN_PushPopupsEnabledState() */
    NPN_PopPopupsEnabledStateProcPtr poppopupsenabledstate;   /**< NPN_PopPopupsEnabledState() */
    NPN_EnumerateProcPtr enumerate;                           /**< NPN_Enumerate() */
    NPN_PluginThreadAsyncCallProcPtr pluginthreadasynccall;   /**< NPN_PluginThreadAsyncCall() */
    NPN_ConstructProcPtr construct;                           /**< NPN_Construct() */
} NPNetscapeFuncs;
/**@}*/

/** @name Entry points of a plug-in's shared object
 *  NP_GetMIMEDescription belongs to them but is not declared: whether its text is constant depends
 *  on whom you ask, and the browser looks it up by its name alone.
 */
/**@{*/
/**
 * The plug-in has been loaded.
 *
 * @param browser  the browser's functions, to be copied
 * @param plugin   receives the plug-in's functions
 * @return NPERR_NO_ERROR, or why the plug-in cannot be used
 */
NP_EXPORT(NPError) NP_Initialize(NPNetscapeFuncs* browser, NPPluginFuncs* plugin);

/**
 * Asks for the plug-in's name or description. May come before NP_Initialize.
 *
 * @param future    not used
 * @param variable  NPPVpluginNameString or NPPVpluginDescriptionString
 * @param value     receives a text, which stays the plug-in's
 * @return NPERR_NO_ERROR, or NPERR_INVALID_PARAM
 */
NP_EXPORT(NPError) NP_GetValue(void* future, NPPVariable variable, void* value);

/** The plug-in is about to be unloaded. @return not looked at */
NP_EXPORT(NPError) NP_Shutdown(void);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif
