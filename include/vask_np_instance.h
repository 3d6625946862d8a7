// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_NP_INSTANCE_H
#define VASK_NP_INSTANCE_H

/**
 * @file
 * @brief The plug-in's side of one element of a page.
 *
 * @since 2.0
 */

#include <cstdint>

#include "vask_script.h"
#include "vask_window_props.h"

/**
 * @brief One instance of the plug-in, which is its own scriptable object and keeps its window's
 *        geometry.
 *
 * The product derives from it, lets its factory make its class, and forwards each NPP_ function to
 * the operation of the same meaning on the instance in the NPP's private data:
 *
 *     static_cast<vask_np_instance*>(npp->pdata)->set_window(npp, window);
 *
 * What is stored there is a vask_np_instance*, not a pointer to the product's class.
 *
 * Only the factory makes and deletes instances. An instance whose scriptable object the browser
 * still holds outlives NPP_Destroy, until the browser lets go of it; see vask_np_factory.
 *
 * Browser's plug-in thread only.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_np_instance : public vask_script, public virtual vask_window_props {
public:
    /** @param name  name in diagnostics; not copied, must outlive the object */
    explicit vask_np_instance(const char* name);

    /** Logs at DBG. */
    ~vask_np_instance() override;

    /** @name For derived classes to override
     *
     * Each but init_preload() logs its signature at DBG and accepts what comes. Parameters are
     * those of the published NPP_ function, and what they point to stays the browser's.
     */
    ///@{

    /** Prepares an instance that is made ahead of time: there is no npp and no window of the
     *  browser yet. Called once. Does nothing. */
    virtual void init_preload();

    /**
     * The element's attributes.
     *
     * @param argc       number of entries in both arrays
     * @param argn,argv  names and values
     */
    virtual void parse_props(int16_t argc, char** argn, char** argv);

    /**
     * The element's window is there, was changed, or is gone. Logs what it is given.
     *
     * @param npp     the NPP that this instance is attached to
     * @param window  may be null
     * @return NPERR_NO_ERROR
     */
    virtual NPError set_window(NPP npp, NPWindow* window);

    /**
     * A stream begins.
     *
     * @param npp       the NPP that this instance is attached to
     * @param type      MIME type of the stream
     * @param stream    the stream
     * @param seekable  whether parts of it can be asked for
     * @param stype     untouched: the stream comes as NP_NORMAL
     * @return NPERR_NO_ERROR
     */
    virtual NPError new_stream(NPP npp, NPMIMEType type, NPStream* stream, NPBool seekable,
                               uint16_t* stype);

    /**
     * A stream has ended.
     *
     * @param npp     the NPP that this instance is attached to
     * @param stream  the stream
     * @param reason  why
     * @return NPERR_NO_ERROR
     */
    virtual NPError destroy_stream(NPP npp, NPStream* stream, NPReason reason);

    /**
     * How much of a stream may come now.
     *
     * @param npp     the NPP that this instance is attached to
     * @param stream  the stream
     * @return 0, the number of bytes: who wants data overrides it
     */
    virtual int32_t write_ready(NPP npp, NPStream* stream);

    /**
     * Data of a stream.
     *
     * @param npp     the NPP that this instance is attached to
     * @param stream  the stream
     * @param offset  where in the stream the data is, in bytes
     * @param len     number of bytes
     * @param buffer  the data, which stays the browser's
     * @return 0, the number of bytes taken
     */
    virtual int32_t write(NPP npp, NPStream* stream, int32_t offset, int32_t len, void* buffer);

    /**
     * The stream is in a file.
     *
     * @param npp        the NPP that this instance is attached to
     * @param stream     the stream
     * @param file_name  path of the file; null when it could not be written
     */
    virtual void stream_as_file(NPP npp, NPStream* stream, const char* file_name);

    /**
     * A request with notification has ended.
     *
     * @param npp          the NPP that this instance is attached to
     * @param url          what was requested
     * @param reason       why it has ended
     * @param notify_data  what was given with the request
     */
    virtual void url_notify(NPP npp, const char* url, NPReason reason, void* notify_data);

    /**
     * The page is printed.
     *
     * @param npp    the NPP that this instance is attached to
     * @param print  how
     */
    virtual void print(NPP npp, NPPrint* print);

    /**
     * An event of a windowless instance.
     *
     * @param npp    the NPP that this instance is attached to
     * @param event  an XEvent
     * @return 0: the event was not handled
     */
    virtual int16_t handle_event(NPP npp, void* event);

    /**
     * The browser tells something.
     *
     * @param npp       the NPP that this instance is attached to
     * @param variable  what it is about
     * @param value     depends on @p variable
     * @return NPERR_NO_ERROR
     */
    virtual NPError set_value(NPP npp, NPNVariable variable, void* value);

    /**
     * Answers NPPVpluginNeedsXEmbed with #needs_xembed and NPPVpluginScriptableNPObject with this
     * instance's object and a reference for the browser. Each question for the object makes the
     * browser create it again; a browser that starts its count anew then forgets the references of
     * earlier answers.
     *
     * @param npp       the NPP that this instance is attached to; may be null
     * @param variable  what is asked for
     * @param value     receives an NPBool or an NPObject*; untouched on failure
     * @return NPERR_NO_ERROR; NPERR_GENERIC_ERROR for the old scriptable interfaces, after
     *         "instance or instace->pdata is NULL" at ERR for an NPP without instance, and after
     *         "failed to create scriptable" at ERR when the browser makes no object;
     *         NPERR_INVALID_PARAM after "Unknown value: NUMBER" at WARN for any other variable
     */
    virtual NPError get_value(NPP npp, NPPVariable variable, void* value);

    ///@}

    using vask_window_props::save_window_data;

    /**
     * Stores the window's geometry and X window id; for set_window() of a derived class.
     *
     * @param window  null changes nothing
     */
    void save_window_data(NPWindow* window);

    /**
     * Runs a script in the page's window. The script may have this object deleted when this
     * returns.
     *
     * @param script  terminated text; may be null
     * @return the object that the script yields, with a reference that the caller releases; null
     *         without a line when the script fails or yields no object, when there is no window,
     *         for a null script and for an instance whose #npp is null. A text that the script
     *         yields is never freed
     */
    NPObject* create_npobj(const char* script);

protected:
    /** The answer to NPPVpluginNeedsXEmbed. True until a derived class changes it. */
    bool needs_xembed;

public:
    /** The browser's side of this instance. Null until the factory has attached it. Not cleared by
     *  vask_np_factory::destroy_instance(): while the browser still holds the scriptable object of
     *  an instance that is destroyed, this points to an NPP that is gone. */
    NPP npp;

    /** The instance was made ahead of time. */
    bool preloaded;

    /** @name How far the scriptable object is in its life
     *  Set by the factory and by the object's class; never cleared again.
     */
    ///@{
    bool npobj_allocated;   /**< the browser has created it */
    bool destroy_pending;   /**< NPP_Destroy has come while the browser held it */
    bool npobj_deallocated; /**< the browser has let go of it before NPP_Destroy */
    ///@}

private:
    // Makes the scriptable object, with a reference for the browser.
    VASK_HIDDEN NPError get_scriptable(NPP for_npp, NPObject** object);
};

#endif
