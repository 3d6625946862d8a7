/* SPDX-FileCopyrightText: 2026 The libvask authors */
/* SPDX-License-Identifier: MIT */

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
#define NP_VERSION_MAJOR 0  /**< major number of what is declared here */
#define NP_VERSION_MINOR 20 /**< minor number of what is declared here */
/**@}*/

/** @name The minor number from which on a browser knows something
 *  What comes with a number above NP_VERSION_MINOR lies behind the end of the tables declared here.
 */
/**@{*/
#define NPVERS_HAS_STREAMOUTPUT 8              /**< streams that plug-ins write */
#define NPVERS_HAS_NOTIFICATION 9              /**< NPP_URLNotify */
#define NPVERS_HAS_LIVECONNECT 9               /**< Java */
#define NPVERS_68K_HAS_LIVECONNECT 11          /**< Java on another platform */
#define NPVERS_HAS_WINDOWLESS 11               /**< windowless instances */
#define NPVERS_HAS_XPCONNECT_SCRIPTING 13      /**< the first kind of scripting */
#define NPVERS_HAS_NPRUNTIME_SCRIPTING 14      /**< NPObject */
#define NPVERS_HAS_FORM_VALUES 15              /**< NPPVformValue */
#define NPVERS_HAS_POPUPS_ENABLED_STATE 16     /**< allowing windows */
#define NPVERS_HAS_RESPONSE_HEADERS 17         /**< headers of NPStream */
#define NPVERS_HAS_NPOBJECT_ENUM 18            /**< NPN_Enumerate */
#define NPVERS_HAS_PLUGIN_THREAD_ASYNC_CALL 19 /**< calls from other threads */
#define NPVERS_HAS_ALL_NETWORK_STREAMS 20      /**< all network streams */
#define NPVERS_HAS_URL_AND_AUTH_INFO 21        /**< cookies, proxies and passwords of URLs */
#define NPVERS_HAS_PRIVATE_MODE 22             /**< browsing without traces */
#define NPVERS_MACOSX_HAS_COCOA_EVENTS 23      /**< events of another platform */
#define NPVERS_HAS_ADVANCED_KEY_HANDLING 25    /**< focus within an instance */
#define NPVERS_HAS_URL_REDIRECT_HANDLING 26    /**< asking before a redirection */
#define NPVERS_HAS_CLEAR_SITE_DATA 27          /**< forgetting what a site has stored */
/**@}*/

/** @name Results of calls in both directions (NPError) */
/**@{*/
#define NPERR_BASE 0                                      /**< the first result */
#define NPERR_NO_ERROR (NPERR_BASE + 0)                   /**< success */
#define NPERR_GENERIC_ERROR (NPERR_BASE + 1)              /**< a failure of no other kind */
#define NPERR_INVALID_INSTANCE_ERROR (NPERR_BASE + 2)     /**< there is no such instance */
#define NPERR_INVALID_FUNCTABLE_ERROR (NPERR_BASE + 3)    /**< the table is too small */
#define NPERR_MODULE_LOAD_FAILED_ERROR (NPERR_BASE + 4)   /**< something could not be loaded */
#define NPERR_OUT_OF_MEMORY_ERROR (NPERR_BASE + 5)        /**< there is no memory */
#define NPERR_INVALID_PLUGIN_ERROR (NPERR_BASE + 6)       /**< the plug-in is none */
#define NPERR_INVALID_PLUGIN_DIR_ERROR (NPERR_BASE + 7)   /**< its directory is wrong */
#define NPERR_INCOMPATIBLE_VERSION_ERROR (NPERR_BASE + 8) /**< browser and plug-in do not fit */
#define NPERR_INVALID_PARAM (NPERR_BASE + 9)              /**< an argument is wrong */
#define NPERR_INVALID_URL (NPERR_BASE + 10)               /**< the URL is none */
#define NPERR_FILE_NOT_FOUND (NPERR_BASE + 11)            /**< there is no such file */
#define NPERR_NO_DATA (NPERR_BASE + 12)                   /**< the stream has no data */
#define NPERR_STREAM_NOT_SEEKABLE (NPERR_BASE + 13)       /**< it does not come in parts */
#define NPERR_TIME_RANGE_NOT_SUPPORTED (NPERR_BASE + 14)  /**< what to forget has no time range */
#define NPERR_MALFORMED_SITE (NPERR_BASE + 15)            /**< the site is none */
/**@}*/

/** @name Why a stream or a request has ended (NPReason) */
/**@{*/
#define NPRES_BASE 0                       /**< the first reason */
#define NPRES_DONE (NPRES_BASE + 0)        /**< everything has come */
#define NPRES_NETWORK_ERR (NPRES_BASE + 1) /**< the network or a disk has failed */
#define NPRES_USER_BREAK (NPRES_BASE + 2)  /**< the user or the page has ended it */
/**@}*/

/** @name How a plug-in is embedded (mode of NPP_New and of NPPrint) */
/**@{*/
#define NP_EMBED 1 /**< an element of a page */
#define NP_FULL 2  /**< fills the window */
/**@}*/

/** @name How a plug-in wants a stream (stype of NPP_NewStream) */
/**@{*/
#define NP_NORMAL 1     /**< as data, while it comes */
#define NP_SEEK 2       /**< in parts that the plug-in asks for */
#define NP_ASFILE 3     /**< as data, and as a file in the end */
#define NP_ASFILEONLY 4 /**< as a file */
/**@}*/

/** @name The answer of NPP_HandleEvent */
/**@{*/
#define kNPEventNotHandled 0 /**< the browser may do something with the event */
#define kNPEventHandled 1    /**< the event is done with */
#define kNPEventStartIME 2   /**< a key for the input method of another platform */
/**@}*/

/** @name How a number tells which objects it is about
 *  The numbers of variables that hand over objects of C++ carry this mask, because those objects
 *  are of no use to somebody with another compiler.
 */
/**@{*/
#define NP_ABI_GCC3_MASK 0x10000000 /**< objects of GCC from version 3 on */
#if defined(__GNUC__) && __GNUC__ >= 3
#define _NP_ABI_MIXIN_FOR_GCC3 NP_ABI_GCC3_MASK /**< the part of the mask for GCC */
#else
#define _NP_ABI_MIXIN_FOR_GCC3 0 /**< the part of the mask for GCC */
#endif
#define _NP_ABI_MIXIN_FOR_MACHO 0                                      /**< of another platform */
#define NP_ABI_MASK (_NP_ABI_MIXIN_FOR_GCC3 | _NP_ABI_MIXIN_FOR_MACHO) /**< of this compiler */
/**@}*/

/** The answer of NPP_WriteReady by a plug-in that takes whatever comes. */
#define NP_MAXREADY 0x7fffffff

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char NPBool; /**< 0 or 1 */
typedef int16_t NPError;      /**< a result, NPERR_NO_ERROR and the like */
typedef int16_t NPReason;     /**< NPRES_DONE and the like */
typedef char* NPMIMEType;     /**< a terminated MIME type */

/** One embedded element; both sides hang their data here. */
typedef struct _NPP {
    void* pdata; /**< the plug-in's */
    void* ndata; /**< the browser's */
} NPP_t;
typedef NPP_t* NPP; /**< how an instance is known to both sides */

/** Data on its way from the browser to the plug-in or back. */
typedef struct _NPStream {
    void* pdata;           /**< the plug-in's */
    void* ndata;           /**< the browser's */
    const char* url;       /**< where the data comes from */
    uint32_t end;          /**< length in bytes; 0 when it is not known */
    uint32_t lastmodified; /**< seconds since 1970; 0 when it is not known */
    void* notifyData;      /**< what the plug-in gave with its request; else null */
    const char* headers;   /**< of the response, from NPVERS_HAS_RESPONSE_HEADERS on; may be null */
} NPStream;

/** A part of a stream that NPN_RequestRead asks for, with further ones behind it. */
typedef struct _NPByteRange {
    int32_t offset;            /**< counted from the stream's end when it is negative */
    uint32_t length;           /**< number of bytes */
    struct _NPByteRange* next; /**< the next part, or null */
} NPByteRange;

/** What an instance leaves behind for one that comes again to the same page. Both the record and
 *  its buffer are made with NPN_MemAlloc. */
typedef struct _NPSavedData {
    int32_t len; /**< number of bytes */
    void* buf;   /**< the data */
} NPSavedData;

/** A rectangle. */
typedef struct _NPRect {
    uint16_t top;    /**< upper edge, in pixels */
    uint16_t left;   /**< left edge, in pixels */
    uint16_t bottom; /**< lower edge, in pixels; outside */
    uint16_t right;  /**< right edge, in pixels; outside */
} NPRect;

/** A size. */
typedef struct _NPSize {
    int32_t width;  /**< in pixels */
    int32_t height; /**< in pixels */
} NPSize;

/** An X11 region (Region). */
typedef struct _XRegion* NPRegion;

/** An X11 event (XEvent); NPP_HandleEvent is given a pointer to one. */
typedef union _XEvent NPEvent;

/** What kind of an X11 structure ws_info or platformPrint points to. */
enum { NP_SETWINDOW = 1, NP_PRINT = 2 };

/** What all X11 structures begin with. */
typedef struct {
    int32_t type; /**< NP_SETWINDOW or NP_PRINT */
} NPAnyCallbackStruct;

/** ws_info of an NPWindow. */
typedef struct {
    int32_t type;              /**< NP_SETWINDOW */
    struct _XDisplay* display; /**< the X display */
#ifdef MOZ_X11
    Visual* visual;    /**< its visual */
    Colormap colormap; /**< its colours */
#else
    void* visual;           /**< its visual */
    unsigned long colormap; /**< its colours */
#endif
    unsigned int depth; /**< bits for each pixel */
} NPSetWindowCallbackStruct;

/** platformPrint of an NPPrint. */
typedef struct {
    int32_t type; /**< NP_PRINT */
    FILE* fp;     /**< takes PostScript */
} NPPrintCallbackStruct;

/** Whether an instance has a native window. */
typedef enum NP_ENUM_BASE {
    NPWindowTypeWindow = 1, /**< has a native window of its own */
    NPWindowTypeDrawable    /**< windowless: draws where and when an event says */
} NPWindowType;

/** Where an instance is on its page. */
typedef struct _NPWindow {
    void* window;      /**< the X window id; null for a windowless instance */
    int32_t x;         /**< left edge on the page, in pixels */
    int32_t y;         /**< upper edge on the page, in pixels */
    uint32_t width;    /**< in pixels */
    uint32_t height;   /**< in pixels */
    NPRect clipRect;   /**< what of it is visible */
    void* ws_info;     /**< an NPSetWindowCallbackStruct, or null */
    NPWindowType type; /**< has a window of its own, or none */
} NPWindow;

/** Printing a page that the plug-in fills. */
typedef struct _NPFullPrint {
    NPBool pluginPrinted; /**< set by a plug-in that has printed */
    NPBool printOne;      /**< whether without asking the user */
    void* platformPrint;  /**< an NPPrintCallbackStruct, or null */
} NPFullPrint;

/** Printing an element of a page. */
typedef struct _NPEmbedPrint {
    NPWindow window;     /**< where to print it */
    void* platformPrint; /**< an NPPrintCallbackStruct, or null */
} NPEmbedPrint;

/** How an instance is printed. */
typedef struct _NPPrint {
    uint16_t mode; /**< NP_FULL or NP_EMBED: which member of the union holds */
    union {
        NPFullPrint fullPrint;   /**< for NP_FULL */
        NPEmbedPrint embedPrint; /**< for NP_EMBED */
    } print;                     /**< what is printed */
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
    NPPVpluginScriptableInstance = 10, /**< without the mask that a browser's question has */
    NPPVpluginScriptableIID = 11,
    NPPVjavascriptPushCallerBool = 12,
    NPPVpluginKeepLibraryInMemory = 13,
    NPPVpluginNeedsXEmbed = 14,
    NPPVpluginScriptableNPObject = 15,
    NPPVformValue = 16,
    NPPVpluginUrlRequestsDisplayedBool = 17,
    NPPVpluginWantsAllNetworkStreams = 18,
    NPPVpluginNativeAccessibleAtkPlugId = 19,
    NPPVpluginCancelSrcStream = 20,
    NPPVsupportsAdvancedKeyHandling = 21,
    NPPVpluginUsesDOMForCursorBool = 22
} NPPVariable;

/** What a plug-in asks a browser for, or is told by one. */
typedef enum NP_ENUM_BASE {
    NPNVxDisplay = 1,
    NPNVxtAppContext = 2,
    NPNVnetscapeWindow = 3,
    NPNVjavascriptEnabledBool = 4,
    NPNVasdEnabledBool = 5,
    NPNVisOfflineBool = 6,
    NPNVserviceManager = 10 | NP_ABI_MASK,
    NPNVDOMElement = 11 | NP_ABI_MASK,
    NPNVDOMWindow = 12 | NP_ABI_MASK,
    NPNVToolkit = 13 | NP_ABI_MASK,
    NPNVSupportsXEmbedBool = 14,
    NPNVWindowNPObject = 15,
    NPNVPluginElementNPObject = 16,
    NPNVSupportsWindowless = 17,
    NPNVprivateModeBool = 18,
    NPNVsupportsAdvancedKeyHandling = 21,
    NPNVdocumentOrigin = 22
} NPNVariable;

/** What a plug-in asks a browser about a URL, or tells it, from NPVERS_HAS_URL_AND_AUTH_INFO on. */
typedef enum NP_ENUM_BASE { NPNURLVCookie = 501, NPNURLVProxy } NPNURLVariable;

/** Which way the focus moves on, from NPVERS_HAS_ADVANCED_KEY_HANDLING on. */
typedef enum NP_ENUM_BASE { NPFocusNext = 0, NPFocusPrevious = 1 } NPFocusDirection;

/** The answer to NPNVToolkit. */
typedef enum NP_ENUM_BASE { NPNVGtk12 = 1, NPNVGtk2 } NPNToolkitType;

/** @name What a plug-in defines */
/**@{*/

/** The plug-in has been loaded. @return NPERR_NO_ERROR, or why it cannot be used */
NPError NPP_Initialize(void);

/** The plug-in is about to be unloaded. */
void NPP_Shutdown(void);

/**
 * An instance is made.
 *
 * @param type   MIME type of the element
 * @param npp    the instance, whose pdata the plug-in sets
 * @param mode   NP_EMBED or NP_FULL
 * @param argc   number of attributes
 * @param argn   their names, which stay the browser's
 * @param argv   their values, which stay the browser's
 * @param saved  what an earlier instance has left; may be null
 * @return NPERR_NO_ERROR, or why there is no instance
 */
NPError NPP_New(NPMIMEType type, NPP npp, uint16_t mode, int16_t argc, char* argn[], char* argv[],
                NPSavedData* saved);

/**
 * An instance ends.
 *
 * @param npp   the instance
 * @param save  receives what is left for a later instance
 * @return not looked at
 */
NPError NPP_Destroy(NPP npp, NPSavedData** save);

/**
 * The window is there, has changed or is gone.
 *
 * @param npp     the instance
 * @param window  stays the browser's; null when it is gone
 * @return NPERR_NO_ERROR, or why it is not used
 */
NPError NPP_SetWindow(NPP npp, NPWindow* window);

/**
 * A stream begins.
 *
 * @param npp       the instance
 * @param type      MIME type of the stream
 * @param stream    stays the browser's
 * @param seekable  whether parts of it can be asked for
 * @param stype     receives how the plug-in wants it: NP_NORMAL and the like
 * @return NPERR_NO_ERROR, or why it is refused
 */
NPError NPP_NewStream(NPP npp, NPMIMEType type, NPStream* stream, NPBool seekable, uint16_t* stype);

/**
 * A stream has ended.
 *
 * @param npp     the instance
 * @param stream  stays the browser's
 * @param reason  why
 * @return not looked at
 */
NPError NPP_DestroyStream(NPP npp, NPStream* stream, NPReason reason);

/**
 * How much of a stream may come now.
 *
 * @param npp     the instance
 * @param stream  stays the browser's
 * @return number of bytes
 */
int32_t NPP_WriteReady(NPP npp, NPStream* stream);

/**
 * Data of a stream.
 *
 * @param npp     the instance
 * @param stream  stays the browser's
 * @param offset  where in the stream the data is, in bytes
 * @param len     number of bytes
 * @param buffer  the data, which stays the browser's
 * @return number of bytes taken; negative ends the stream
 */
int32_t NPP_Write(NPP npp, NPStream* stream, int32_t offset, int32_t len, void* buffer);

/**
 * A stream is in a file.
 *
 * @param npp        the instance
 * @param stream     stays the browser's
 * @param file_name  path of the file; null when it could not be written
 */
void NPP_StreamAsFile(NPP npp, NPStream* stream, const char* file_name);

/**
 * The page is printed.
 *
 * @param npp    the instance
 * @param print  how; stays the browser's
 */
void NPP_Print(NPP npp, NPPrint* print);

/**
 * An event of a windowless instance.
 *
 * @param npp    the instance
 * @param event  an NPEvent
 * @return whether it was handled
 */
int16_t NPP_HandleEvent(NPP npp, void* event);

/**
 * A request with notification has ended.
 *
 * @param npp          the instance
 * @param url          what was requested
 * @param reason       why it has ended
 * @param notify_data  what was given with the request
 */
void NPP_URLNotify(NPP npp, const char* url, NPReason reason, void* notify_data);

/**
 * Asks the plug-in for something.
 *
 * @param npp       the instance
 * @param variable  what
 * @param value     receives it
 * @return NPERR_NO_ERROR, or why there is no answer
 */
NPError NPP_GetValue(NPP npp, NPPVariable variable, void* value);

/**
 * Tells the plug-in something.
 *
 * @param npp       the instance
 * @param variable  what it is about
 * @param value     depends on the variable
 * @return NPERR_NO_ERROR, or why it is not used
 */
NPError NPP_SetValue(NPP npp, NPNVariable variable, void* value);
/**@}*/

/** @name What a browser does for a plug-in
 *  A plug-in that calls these by name defines them itself, from the browser's table.
 */
/**@{*/

/** @copydoc vask_np_base::GetURL() */
NPError NPN_GetURL(NPP npp, const char* url, const char* target);

/** @copydoc vask_np_base::NPN_GetURLNotify() */
NPError NPN_GetURLNotify(NPP npp, const char* url, const char* target, void* notify_data);

/** @copydoc vask_np_base::NPN_PostURL() */
NPError NPN_PostURL(NPP npp, const char* url, const char* target, uint32_t len, const char* buffer,
                    NPBool is_file);

/** @copydoc vask_np_base::NPN_PostURLNotify() */
NPError NPN_PostURLNotify(NPP npp, const char* url, const char* target, uint32_t len,
                          const char* buffer, NPBool is_file, void* notify_data);

/** @copydoc vask_np_base::NPN_RequestRead() */
NPError NPN_RequestRead(NPStream* stream, NPByteRange* ranges);

/** @copydoc vask_np_base::NPN_NewStream() */
NPError NPN_NewStream(NPP npp, NPMIMEType type, const char* target, NPStream** stream);

/** @copydoc vask_np_base::NPN_WriteUPP() */
int32_t NPN_Write(NPP npp, NPStream* stream, int32_t len, void* buffer);

/** @copydoc vask_np_base::NPN_DestroyStream() */
NPError NPN_DestroyStream(NPP npp, NPStream* stream, NPReason reason);

/** @copydoc vask_np_base::NPN_Status() */
void NPN_Status(NPP npp, const char* message);

/** @copydoc vask_np_base::NPN_UserAgent() */
const char* NPN_UserAgent(NPP npp);

/** @copydoc vask_np_base::NPN_MemAlloc() */
void* NPN_MemAlloc(uint32_t size);

/** @copydoc vask_np_base::NPN_MemFree() */
void NPN_MemFree(void* memory);

/** @copydoc vask_np_base::NPN_MemFlush() */
uint32_t NPN_MemFlush(uint32_t size);

/** @copydoc vask_np_base::NPN_ReloadPlugins() */
void NPN_ReloadPlugins(NPBool reload_pages);

/** @copydoc vask_np_base::NPN_GetJavaEnv() */
void* NPN_GetJavaEnv(void);

/** @copydoc vask_np_base::NPN_GetJavaPeer() */
void* NPN_GetJavaPeer(NPP npp);

/** @copydoc vask_np_base::NPN_GetValue() */
NPError NPN_GetValue(NPP npp, NPNVariable variable, void* value);

/** @copydoc vask_np_base::NPN_SetValue() */
NPError NPN_SetValue(NPP npp, NPPVariable variable, void* value);

/** @copydoc vask_np_base::NPN_InvalidateRect() */
void NPN_InvalidateRect(NPP npp, NPRect* rect);

/** @copydoc vask_np_base::NPN_InvalidateRegion() */
void NPN_InvalidateRegion(NPP npp, NPRegion region);

/** @copydoc vask_np_base::NPN_ForceRedraw() */
void NPN_ForceRedraw(NPP npp);

/** @copydoc vask_np_base::NPN_PushPopupsEnabledState() */
void NPN_PushPopupsEnabledState(NPP npp, NPBool enabled);

/** @copydoc vask_np_base::NPN_PopPopupsEnabledState() */
void NPN_PopPopupsEnabledState(NPP npp);

/** @copydoc vask_np_base::NPN_PluginThreadAsyncCall() */
void NPN_PluginThreadAsyncCall(NPP npp, void (*function)(void* data), void* data);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif
