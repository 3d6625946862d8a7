// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_NP_FACTORY_H
#define VASK_NP_FACTORY_H

/**
 * @file
 * @brief Makes and destroys the instances of a plug-in, some of them ahead of time, and answers for
 *        the plug-in as a whole.
 *
 * @since 2.0
 */

#include <cstdint>
#include <deque>

#include "vask_np_instance.h"

/**
 * @brief The one object behind the entry points of a plug-in's shared object.
 *
 * The product makes one factory of a class of its own when the browser loads it, and forwards its
 * NP_ functions, NPP_New and NPP_Destroy to it. The factory must live as long as the shared object
 * is loaded: timers of a factory with preloading call it after its end. For the same reason a
 * product with preloading must not be unmapped, which linking it with `-z nodelete` prevents.
 *
 * Who owns an instance: first the queue of preloaded ones, then the NPP whose private data it is
 * in, until NPP_Destroy. If the browser holds the scriptable object at that time, the browser owns
 * the instance until it drops its last reference.
 *
 *     scriptable object at NPP_Destroy    what destroy_instance() does
 *     --------------------------------    -----------------------------------------------------
 *     never asked for                     deletes the instance
 *     held by the browser                 notes that its destruction is pending and releases one
 *                                         reference; deallocation deletes the instance, which may
 *                                         happen inside this release
 *     deallocated at least once           deletes the instance, even if the browser has asked for
 *                                         the object again since
 *
 * Browser's plug-in thread only, which has to run the default main context for preloading.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_np_factory : public vask_np_base {
public:
    /**
     * No text is copied; all must outlive the factory and its instances, and the browser's use of
     * them.
     *
     * @param mime_description    as NP_GetMIMEDescription gives it to the browser
     * @param name                name of the factory and of its instances in diagnostics
     * @param plugin_name         answer to NPPVpluginNameString
     * @param plugin_description  answer to NPPVpluginDescriptionString
     */
    vask_np_factory(const char* mime_description, const char* name, const char* plugin_name,
                    const char* plugin_description);

    /** Neither deletes the instances in the queue nor stops timers. */
    ~vask_np_factory() override;

    /** @name For the product's entry points
     *  Each but calc_delayed_spawn_time() logs its signature at DBG.
     */
    ///@{

    /**
     * Makes an instance; a product overrides it to make its own class.
     *
     * @return the instance, or null after "Failed to create data" at ERR when memory runs out
     */
    virtual vask_np_instance* create_instance();

    /** @return how long a preloaded instance that was taken waits for its successor, in
     *          milliseconds: 2000 to 4000, by rand() */
    virtual unsigned int calc_delayed_spawn_time();

    /**
     * NPP_New: attaches the oldest preloaded instance to @p npp, or a new one, and hands it the
     * element's attributes. An exception from there leaves the instance attached.
     *
     * @param npp              receives the instance, or null, as its private data
     * @param argc,argn,argv   the element's attributes
     * @param type,mode,saved  not used
     * @return NPERR_NO_ERROR, or NPERR_OUT_OF_MEMORY_ERROR after "Failed to create
     *         vask_np_instance" at ERR, without a line end
     */
    virtual NPError new_instance(NPMIMEType type, NPP npp, uint16_t mode, int16_t argc, char** argn,
                                 char** argv, NPSavedData* saved);

    /**
     * NPP_Destroy: deletes the instance, or leaves that to the browser as shown above. An
     * instance that is left keeps its vask_np_instance::npp, although that ends with this call.
     *
     * @param npp   an NPP with an instance in its private data, which stays as it is
     * @param save  not written
     * @return NPERR_NO_ERROR
     */
    virtual NPError destroy_instance(NPP npp, NPSavedData** save);

    /**
     * NP_Initialize, after the product has copied the browser's table and filled the plug-in's.
     *
     * @param browser  the browser's functions; left alone
     * @param plugin   the plug-in's functions; left alone
     * @return NPERR_NO_ERROR
     */
    virtual NPError _NP_Initialize(NPNetscapeFuncs* browser, NPPluginFuncs* plugin);

    /**
     * NP_GetValue: the plug-in's name and description.
     *
     * @param future    not used
     * @param variable  NPPVpluginNameString or NPPVpluginDescriptionString
     * @param value     receives a text, which stays this factory's; untouched on failure
     * @return NPERR_NO_ERROR, or NPERR_INVALID_PARAM after "Unknown variable NUMBER" at WARN
     */
    virtual NPError NP_GetValue(void* future, NPPVariable variable, void* value);

    /** NP_GetMIMEDescription. @return a text that stays this factory's and must not be changed */
    virtual char* NP_GetMimeDescription();

    /** NP_Shutdown. Does nothing. @return NPERR_NO_ERROR */
    virtual NPError NP_Shutdown();

    ///@}
    /** @name Preloading */
    ///@{

    /**
     * Keeps instances ready from now on, and makes them at once, in addition to those that are
     * ready already. Normally called once, right after construction.
     *
     * @param count  the number of instances; 0 or below makes none and replaces none, while what
     *               is queued stays and is handed out
     */
    void set_preload(int count);

    /** Makes one instance, prepares it with vask_np_instance::init_preload() and queues it. Lets an
     *  exception of either out, after it has deleted the instance. Throws std::bad_alloc if
     *  create_instance() returns null. */
    void make_preload_instance();

    /**
     * Takes the oldest instance out of the queue, which must not be empty. If there would be fewer
     * than set_preload() asked for, counting those under way, one more is made after
     * calc_delayed_spawn_time(). When that throws, the queue is as before.
     *
     * @return the instance, which is the caller's
     */
    vask_np_instance* get_preload_instance();

    /** Makes the instance that get_preload_instance() has asked for. @return FALSE, which ends the
     *  timer */
    int delayed_spawn_preload_instance();

    /**
     * The timer's function. What make_preload_instance() throws is logged at ERR, as
     * "vask_np_factory::delayed_spawn_preload_instance(): An exception was thrown: WHAT", and the
     * timer tries again after the same time.
     *
     * @param factory  a vask_np_factory
     * @return as delayed_spawn_preload_instance(), or TRUE after an exception
     */
    static int _delayed_spawn_preload_instance(void* factory);

    ///@}

protected:
    /** What NP_GetMimeDescription() returns; not owned. */
    const char* mime_description;

    /** The answer to NPPVpluginNameString; not owned. */
    const char* plugin_name;

    /** The answer to NPPVpluginDescriptionString; not owned. */
    const char* plugin_description;

    /** Number of ready instances to keep. */
    int preload_count;

    /** Number of instances that a timer will make. */
    int pending_spawns;

    /** The ready instances, oldest first. */
    std::deque<vask_np_instance*> preload_queue;
};

#endif
