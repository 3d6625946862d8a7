/* SPDX-FileCopyrightText: 2026 The libvask authors */
/* SPDX-License-Identifier: MIT */

/* The plug-in interface is binary: a structure of another size or order would reach the wrong
 * function of the browser, and another number would mean something else to it. This source is only
 * compiled: in C and C++, for 64 and 32 bits, with the headers of X11 and without. */

#include <stddef.h>

#include "npapi/npfunctions.h"

#ifdef __cplusplus
#define HOLDS(condition) static_assert(condition, #condition)
#else
#define HOLDS(condition) _Static_assert(condition, #condition)
#endif

/* The first of the two numbers is for 64 bits, the second for 32. */
#ifdef __LP64__
#define EITHER(bits64, bits32) (bits64)
#else
#define EITHER(bits64, bits32) (bits32)
#endif

#define SIZE(type, bits64, bits32) HOLDS(sizeof(type) == EITHER(bits64, bits32))
#define PLACE(type, field, bits64, bits32) HOLDS(offsetof(type, field) == EITHER(bits64, bits32))

/* Entry number n of a function table, counted from 0, behind two numbers of 16 bits. */
#define ENTRY(type, field, n) HOLDS(offsetof(type, field) == sizeof(void*) * (1 + (n)))

SIZE(NPBool, 1, 1);
SIZE(NPError, 2, 2);
SIZE(NPReason, 2, 2);
SIZE(NPVariantType, 4, 4);
SIZE(NPPVariable, 4, 4);
SIZE(NPNVariable, 4, 4);
SIZE(NPWindowType, 4, 4);
SIZE(NPNToolkitType, 4, 4);
SIZE(NPNURLVariable, 4, 4);
SIZE(NPFocusDirection, 4, 4);
SIZE(NPIdentifier, 8, 4);
SIZE(NPRegion, 8, 4);
HOLDS((NPError)-1 < 0);
HOLDS((NPReason)-1 < 0);
HOLDS((NPBool)-1 > 0);

HOLDS(NP_VERSION_MAJOR == 0);
HOLDS(NP_VERSION_MINOR == 20);
HOLDS(NPVERS_HAS_STREAMOUTPUT == 8);
HOLDS(NPVERS_HAS_NOTIFICATION == 9);
HOLDS(NPVERS_HAS_LIVECONNECT == 9);
HOLDS(NPVERS_68K_HAS_LIVECONNECT == 11);
HOLDS(NPVERS_HAS_WINDOWLESS == 11);
HOLDS(NPVERS_HAS_XPCONNECT_SCRIPTING == 13);
HOLDS(NPVERS_HAS_NPRUNTIME_SCRIPTING == 14);
HOLDS(NPVERS_HAS_FORM_VALUES == 15);
HOLDS(NPVERS_HAS_POPUPS_ENABLED_STATE == 16);
HOLDS(NPVERS_HAS_RESPONSE_HEADERS == 17);
HOLDS(NPVERS_HAS_NPOBJECT_ENUM == 18);
HOLDS(NPVERS_HAS_PLUGIN_THREAD_ASYNC_CALL == 19);
HOLDS(NPVERS_HAS_ALL_NETWORK_STREAMS == 20);
HOLDS(NPVERS_HAS_URL_AND_AUTH_INFO == 21);
HOLDS(NPVERS_HAS_PRIVATE_MODE == 22);
HOLDS(NPVERS_MACOSX_HAS_COCOA_EVENTS == 23);
HOLDS(NPVERS_HAS_ADVANCED_KEY_HANDLING == 25);
HOLDS(NPVERS_HAS_URL_REDIRECT_HANDLING == 26);
HOLDS(NPVERS_HAS_CLEAR_SITE_DATA == 27);

HOLDS(NPERR_BASE == 0);
HOLDS(NPERR_NO_ERROR == 0);
HOLDS(NPERR_GENERIC_ERROR == 1);
HOLDS(NPERR_INVALID_INSTANCE_ERROR == 2);
HOLDS(NPERR_INVALID_FUNCTABLE_ERROR == 3);
HOLDS(NPERR_MODULE_LOAD_FAILED_ERROR == 4);
HOLDS(NPERR_OUT_OF_MEMORY_ERROR == 5);
HOLDS(NPERR_INVALID_PLUGIN_ERROR == 6);
HOLDS(NPERR_INVALID_PLUGIN_DIR_ERROR == 7);
HOLDS(NPERR_INCOMPATIBLE_VERSION_ERROR == 8);
HOLDS(NPERR_INVALID_PARAM == 9);
HOLDS(NPERR_INVALID_URL == 10);
HOLDS(NPERR_FILE_NOT_FOUND == 11);
HOLDS(NPERR_NO_DATA == 12);
HOLDS(NPERR_STREAM_NOT_SEEKABLE == 13);
HOLDS(NPERR_TIME_RANGE_NOT_SUPPORTED == 14);
HOLDS(NPERR_MALFORMED_SITE == 15);

HOLDS(NPRES_BASE == 0);
HOLDS(NPRES_DONE == 0);
HOLDS(NPRES_NETWORK_ERR == 1);
HOLDS(NPRES_USER_BREAK == 2);

HOLDS(NP_EMBED == 1);
HOLDS(NP_FULL == 2);

HOLDS(NP_NORMAL == 1);
HOLDS(NP_SEEK == 2);
HOLDS(NP_ASFILE == 3);
HOLDS(NP_ASFILEONLY == 4);
HOLDS(NP_MAXREADY == 0x7fffffff);

HOLDS(kNPEventNotHandled == 0);
HOLDS(kNPEventHandled == 1);
HOLDS(kNPEventStartIME == 2);

HOLDS(NPFocusNext == 0);
HOLDS(NPFocusPrevious == 1);

HOLDS(NP_SETWINDOW == 1);
HOLDS(NP_PRINT == 2);
HOLDS(NPWindowTypeWindow == 1);
HOLDS(NPWindowTypeDrawable == 2);
HOLDS(NPNVGtk12 == 1);
HOLDS(NPNVGtk2 == 2);

HOLDS(NPPVpluginNameString == 1);
HOLDS(NPPVpluginDescriptionString == 2);
HOLDS(NPPVpluginWindowBool == 3);
HOLDS(NPPVpluginTransparentBool == 4);
HOLDS(NPPVjavaClass == 5);
HOLDS(NPPVpluginWindowSize == 6);
HOLDS(NPPVpluginTimerInterval == 7);
HOLDS(NPPVpluginScriptableInstance == 10);
HOLDS(NPPVpluginScriptableIID == 11);
HOLDS(NPPVjavascriptPushCallerBool == 12);
HOLDS(NPPVpluginKeepLibraryInMemory == 13);
HOLDS(NPPVpluginNeedsXEmbed == 14);
HOLDS(NPPVpluginScriptableNPObject == 15);
HOLDS(NPPVformValue == 16);
HOLDS(NPPVpluginUrlRequestsDisplayedBool == 17);
HOLDS(NPPVpluginWantsAllNetworkStreams == 18);
HOLDS(NPPVpluginNativeAccessibleAtkPlugId == 19);
HOLDS(NPPVpluginCancelSrcStream == 20);
HOLDS(NPPVsupportsAdvancedKeyHandling == 21);
HOLDS(NPPVpluginUsesDOMForCursorBool == 22);

HOLDS(NP_ABI_GCC3_MASK == 0x10000000);
HOLDS(NP_ABI_MASK == 0x10000000);

HOLDS(NPNVxDisplay == 1);
HOLDS(NPNVxtAppContext == 2);
HOLDS(NPNVnetscapeWindow == 3);
HOLDS(NPNVjavascriptEnabledBool == 4);
HOLDS(NPNVasdEnabledBool == 5);
HOLDS(NPNVisOfflineBool == 6);
HOLDS(NPNVserviceManager == 0x1000000a);
HOLDS(NPNVDOMElement == 0x1000000b);
HOLDS(NPNVDOMWindow == 0x1000000c);
HOLDS(NPNVToolkit == 0x1000000d);
HOLDS(NPNVSupportsXEmbedBool == 14);
HOLDS(NPNVWindowNPObject == 15);
HOLDS(NPNVPluginElementNPObject == 16);
HOLDS(NPNVSupportsWindowless == 17);
HOLDS(NPNVprivateModeBool == 18);
HOLDS(NPNVsupportsAdvancedKeyHandling == 21);
HOLDS(NPNVdocumentOrigin == 22);

HOLDS(NPNURLVCookie == 501);
HOLDS(NPNURLVProxy == 502);

HOLDS(NPVariantType_Void == 0);
HOLDS(NPVariantType_Null == 1);
HOLDS(NPVariantType_Bool == 2);
HOLDS(NPVariantType_Int32 == 3);
HOLDS(NPVariantType_Double == 4);
HOLDS(NPVariantType_String == 5);
HOLDS(NPVariantType_Object == 6);

HOLDS(NP_CLASS_STRUCT_VERSION_ENUM == 2);
HOLDS(NP_CLASS_STRUCT_VERSION_CTOR == 3);
HOLDS(NP_CLASS_STRUCT_VERSION == 3);

SIZE(NPP_t, 16, 8);
PLACE(NPP_t, pdata, 0, 0);
PLACE(NPP_t, ndata, 8, 4);

SIZE(NPStream, 48, 28);
PLACE(NPStream, pdata, 0, 0);
PLACE(NPStream, ndata, 8, 4);
PLACE(NPStream, url, 16, 8);
PLACE(NPStream, end, 24, 12);
PLACE(NPStream, lastmodified, 28, 16);
PLACE(NPStream, notifyData, 32, 20);
PLACE(NPStream, headers, 40, 24);

SIZE(NPByteRange, 16, 12);
PLACE(NPByteRange, offset, 0, 0);
PLACE(NPByteRange, length, 4, 4);
PLACE(NPByteRange, next, 8, 8);

SIZE(NPSavedData, 16, 8);
PLACE(NPSavedData, len, 0, 0);
PLACE(NPSavedData, buf, 8, 4);

SIZE(NPRect, 8, 8);
PLACE(NPRect, top, 0, 0);
PLACE(NPRect, left, 2, 2);
PLACE(NPRect, bottom, 4, 4);
PLACE(NPRect, right, 6, 6);

SIZE(NPSize, 8, 8);
PLACE(NPSize, width, 0, 0);
PLACE(NPSize, height, 4, 4);

SIZE(NPAnyCallbackStruct, 4, 4);
PLACE(NPAnyCallbackStruct, type, 0, 0);

SIZE(NPSetWindowCallbackStruct, 40, 20);
PLACE(NPSetWindowCallbackStruct, type, 0, 0);
PLACE(NPSetWindowCallbackStruct, display, 8, 4);
PLACE(NPSetWindowCallbackStruct, visual, 16, 8);
PLACE(NPSetWindowCallbackStruct, colormap, 24, 12);
PLACE(NPSetWindowCallbackStruct, depth, 32, 16);

SIZE(NPPrintCallbackStruct, 16, 8);
PLACE(NPPrintCallbackStruct, type, 0, 0);
PLACE(NPPrintCallbackStruct, fp, 8, 4);

SIZE(NPWindow, 48, 36);
PLACE(NPWindow, window, 0, 0);
PLACE(NPWindow, x, 8, 4);
PLACE(NPWindow, y, 12, 8);
PLACE(NPWindow, width, 16, 12);
PLACE(NPWindow, height, 20, 16);
PLACE(NPWindow, clipRect, 24, 20);
PLACE(NPWindow, ws_info, 32, 28);
PLACE(NPWindow, type, 40, 32);

SIZE(NPFullPrint, 16, 8);
PLACE(NPFullPrint, pluginPrinted, 0, 0);
PLACE(NPFullPrint, printOne, 1, 1);
PLACE(NPFullPrint, platformPrint, 8, 4);

SIZE(NPEmbedPrint, 56, 40);
PLACE(NPEmbedPrint, window, 0, 0);
PLACE(NPEmbedPrint, platformPrint, 48, 36);

SIZE(NPPrint, 64, 44);
PLACE(NPPrint, mode, 0, 0);
PLACE(NPPrint, print.fullPrint, 8, 4);
PLACE(NPPrint, print.embedPrint, 8, 4);

SIZE(NPString, 16, 8);
PLACE(NPString, UTF8Characters, 0, 0);
PLACE(NPString, UTF8Length, 8, 4);

SIZE(NPVariant, 24, 12);
PLACE(NPVariant, type, 0, 0);
PLACE(NPVariant, value.boolValue, 8, 4);
PLACE(NPVariant, value.intValue, 8, 4);
PLACE(NPVariant, value.doubleValue, 8, 4);
PLACE(NPVariant, value.stringValue, 8, 4);
PLACE(NPVariant, value.objectValue, 8, 4);

SIZE(NPObject, 16, 8);
PLACE(NPObject, _class, 0, 0);
PLACE(NPObject, referenceCount, 8, 4);

SIZE(NPClass, 104, 52);
PLACE(NPClass, structVersion, 0, 0);
PLACE(NPClass, allocate, 8, 4);
PLACE(NPClass, deallocate, 16, 8);
PLACE(NPClass, invalidate, 24, 12);
PLACE(NPClass, hasMethod, 32, 16);
PLACE(NPClass, invoke, 40, 20);
PLACE(NPClass, invokeDefault, 48, 24);
PLACE(NPClass, hasProperty, 56, 28);
PLACE(NPClass, getProperty, 64, 32);
PLACE(NPClass, setProperty, 72, 36);
PLACE(NPClass, removeProperty, 80, 40);
PLACE(NPClass, enumerate, 88, 44);
PLACE(NPClass, construct, 96, 48);

SIZE(NPPluginFuncs, 120, 60);
PLACE(NPPluginFuncs, size, 0, 0);
PLACE(NPPluginFuncs, version, 2, 2);
ENTRY(NPPluginFuncs, newp, 0);
ENTRY(NPPluginFuncs, destroy, 1);
ENTRY(NPPluginFuncs, setwindow, 2);
ENTRY(NPPluginFuncs, newstream, 3);
ENTRY(NPPluginFuncs, destroystream, 4);
ENTRY(NPPluginFuncs, asfile, 5);
ENTRY(NPPluginFuncs, writeready, 6);
ENTRY(NPPluginFuncs, write, 7);
ENTRY(NPPluginFuncs, print, 8);
ENTRY(NPPluginFuncs, event, 9);
ENTRY(NPPluginFuncs, urlnotify, 10);
ENTRY(NPPluginFuncs, javaClass, 11);
ENTRY(NPPluginFuncs, getvalue, 12);
ENTRY(NPPluginFuncs, setvalue, 13);

SIZE(NPNetscapeFuncs, 368, 184);
PLACE(NPNetscapeFuncs, size, 0, 0);
PLACE(NPNetscapeFuncs, version, 2, 2);
ENTRY(NPNetscapeFuncs, geturl, 0);
ENTRY(NPNetscapeFuncs, posturl, 1);
ENTRY(NPNetscapeFuncs, requestread, 2);
ENTRY(NPNetscapeFuncs, newstream, 3);
ENTRY(NPNetscapeFuncs, write, 4);
ENTRY(NPNetscapeFuncs, destroystream, 5);
ENTRY(NPNetscapeFuncs, status, 6);
ENTRY(NPNetscapeFuncs, uagent, 7);
ENTRY(NPNetscapeFuncs, memalloc, 8);
ENTRY(NPNetscapeFuncs, memfree, 9);
ENTRY(NPNetscapeFuncs, memflush, 10);
ENTRY(NPNetscapeFuncs, reloadplugins, 11);
ENTRY(NPNetscapeFuncs, getJavaEnv, 12);
ENTRY(NPNetscapeFuncs, getJavaPeer, 13);
ENTRY(NPNetscapeFuncs, geturlnotify, 14);
ENTRY(NPNetscapeFuncs, posturlnotify, 15);
ENTRY(NPNetscapeFuncs, getvalue, 16);
ENTRY(NPNetscapeFuncs, setvalue, 17);
ENTRY(NPNetscapeFuncs, invalidaterect, 18);
ENTRY(NPNetscapeFuncs, invalidateregion, 19);
ENTRY(NPNetscapeFuncs, forceredraw, 20);
ENTRY(NPNetscapeFuncs, getstringidentifier, 21);
ENTRY(NPNetscapeFuncs, getstringidentifiers, 22);
ENTRY(NPNetscapeFuncs, getintidentifier, 23);
ENTRY(NPNetscapeFuncs, identifierisstring, 24);
ENTRY(NPNetscapeFuncs, utf8fromidentifier, 25);
ENTRY(NPNetscapeFuncs, intfromidentifier, 26);
ENTRY(NPNetscapeFuncs, createobject, 27);
ENTRY(NPNetscapeFuncs, retainobject, 28);
ENTRY(NPNetscapeFuncs, releaseobject, 29);
ENTRY(NPNetscapeFuncs, invoke, 30);
ENTRY(NPNetscapeFuncs, invokeDefault, 31);
ENTRY(NPNetscapeFuncs, evaluate, 32);
ENTRY(NPNetscapeFuncs, getproperty, 33);
ENTRY(NPNetscapeFuncs, setproperty, 34);
ENTRY(NPNetscapeFuncs, removeproperty, 35);
ENTRY(NPNetscapeFuncs, hasproperty, 36);
ENTRY(NPNetscapeFuncs, hasmethod, 37);
ENTRY(NPNetscapeFuncs, releasevariantvalue, 38);
ENTRY(NPNetscapeFuncs, setexception, 39);
ENTRY(NPNetscapeFuncs, pushpopupsenabledstate, 40);
ENTRY(NPNetscapeFuncs, poppopupsenabledstate, 41);
ENTRY(NPNetscapeFuncs, enumerate, 42);
ENTRY(NPNetscapeFuncs, pluginthreadasynccall, 43);
ENTRY(NPNetscapeFuncs, construct, 44);
