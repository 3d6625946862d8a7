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
typedef NPError (*NPP_NewProcPtr)(NPMIMEType type, NPP npp, uint16_t mode, int16_t argc,
                                  char* argn[], char* argv[], NPSavedData* saved);
typedef NPError (*NPP_DestroyProcPtr)(NPP npp, NPSavedData** save);
typedef NPError (*NPP_SetWindowProcPtr)(NPP npp, NPWindow* window);
typedef NPError (*NPP_NewStreamProcPtr)(NPP npp, NPMIMEType type, NPStream* stream, NPBool seekable,
                                        uint16_t* stype);
typedef NPError (*NPP_DestroyStreamProcPtr)(NPP npp, NPStream* stream, NPReason reason);
typedef void (*NPP_StreamAsFileProcPtr)(NPP npp, NPStream* stream, const char* file_name);
typedef int32_t (*NPP_WriteReadyProcPtr)(NPP npp, NPStream* stream);
typedef int32_t (*NPP_WriteProcPtr)(NPP npp, NPStream* stream, int32_t offset, int32_t len,
                                    void* buffer);
typedef void (*NPP_PrintProcPtr)(NPP npp, NPPrint* print);
typedef int16_t (*NPP_HandleEventProcPtr)(NPP npp, void* event);
typedef void (*NPP_URLNotifyProcPtr)(NPP npp, const char* url, NPReason reason, void* notify_data);
typedef NPError (*NPP_GetValueProcPtr)(NPP npp, NPPVariable variable, void* value);
typedef NPError (*NPP_SetValueProcPtr)(NPP npp, NPNVariable variable, void* value);

typedef struct _NPPluginFuncs {
    uint16_t size; /**< of the table, in bytes */
    uint16_t version;
    NPP_NewProcPtr newp;
    NPP_DestroyProcPtr destroy;
    NPP_SetWindowProcPtr setwindow;
    NPP_NewStreamProcPtr newstream;
    NPP_DestroyStreamProcPtr destroystream;
    NPP_StreamAsFileProcPtr asfile;
    NPP_WriteReadyProcPtr writeready;
    NPP_WriteProcPtr write;
    NPP_PrintProcPtr print;
    NPP_HandleEventProcPtr event;
    NPP_URLNotifyProcPtr urlnotify;
    void* javaClass;
    NPP_GetValueProcPtr getvalue;
    NPP_SetValueProcPtr setvalue;
} NPPluginFuncs;
/**@}*/

/** @name The browser's functions */
/**@{*/
typedef NPError (*NPN_GetURLProcPtr)(NPP npp, const char* url, const char* target);
typedef NPError (*NPN_PostURLProcPtr)(NPP npp, const char* url, const char* target, uint32_t len,
                                      const char* buffer, NPBool is_file);
typedef NPError (*NPN_RequestReadProcPtr)(NPStream* stream, NPByteRange* ranges);
typedef NPError (*NPN_NewStreamProcPtr)(NPP npp, NPMIMEType type, const char* target,
                                        NPStream** stream);
typedef int32_t (*NPN_WriteProcPtr)(NPP npp, NPStream* stream, int32_t len, void* buffer);
typedef NPError (*NPN_DestroyStreamProcPtr)(NPP npp, NPStream* stream, NPReason reason);
typedef void (*NPN_StatusProcPtr)(NPP npp, const char* message);
typedef const char* (*NPN_UserAgentProcPtr)(NPP npp);
typedef void* (*NPN_MemAllocProcPtr)(uint32_t size);
typedef void (*NPN_MemFreeProcPtr)(void* memory);
typedef uint32_t (*NPN_MemFlushProcPtr)(uint32_t size);
typedef void (*NPN_ReloadPluginsProcPtr)(NPBool reload_pages);
typedef void* (*NPN_GetJavaEnvProcPtr)(void);
typedef void* (*NPN_GetJavaPeerProcPtr)(NPP npp);
typedef NPError (*NPN_GetURLNotifyProcPtr)(NPP npp, const char* url, const char* target,
                                           void* notify_data);
typedef NPError (*NPN_PostURLNotifyProcPtr)(NPP npp, const char* url, const char* target,
                                            uint32_t len, const char* buffer, NPBool is_file,
                                            void* notify_data);
typedef NPError (*NPN_GetValueProcPtr)(NPP npp, NPNVariable variable, void* value);
typedef NPError (*NPN_SetValueProcPtr)(NPP npp, NPPVariable variable, void* value);
typedef void (*NPN_InvalidateRectProcPtr)(NPP npp, NPRect* rect);
typedef void (*NPN_InvalidateRegionProcPtr)(NPP npp, NPRegion region);
typedef void (*NPN_ForceRedrawProcPtr)(NPP npp);
typedef NPIdentifier (*NPN_GetStringIdentifierProcPtr)(const NPUTF8* name);
typedef void (*NPN_GetStringIdentifiersProcPtr)(const NPUTF8** names, int32_t count,
                                                NPIdentifier* identifiers);
typedef NPIdentifier (*NPN_GetIntIdentifierProcPtr)(int32_t number);
typedef bool (*NPN_IdentifierIsStringProcPtr)(NPIdentifier identifier);
typedef NPUTF8* (*NPN_UTF8FromIdentifierProcPtr)(NPIdentifier identifier);
typedef int32_t (*NPN_IntFromIdentifierProcPtr)(NPIdentifier identifier);
typedef NPObject* (*NPN_CreateObjectProcPtr)(NPP npp, NPClass* its_class);
typedef NPObject* (*NPN_RetainObjectProcPtr)(NPObject* object);
typedef void (*NPN_ReleaseObjectProcPtr)(NPObject* object);
typedef bool (*NPN_InvokeProcPtr)(NPP npp, NPObject* object, NPIdentifier name,
                                  const NPVariant* args, uint32_t arg_count, NPVariant* result);
typedef bool (*NPN_InvokeDefaultProcPtr)(NPP npp, NPObject* object, const NPVariant* args,
                                         uint32_t arg_count, NPVariant* result);
typedef bool (*NPN_EvaluateProcPtr)(NPP npp, NPObject* object, NPString* script, NPVariant* result);
typedef bool (*NPN_GetPropertyProcPtr)(NPP npp, NPObject* object, NPIdentifier name,
                                       NPVariant* result);
typedef bool (*NPN_SetPropertyProcPtr)(NPP npp, NPObject* object, NPIdentifier name,
                                       const NPVariant* value);
typedef bool (*NPN_RemovePropertyProcPtr)(NPP npp, NPObject* object, NPIdentifier name);
typedef bool (*NPN_HasPropertyProcPtr)(NPP npp, NPObject* object, NPIdentifier name);
typedef bool (*NPN_HasMethodProcPtr)(NPP npp, NPObject* object, NPIdentifier name);
typedef void (*NPN_ReleaseVariantValueProcPtr)(NPVariant* variant);
typedef void (*NPN_SetExceptionProcPtr)(NPObject* object, const NPUTF8* message);
typedef void (*NPN_PushPopupsEnabledStateProcPtr)(NPP npp, NPBool enabled);
typedef void (*NPN_PopPopupsEnabledStateProcPtr)(NPP npp);
typedef bool (*NPN_EnumerateProcPtr)(NPP npp, NPObject* object, NPIdentifier** names,
                                     uint32_t* count);
typedef void (*NPN_PluginThreadAsyncCallProcPtr)(NPP npp, void (*function)(void* data), void* data);
typedef bool (*NPN_ConstructProcPtr)(NPP npp, NPObject* object, const NPVariant* args,
                                     uint32_t arg_count, NPVariant* result);

typedef struct _NPNetscapeFuncs {
    uint16_t size; /**< of the table, in bytes */
    uint16_t version;
    NPN_GetURLProcPtr geturl;
    NPN_PostURLProcPtr posturl;
    NPN_RequestReadProcPtr requestread;
    NPN_NewStreamProcPtr newstream;
    NPN_WriteProcPtr write;
    NPN_DestroyStreamProcPtr destroystream;
    NPN_StatusProcPtr status;
    NPN_UserAgentProcPtr uagent;
    NPN_MemAllocProcPtr memalloc;
    NPN_MemFreeProcPtr memfree;
    NPN_MemFlushProcPtr memflush;
    NPN_ReloadPluginsProcPtr reloadplugins;
    NPN_GetJavaEnvProcPtr getJavaEnv;
    NPN_GetJavaPeerProcPtr getJavaPeer;
    NPN_GetURLNotifyProcPtr geturlnotify;
    NPN_PostURLNotifyProcPtr posturlnotify;
    NPN_GetValueProcPtr getvalue;
    NPN_SetValueProcPtr setvalue;
    NPN_InvalidateRectProcPtr invalidaterect;
    NPN_InvalidateRegionProcPtr invalidateregion;
    NPN_ForceRedrawProcPtr forceredraw;
    NPN_GetStringIdentifierProcPtr getstringidentifier;
    NPN_GetStringIdentifiersProcPtr getstringidentifiers;
    NPN_GetIntIdentifierProcPtr getintidentifier;
    NPN_IdentifierIsStringProcPtr identifierisstring;
    NPN_UTF8FromIdentifierProcPtr utf8fromidentifier;
    NPN_IntFromIdentifierProcPtr intfromidentifier;
    NPN_CreateObjectProcPtr createobject;
    NPN_RetainObjectProcPtr retainobject;
    NPN_ReleaseObjectProcPtr releaseobject;
    NPN_InvokeProcPtr invoke;
    NPN_InvokeDefaultProcPtr invokeDefault;
    NPN_EvaluateProcPtr evaluate;
    NPN_GetPropertyProcPtr getproperty;
    NPN_SetPropertyProcPtr setproperty;
    NPN_RemovePropertyProcPtr removeproperty;
    NPN_HasPropertyProcPtr hasproperty;
    NPN_HasMethodProcPtr hasmethod;
    NPN_ReleaseVariantValueProcPtr releasevariantvalue;
    NPN_SetExceptionProcPtr setexception;
    NPN_PushPopupsEnabledStateProcPtr pushpopupsenabledstate;
    NPN_PopPopupsEnabledStateProcPtr poppopupsenabledstate;
    NPN_EnumerateProcPtr enumerate;
    NPN_PluginThreadAsyncCallProcPtr pluginthreadasynccall;
    NPN_ConstructProcPtr construct;
} NPNetscapeFuncs;
/**@}*/

/** @name Entry points of a plug-in's shared object
 *  NP_GetMIMEDescription belongs to them but is not declared: whether its text is constant depends
 *  on whom you ask, and the browser looks it up by its name alone.
 */
/**@{*/
NP_EXPORT(NPError) NP_Initialize(NPNetscapeFuncs* browser, NPPluginFuncs* plugin);
NP_EXPORT(NPError) NP_GetValue(void* future, NPPVariable variable, void* value);
NP_EXPORT(NPError) NP_Shutdown(void);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif
