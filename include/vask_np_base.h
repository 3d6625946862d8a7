#ifndef VASK_NP_BASE_H
#define VASK_NP_BASE_H

/**
 * @file
 * @brief What every class of a browser plug-in shares: the browser's functions, and texts for what
 *        the browser hands over.
 *
 * Everything in the plug-in classes runs on the browser's plug-in thread. The classes throw and
 * catch nothing but where they say so: a plug-in ends exceptions in the functions that it exports.
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
     * function that this browser does not have, is the caller's fault. What a call does, whose its
     * result is and whether it may call back into the plug-in is the browser's to say; the
     * ownership stated here is that of the published interface.
     */
    ///@{

    /** NPN_GetURL: requests @p url into the frame @p target, or as a stream if it is null. */
    NPError GetURL(NPP npp, const char* url, const char* target);

    /** Sends @p len bytes, or the file that @p buffer names if @p is_file, to @p url. */
    NPError NPN_PostURL(NPP npp, const char* url, const char* target, uint32_t len,
                        const char* buffer, NPBool is_file);

    /** Asks for parts of a seekable stream. */
    NPError NPN_RequestRead(NPStream* stream, NPByteRange* ranges);

    /** Opens a stream from the plug-in to the frame @p target. */
    NPError NPN_NewStream(NPP npp, NPMIMEType type, const char* target, NPStream** stream);

    /** NPN_Write: writes into a stream of NPN_NewStream().
     *  @return the number of bytes taken, negative on failure */
    int32_t NPN_WriteUPP(NPP npp, NPStream* stream, int32_t len, void* buffer);

    /** Ends a stream of either direction. */
    NPError NPN_DestroyStream(NPP npp, NPStream* stream, NPReason reason);

    /** Shows a message in the status line. */
    void NPN_Status(NPP npp, const char* message);

    /** @return the browser's name, which stays the browser's */
    const char* NPN_UserAgent(NPP npp);

    /** @return memory of the browser, to be freed with NPN_MemFree(); null when there is none */
    void* NPN_MemAlloc(uint32_t size);

    /** Frees memory that the browser has allocated. */
    void NPN_MemFree(void* memory);

    /** Asks the browser to free memory. @return the number of bytes freed */
    uint32_t NPN_MemFlush(uint32_t size);

    /** Lets the browser look for plug-ins again. */
    void NPN_ReloadPlugins(NPBool reload_pages);

    /** @return the Java environment, or null */
    void* NPN_GetJavaEnv();

    /** @return the Java peer of an instance, or null */
    void* NPN_GetJavaPeer(NPP npp);

    /** GetURL(), after which NPP_URLNotify is called with @p notify_data. */
    NPError NPN_GetURLNotify(NPP npp, const char* url, const char* target, void* notify_data);

    /** NPN_PostURL(), after which NPP_URLNotify is called with @p notify_data. */
    NPError NPN_PostURLNotify(NPP npp, const char* url, const char* target, uint32_t len,
                              const char* buffer, NPBool is_file, void* notify_data);

    /** Asks the browser for @p variable. An object that is stored in @p value carries a reference
     * of the caller. */
    NPError NPN_GetValue(NPP npp, NPNVariable variable, void* value);

    /** Tells the browser about the instance, e.g. with NPPVpluginWindowBool. */
    NPError NPN_SetValue(NPP npp, NPPVariable variable, void* value);

    /** Has a part of a windowless instance drawn again. */
    void NPN_InvalidateRect(NPP npp, NPRect* rect);

    /** Has a part of a windowless instance drawn again. */
    void NPN_InvalidateRegion(NPP npp, NPRegion region);

    /** Has what is invalid drawn at once. */
    void NPN_ForceRedraw(NPP npp);

    /** @return the identifier of a terminated name; it lasts as long as the browser */
    NPIdentifier NPN_GetStringIdentifier(const NPUTF8* name);

    /** NPN_GetStringIdentifier() for @p count names. */
    void NPN_GetStringIdentifiers(const NPUTF8** names, int32_t count, NPIdentifier* identifiers);

    /** @return the identifier of a number */
    NPIdentifier NPN_GetIntIdentifier(int32_t number);

    /** @return whether an identifier is a name */
    bool NPN_IdentifierIsString(NPIdentifier identifier);

    /** @return the name, to be freed with NPN_MemFree(); null for a number */
    NPUTF8* NPN_UTF8FromIdentifier(NPIdentifier identifier);

    /** @return the number; undefined for a name */
    int32_t NPN_IntFromIdentifier(NPIdentifier identifier);

    /** @return a new object with one reference, which is the caller's */
    NPObject* NPN_CreateObject(NPP npp, NPClass* its_class);

    /** Adds a reference. @return @p object */
    NPObject* NPN_RetainObject(NPObject* object);

    /** Takes a reference away. The last one ends the object, within this call. */
    void NPN_ReleaseObject(NPObject* object);

    /** Calls a method. On success the caller releases @p result. */
    bool NPN_Invoke(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* args,
                    uint32_t arg_count, NPVariant* result);

    /** Calls an object that is a function. On success the caller releases @p result. */
    bool NPN_InvokeDefault(NPP npp, NPObject* object, const NPVariant* args, uint32_t arg_count,
                           NPVariant* result);

    /** Runs a script in the scope of @p object. On success the caller releases @p result. */
    bool NPN_Evaluate(NPP npp, NPObject* object, NPString* script, NPVariant* result);

    /** Reads a property. On success the caller releases @p result. */
    bool NPN_GetProperty(NPP npp, NPObject* object, NPIdentifier name, NPVariant* result);

    /** Writes a property. @p value stays the caller's. */
    bool NPN_SetProperty(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* value);

    /** Removes a property. */
    bool NPN_RemoveProperty(NPP npp, NPObject* object, NPIdentifier name);

    /** @return whether there is such a property */
    bool NPN_HasProperty(NPP npp, NPObject* object, NPIdentifier name);

    /** @return whether there is such a method */
    bool NPN_HasMethod(NPP npp, NPObject* object, NPIdentifier name);

    /** Ends the text or the reference that a variant holds. */
    void NPN_ReleaseVariantValue(NPVariant* variant);

    /** Has the running script call fail with a message. */
    void NPN_SetException(NPObject* object, const NPUTF8* message);

    /** Allows or forbids windows that are opened without the user, until the matching
     *  NPN_PopPopupsEnabledState(). */
    void NPN_PushPopupsEnabledState(NPP npp, NPBool enabled);

    /** Ends the latest NPN_PushPopupsEnabledState(). */
    void NPN_PopPopupsEnabledState(NPP npp);

    /** Lists an object's members into an array to be freed with NPN_MemFree(). */
    bool NPN_Enumerate(NPP npp, NPObject* object, NPIdentifier** names, uint32_t* count);

    /** Has @p function called on the plug-in thread; the only call for other threads. */
    void NPN_PluginThreadAsyncCall(NPP npp, void (*function)(void* data), void* data);

    /** Calls an object as a constructor. On success the caller releases @p result. */
    bool NPN_Construct(NPP npp, NPObject* object, const NPVariant* args, uint32_t arg_count,
                       NPVariant* result);

    ///@}
    /** @name Texts */
    ///@{

    /** @return the name of a plug-in variable for diagnostics; "Unknown" for 0, 8, 9 and everything
     *          above 16; a constant text */
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
     * without characters
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
     * The reference to the instance's element that the browser gives is kept for ever.
     *
     * @param npp  an instance
     * @return the directory's URI with its final "/"
     * @throws std::logic_error  when there is none: after "Failed to get our DOM Element NPObject"
     *         or "Failed to get the base URI" at ERR (both without a line end), or without a line
     *         when what the browser, or the page in its stead, gives is no text with a "/"
     */
    std::string get_baseURI(NPP npp);

    ///@}
};

#endif
