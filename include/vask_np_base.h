// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_NP_BASE_H
#define VASK_NP_BASE_H

/**
 * @file
 * @brief What every class of a browser plug-in shares: the browser's functions, and texts for what
 *        the browser hands over.
 *
 * Everything in the plug-in classes runs on the browser's plug-in thread. The classes throw and
 * catch nothing but where they say so: a plug-in ends exceptions in the functions that it exports,
 * and the library in those of ::vask_script_class and in the timer of vask_np_factory.
 *
 * A script may run inside NPN_Invoke(), NPN_InvokeDefault(), NPN_Construct(), NPN_Evaluate(), the
 * calls about properties and methods, and whatever releases a reference. The script may have the
 * calling object deleted; the caller must not touch it any more then.
 *
 * @since 2.0
 */

#include <string>

#include "npapi/npfunctions.h"
#include "vask_export.h"
#include "vask_object.h"

/**
 * @brief Base of the plug-in's classes, and their way to the browser.
 *
 * The product that links the library is the plug-in. It exports the entry points, and its
 * NP_Initialize copies the browser's table before anything else here is used:
 *
 *     memset(&vask_np_base::NPNFuncs, 0, sizeof vask_np_base::NPNFuncs);
 *     memcpy(&vask_np_base::NPNFuncs, browser,
 *            std::min<size_t>(browser->size, sizeof vask_np_base::NPNFuncs));
 *
 * @since 2.0
 */
class VASK_EXPORT vask_np_base : public virtual vask_object {
public:
    /** @param name  name in diagnostics; not copied, must outlive the object */
    explicit vask_np_base(const char* name);

    /** Logs at DBG. */
    ~vask_np_base() override;

    /** The product's copy of the browser's function table; all zero until the product fills it.
     *  The library only reads it. */
    static NPNetscapeFuncs NPNFuncs;

    /** For the product to remember that #NPNFuncs is filled; the library never touches it. */
    static bool setNPNFuncs;

    /** @name The browser's functions
     *
     * Each of them hands its arguments to the entry of #NPNFuncs and returns what that returns.
     * None looks whether there is such an entry: a call before the table is filled, or of a
     * function that this browser does not have, is the caller's fault. The browser decides what a
     * call does and whether it calls back into the plug-in. The ownership stated here is that of
     * the published interface.
     */
    ///@{

    /**
     * NPN_GetURL: requests a document.
     *
     * @param npp     an instance
     * @param url     the document
     * @param target  the frame that shows it; null for a stream to the instance
     * @return the browser's result
     */
    NPError GetURL(NPP npp, const char* url, const char* target);

    /**
     * Sends data to a URL.
     *
     * @param npp      an instance
     * @param url      where to
     * @param target   the frame that shows the answer; null for a stream to the instance
     * @param len      number of bytes in @p buffer
     * @param buffer   the data, or the path of a file with the data; stays the caller's
     * @param is_file  whether it is a path
     * @return the browser's result
     */
    NPError NPN_PostURL(NPP npp, const char* url, const char* target, uint32_t len,
                        const char* buffer, NPBool is_file);

    /**
     * Asks for parts of a seekable stream.
     *
     * @param stream  the stream
     * @param ranges  the first of the parts; stays the caller's
     * @return the browser's result
     */
    NPError NPN_RequestRead(NPStream* stream, NPByteRange* ranges);

    /**
     * Opens a stream from the plug-in to the browser.
     *
     * @param npp     an instance
     * @param type    MIME type of the stream
     * @param target  the frame that shows it
     * @param stream  receives the stream, which is ended with NPN_DestroyStream()
     * @return the browser's result
     */
    NPError NPN_NewStream(NPP npp, NPMIMEType type, const char* target, NPStream** stream);

    /**
     * NPN_Write: writes into a stream of NPN_NewStream().
     *
     * @param npp     an instance
     * @param stream  the stream
     * @param len     number of bytes
     * @param buffer  the data, which stays the caller's
     * @return the number of bytes taken, negative on failure
     */
    int32_t NPN_WriteUPP(NPP npp, NPStream* stream, int32_t len, void* buffer);

    /**
     * Ends a stream of either direction.
     *
     * @param npp     an instance
     * @param stream  the stream
     * @param reason  why
     * @return the browser's result
     */
    NPError NPN_DestroyStream(NPP npp, NPStream* stream, NPReason reason);

    /**
     * Shows a message in the status line.
     *
     * @param npp      an instance
     * @param message  stays the caller's
     */
    void NPN_Status(NPP npp, const char* message);

    /**
     * @param npp  an instance
     * @return the browser's name, which stays the browser's
     */
    const char* NPN_UserAgent(NPP npp);

    /**
     * @param size  number of bytes
     * @return memory of the browser, to be freed with NPN_MemFree(); null when there is none
     */
    void* NPN_MemAlloc(uint32_t size);

    /** @param memory  allocated by the browser; freed */
    void NPN_MemFree(void* memory);

    /**
     * Asks the browser to free memory.
     *
     * @param size  number of bytes wanted
     * @return the number of bytes freed
     */
    uint32_t NPN_MemFlush(uint32_t size);

    /**
     * Lets the browser look for plug-ins again.
     *
     * @param reload_pages  whether pages with plug-ins are loaded again
     */
    void NPN_ReloadPlugins(NPBool reload_pages);

    /** @return the Java environment, or null */
    void* NPN_GetJavaEnv();

    /**
     * @param npp  an instance
     * @return its Java peer, or null
     */
    void* NPN_GetJavaPeer(NPP npp);

    /**
     * GetURL(), after which NPP_URLNotify is called.
     *
     * @param npp          an instance
     * @param url          the document
     * @param target       the frame that shows it; null for a stream to the instance
     * @param notify_data  handed to NPP_URLNotify
     * @return the browser's result
     */
    NPError NPN_GetURLNotify(NPP npp, const char* url, const char* target, void* notify_data);

    /**
     * NPN_PostURL(), after which NPP_URLNotify is called.
     *
     * @param npp          an instance
     * @param url          where to
     * @param target       the frame that shows the answer; null for a stream to the instance
     * @param len          number of bytes in @p buffer
     * @param buffer       the data, or the path of a file with the data; stays the caller's
     * @param is_file      whether it is a path
     * @param notify_data  handed to NPP_URLNotify
     * @return the browser's result
     */
    NPError NPN_PostURLNotify(NPP npp, const char* url, const char* target, uint32_t len,
                              const char* buffer, NPBool is_file, void* notify_data);

    /**
     * Asks the browser for something.
     *
     * @param npp       an instance; null for what concerns no instance
     * @param variable  what
     * @param value     receives it; an object carries a reference of the caller
     * @return the browser's result
     */
    NPError NPN_GetValue(NPP npp, NPNVariable variable, void* value);

    /**
     * Tells the browser about the instance, e.g. with NPPVpluginWindowBool.
     *
     * @param npp       an instance
     * @param variable  what it is about
     * @param value     depends on @p variable
     * @return the browser's result
     */
    NPError NPN_SetValue(NPP npp, NPPVariable variable, void* value);

    /**
     * Has a part of a windowless instance drawn again.
     *
     * @param npp   an instance
     * @param rect  the part; stays the caller's
     */
    void NPN_InvalidateRect(NPP npp, NPRect* rect);

    /**
     * Has a part of a windowless instance drawn again.
     *
     * @param npp     an instance
     * @param region  the part; stays the caller's
     */
    void NPN_InvalidateRegion(NPP npp, NPRegion region);

    /**
     * Has what is invalid drawn at once.
     *
     * @param npp  an instance
     */
    void NPN_ForceRedraw(NPP npp);

    /**
     * @param name  terminated; stays the caller's
     * @return its identifier, which lasts as long as the browser
     */
    NPIdentifier NPN_GetStringIdentifier(const NPUTF8* name);

    /**
     * NPN_GetStringIdentifier() for several names.
     *
     * @param names        terminated; stay the caller's
     * @param count        number of names
     * @param identifiers  receives as many identifiers
     */
    void NPN_GetStringIdentifiers(const NPUTF8** names, int32_t count, NPIdentifier* identifiers);

    /**
     * @param number  any number
     * @return its identifier
     */
    NPIdentifier NPN_GetIntIdentifier(int32_t number);

    /**
     * @param identifier  a name or a number
     * @return whether it is a name
     */
    bool NPN_IdentifierIsString(NPIdentifier identifier);

    /**
     * @param identifier  a name or a number
     * @return the name, to be freed with NPN_MemFree(); null for a number
     */
    NPUTF8* NPN_UTF8FromIdentifier(NPIdentifier identifier);

    /**
     * @param identifier  a number
     * @return the number; undefined for a name
     */
    int32_t NPN_IntFromIdentifier(NPIdentifier identifier);

    /**
     * @param npp        an instance
     * @param its_class  class of the object; has to last as long as the object
     * @return a new object with one reference, which is the caller's
     */
    NPObject* NPN_CreateObject(NPP npp, NPClass* its_class);

    /** Adds a reference. @param object  not null @return @p object */
    NPObject* NPN_RetainObject(NPObject* object);

    /** Takes a reference away. The last one ends the object, within this call.
     *  @param object  not null */
    void NPN_ReleaseObject(NPObject* object);

    /**
     * Calls a method.
     *
     * @param npp        an instance
     * @param object     whose method
     * @param name       the method
     * @param args       the arguments, which stay the caller's
     * @param arg_count  number of entries in @p args
     * @param result     on success, for the caller to release
     * @return whether the call has succeeded
     */
    bool NPN_Invoke(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* args,
                    uint32_t arg_count, NPVariant* result);

    /**
     * Calls an object that is a function.
     *
     * @param npp        an instance
     * @param object     the function
     * @param args       the arguments, which stay the caller's
     * @param arg_count  number of entries in @p args
     * @param result     on success, for the caller to release
     * @return whether the call has succeeded
     */
    bool NPN_InvokeDefault(NPP npp, NPObject* object, const NPVariant* args, uint32_t arg_count,
                           NPVariant* result);

    /**
     * Runs a script.
     *
     * @param npp     an instance
     * @param object  in whose scope
     * @param script  stays the caller's
     * @param result  on success, for the caller to release
     * @return whether the script has succeeded
     */
    bool NPN_Evaluate(NPP npp, NPObject* object, NPString* script, NPVariant* result);

    /**
     * Reads a property.
     *
     * @param npp     an instance
     * @param object  whose property
     * @param name    the property
     * @param result  on success, for the caller to release
     * @return whether it was read
     */
    bool NPN_GetProperty(NPP npp, NPObject* object, NPIdentifier name, NPVariant* result);

    /**
     * Writes a property.
     *
     * @param npp     an instance
     * @param object  whose property
     * @param name    the property
     * @param value   stays the caller's
     * @return whether it was written
     */
    bool NPN_SetProperty(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* value);

    /**
     * Removes a property.
     *
     * @param npp     an instance
     * @param object  whose property
     * @param name    the property
     * @return whether it was removed
     */
    bool NPN_RemoveProperty(NPP npp, NPObject* object, NPIdentifier name);

    /**
     * @param npp     an instance
     * @param object  whose property
     * @param name    the property
     * @return whether there is such a property
     */
    bool NPN_HasProperty(NPP npp, NPObject* object, NPIdentifier name);

    /**
     * @param npp     an instance
     * @param object  whose method
     * @param name    the method
     * @return whether there is such a method
     */
    bool NPN_HasMethod(NPP npp, NPObject* object, NPIdentifier name);

    /** @param variant  the text or the reference that it holds is ended */
    void NPN_ReleaseVariantValue(NPVariant* variant);

    /**
     * Has the running script call fail with a message.
     *
     * @param object   whose method runs
     * @param message  stays the caller's
     */
    void NPN_SetException(NPObject* object, const NPUTF8* message);

    /**
     * Allows or forbids windows that are opened without the user, until the matching
     * NPN_PopPopupsEnabledState().
     *
     * @param npp      an instance
     * @param enabled  whether they are allowed
     */
    void NPN_PushPopupsEnabledState(NPP npp, NPBool enabled);

    /** Ends the latest NPN_PushPopupsEnabledState(). @param npp  an instance */
    void NPN_PopPopupsEnabledState(NPP npp);

    /**
     * Lists an object's members.
     *
     * @param npp     an instance
     * @param object  the object
     * @param names   receives an array, to be freed with NPN_MemFree()
     * @param count   receives the number of its entries
     * @return whether it was listed
     */
    bool NPN_Enumerate(NPP npp, NPObject* object, NPIdentifier** names, uint32_t* count);

    /**
     * Has a function called on the plug-in thread; the only call for other threads.
     *
     * @param npp       an instance
     * @param function  the function
     * @param data      its argument, not owned
     */
    void NPN_PluginThreadAsyncCall(NPP npp, void (*function)(void* data), void* data);

    /**
     * Calls an object as a constructor.
     *
     * @param npp        an instance
     * @param object     the constructor
     * @param args       the arguments, which stay the caller's
     * @param arg_count  number of entries in @p args
     * @param result     on success, for the caller to release
     * @return whether the call has succeeded
     */
    bool NPN_Construct(NPP npp, NPObject* object, const NPVariant* args, uint32_t arg_count,
                       NPVariant* result);

    ///@}
    /** @name Texts */
    ///@{

    /**
     * The name of a plug-in variable for diagnostics.
     *
     * @param variable  any number
     * @return a constant text; "Unknown" for 0, 8, 9 and everything above 16
     */
    const char* NPPVariable_to_type_descr(NPPVariable variable) const;

    /**
     * The name of a variant's type for diagnostics.
     *
     * @param variant  may be null
     * @return a constant text; "Unknown" for a type that does not exist and for null
     */
    const char* get_NPVariant_type(const NPVariant* variant) const;

    /**
     * Copies a variant's text.
     *
     * @param variant  a String variant, whose type is not tested; or null
     * @return exactly the text's bytes, with zeros among them; empty for null and for a text
     *         without characters
     */
    std::string NPVariant_to_string(const NPVariant* variant) const;

    /**
     * Cuts a URI back to its directory.
     *
     * @param uri  a variant, which keeps its text; may be null
     * @return a new terminated text, to be freed with free(), that ends with the URI's last "/";
     *         null when the text has no "/" and for a variant that is no String
     */
    char* anal_base_uri(const NPVariant* uri) const;

    /**
     * Asks the browser for the directory of the page that holds an instance.
     *
     * The reference to the instance's element that the browser gives is kept for ever. A page may
     * have a script run by this, and this object deleted when it returns or throws.
     *
     * @param npp  an instance
     * @return the directory's URI with its final "/"
     * @throws std::logic_error  when there is none: after "Failed to get our DOM Element NPObject"
     *                           or "Failed to get the base URI" at ERR (both without a line end),
     *                           or without a line when what the browser, or the page in its stead,
     *                           gives is no text with a "/"
     */
    std::string get_baseURI(NPP npp);

    ///@}
};

#endif
