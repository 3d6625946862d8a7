#ifndef NPAPI_NPAPI_H
#define NPAPI_NPAPI_H

/**
 * @file
 * @brief The browser plug-in interface on Unix with X11: constants, structures, and the functions
 *        by which browser (NPN_) and plug-in (NPP_) call each other.
 *
 * Nothing here needs the headers of X11. A source that defines MOZ_X11 gets the typed X11
 * structures instead of opaque pointers, with the same layout.
 */

#include <stdio.h>

#include "nptypes.h"

#ifdef MOZ_X11
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#endif

/** @name Version of the interface
 *  A table's version field holds the major number in its high byte, the minor one in its low byte.
 */
/**@{*/
#define NP_VERSION_MAJOR 0
#define NP_VERSION_MINOR 20

/* The minor number from which on a browser knows something. */
#define NPVERS_HAS_STREAMOUTPUT 8
#define NPVERS_HAS_NOTIFICATION 9
#define NPVERS_HAS_LIVECONNECT 9
#define NPVERS_HAS_WINDOWLESS 11
#define NPVERS_HAS_XPCONNECT_SCRIPTING 13
#define NPVERS_HAS_NPRUNTIME_SCRIPTING 14
#define NPVERS_HAS_FORM_VALUES 15
#define NPVERS_HAS_POPUPS_ENABLED_STATE 16
#define NPVERS_HAS_RESPONSE_HEADERS 17
#define NPVERS_HAS_NPOBJECT_ENUM 18
#define NPVERS_HAS_PLUGIN_THREAD_ASYNC_CALL 19
#define NPVERS_HAS_ALL_NETWORK_STREAMS 20
/**@}*/

/** @name Results of calls in both directions (NPError) */
/**@{*/
#define NPERR_BASE 0
#define NPERR_NO_ERROR (NPERR_BASE + 0)
#define NPERR_GENERIC_ERROR (NPERR_BASE + 1)
#define NPERR_INVALID_INSTANCE_ERROR (NPERR_BASE + 2)
#define NPERR_INVALID_FUNCTABLE_ERROR (NPERR_BASE + 3)
#define NPERR_MODULE_LOAD_FAILED_ERROR (NPERR_BASE + 4)
#define NPERR_OUT_OF_MEMORY_ERROR (NPERR_BASE + 5)
#define NPERR_INVALID_PLUGIN_ERROR (NPERR_BASE + 6)
#define NPERR_INVALID_PLUGIN_DIR_ERROR (NPERR_BASE + 7)
#define NPERR_INCOMPATIBLE_VERSION_ERROR (NPERR_BASE + 8)
#define NPERR_INVALID_PARAM (NPERR_BASE + 9)
#define NPERR_INVALID_URL (NPERR_BASE + 10)
#define NPERR_FILE_NOT_FOUND (NPERR_BASE + 11)
#define NPERR_NO_DATA (NPERR_BASE + 12)
#define NPERR_STREAM_NOT_SEEKABLE (NPERR_BASE + 13)
/**@}*/

/** @name Why a stream or a request has ended (NPReason) */
/**@{*/
#define NPRES_BASE 0
#define NPRES_DONE (NPRES_BASE + 0)
#define NPRES_NETWORK_ERR (NPRES_BASE + 1)
#define NPRES_USER_BREAK (NPRES_BASE + 2)
/**@}*/

/** @name How a plug-in is embedded (mode of NPP_New and of NPPrint) */
/**@{*/
#define NP_EMBED 1
#define NP_FULL 2
/**@}*/

/** @name How a plug-in wants a stream (stype of NPP_NewStream) */
/**@{*/
#define NP_NORMAL 1
#define NP_SEEK 2
#define NP_ASFILE 3
#define NP_ASFILEONLY 4
/**@}*/

/** The answer of NPP_WriteReady by a plug-in that takes whatever comes. */
#define NP_MAXREADY 0x7fffffff

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char NPBool;
typedef int16_t NPError;
typedef int16_t NPReason;
typedef char* NPMIMEType;

/** One embedded element; both sides hang their data here. */
typedef struct _NPP {
    void* pdata; /**< the plug-in's */
    void* ndata; /**< the browser's */
} NPP_t;
typedef NPP_t* NPP;

/** Data on its way from the browser to the plug-in or back. */
typedef struct _NPStream {
    void* pdata; /**< the plug-in's */
    void* ndata; /**< the browser's */
    const char* url;
    uint32_t end;          /**< length in bytes; 0 when it is not known */
    uint32_t lastmodified; /**< seconds since 1970; 0 when it is not known */
    void* notifyData;      /**< what the plug-in gave with its request; else null */
    const char* headers;   /**< of the response, from NPVERS_HAS_RESPONSE_HEADERS on; may be null */
} NPStream;

/** A part of a stream that NPN_RequestRead asks for, with further ones behind it. */
typedef struct _NPByteRange {
    int32_t offset; /**< counted from the stream's end when it is negative */
    uint32_t length;
    struct _NPByteRange* next;
} NPByteRange;

/** What an instance leaves behind for one that comes again to the same page. Both the record and
 *  its buffer are made with NPN_MemAlloc. */
typedef struct _NPSavedData {
    int32_t len;
    void* buf;
} NPSavedData;

typedef struct _NPRect {
    uint16_t top;
    uint16_t left;
    uint16_t bottom;
    uint16_t right;
} NPRect;

typedef struct _NPSize {
    int32_t width;
    int32_t height;
} NPSize;

/** An X11 region (Region). */
typedef struct _XRegion* NPRegion;

/** An X11 event (XEvent); NPP_HandleEvent is given a pointer to one. */
typedef union _XEvent NPEvent;

/** What kind of an X11 structure ws_info or platformPrint points to. */
enum { NP_SETWINDOW = 1, NP_PRINT = 2 };

/** What all X11 structures begin with. */
typedef struct {
    int32_t type;
} NPAnyCallbackStruct;

/** ws_info of an NPWindow. */
typedef struct {
    int32_t type; /**< NP_SETWINDOW */
    struct _XDisplay* display;
#ifdef MOZ_X11
    Visual* visual;
    Colormap colormap;
#else
    void* visual;
    unsigned long colormap;
#endif
    unsigned int depth;
} NPSetWindowCallbackStruct;

/** platformPrint of an NPPrint. */
typedef struct {
    int32_t type; /**< NP_PRINT */
    FILE* fp;     /**< takes PostScript */
} NPPrintCallbackStruct;

typedef enum NP_ENUM_BASE {
    NPWindowTypeWindow = 1, /**< has a native window of its own */
    NPWindowTypeDrawable    /**< windowless: draws where and when an event says */
} NPWindowType;

/** Where an instance is on its page. */
typedef struct _NPWindow {
    void* window; /**< the X window id; null for a windowless instance */
    int32_t x;
    int32_t y;
    uint32_t width;
    uint32_t height;
    NPRect clipRect;
    void* ws_info; /**< an NPSetWindowCallbackStruct, or null */
    NPWindowType type;
} NPWindow;

/** Printing a page that the plug-in fills. */
typedef struct _NPFullPrint {
    NPBool pluginPrinted; /**< set by a plug-in that has printed */
    NPBool printOne;
    void* platformPrint;
} NPFullPrint;

/** Printing an element of a page. */
typedef struct _NPEmbedPrint {
    NPWindow window;
    void* platformPrint;
} NPEmbedPrint;

typedef struct _NPPrint {
    uint16_t mode; /**< NP_FULL or NP_EMBED: which member of the union holds */
    union {
        NPFullPrint fullPrint;
        NPEmbedPrint embedPrint;
    } print;
} NPPrint;

/** What a browser asks a plug-in for, or is told by one. */
typedef enum NP_ENUM_BASE {
    NPPVpluginNameString = 1,
    NPPVpluginDescriptionString = 2,
    NPPVpluginWindowBool = 3,
    NPPVpluginTransparentBool = 4,
    NPPVjavaClass = 5,
    NPPVpluginWindowSize = 6,
    NPPVpluginTimerInterval = 7,
    NPPVpluginScriptableInstance = 10,
    NPPVpluginScriptableIID = 11,
    NPPVjavascriptPushCallerBool = 12,
    NPPVpluginKeepLibraryInMemory = 13,
    NPPVpluginNeedsXEmbed = 14,
    NPPVpluginScriptableNPObject = 15,
    NPPVformValue = 16,
    NPPVpluginUrlRequestsDisplayedBool = 17,
    NPPVpluginWantsAllNetworkStreams = 18
} NPPVariable;

/** What a plug-in asks a browser for, or is told by one. */
typedef enum NP_ENUM_BASE {
    NPNVxDisplay = 1,
    NPNVxtAppContext = 2,
    NPNVnetscapeWindow = 3,
    NPNVjavascriptEnabledBool = 4,
    NPNVasdEnabledBool = 5,
    NPNVisOfflineBool = 6,
    NPNVserviceManager = 10,
    NPNVDOMElement = 11,
    NPNVDOMWindow = 12,
    NPNVToolkit = 13,
    NPNVSupportsXEmbedBool = 14,
    NPNVWindowNPObject = 15,
    NPNVPluginElementNPObject = 16,
    NPNVSupportsWindowless = 17
} NPNVariable;

/** The answer to NPNVToolkit. */
typedef enum NP_ENUM_BASE { NPNVGtk12 = 1, NPNVGtk2 } NPNToolkitType;

/** @name What a plug-in defines */
/**@{*/
NPError NPP_Initialize(void);
void NPP_Shutdown(void);
NPError NPP_New(NPMIMEType type, NPP npp, uint16_t mode, int16_t argc, char* argn[], char* argv[],
                NPSavedData* saved);
NPError NPP_Destroy(NPP npp, NPSavedData** save);
NPError NPP_SetWindow(NPP npp, NPWindow* window);
NPError NPP_NewStream(NPP npp, NPMIMEType type, NPStream* stream, NPBool seekable, uint16_t* stype);
NPError NPP_DestroyStream(NPP npp, NPStream* stream, NPReason reason);
int32_t NPP_WriteReady(NPP npp, NPStream* stream);
int32_t NPP_Write(NPP npp, NPStream* stream, int32_t offset, int32_t len, void* buffer);
void NPP_StreamAsFile(NPP npp, NPStream* stream, const char* file_name);
void NPP_Print(NPP npp, NPPrint* print);
int16_t NPP_HandleEvent(NPP npp, void* event);
void NPP_URLNotify(NPP npp, const char* url, NPReason reason, void* notify_data);
NPError NPP_GetValue(NPP npp, NPPVariable variable, void* value);
NPError NPP_SetValue(NPP npp, NPNVariable variable, void* value);
/**@}*/

/** @name What a browser does for a plug-in
 *  A plug-in that calls these by name defines them itself, from the browser's table.
 */
/**@{*/
NPError NPN_GetURL(NPP npp, const char* url, const char* target);
NPError NPN_GetURLNotify(NPP npp, const char* url, const char* target, void* notify_data);
NPError NPN_PostURL(NPP npp, const char* url, const char* target, uint32_t len, const char* buffer,
                    NPBool is_file);
NPError NPN_PostURLNotify(NPP npp, const char* url, const char* target, uint32_t len,
                          const char* buffer, NPBool is_file, void* notify_data);
NPError NPN_RequestRead(NPStream* stream, NPByteRange* ranges);
NPError NPN_NewStream(NPP npp, NPMIMEType type, const char* target, NPStream** stream);
int32_t NPN_Write(NPP npp, NPStream* stream, int32_t len, void* buffer);
NPError NPN_DestroyStream(NPP npp, NPStream* stream, NPReason reason);
void NPN_Status(NPP npp, const char* message);
const char* NPN_UserAgent(NPP npp);
void* NPN_MemAlloc(uint32_t size);
void NPN_MemFree(void* memory);
uint32_t NPN_MemFlush(uint32_t size);
void NPN_ReloadPlugins(NPBool reload_pages);
void* NPN_GetJavaEnv(void);
void* NPN_GetJavaPeer(NPP npp);
NPError NPN_GetValue(NPP npp, NPNVariable variable, void* value);
NPError NPN_SetValue(NPP npp, NPPVariable variable, void* value);
void NPN_InvalidateRect(NPP npp, NPRect* rect);
void NPN_InvalidateRegion(NPP npp, NPRegion region);
void NPN_ForceRedraw(NPP npp);
void NPN_PushPopupsEnabledState(NPP npp, NPBool enabled);
void NPN_PopPopupsEnabledState(NPP npp);
/** May be called from any thread; @p function runs on the plug-in's. */
void NPN_PluginThreadAsyncCall(NPP npp, void (*function)(void* data), void* data);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif
