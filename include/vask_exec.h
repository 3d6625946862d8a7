// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_EXEC_H
#define VASK_EXEC_H

/**
 * @file
 * @brief Calls of member functions that are made later, from the main loop.
 *
 * @since 2.0
 */

#include <list>

#include "vask_export.h"

class vask_exec;
class life_mark;

/**
 * A member function that can be called later. A member of a derived class is cast to it; virtual
 * members are honoured. The class has to derive from vask_exec without `virtual`.
 *
 * @since 2.0
 */
typedef void (vask_exec::*vask_exec_func)(void*);

/**
 * One pending idle call of an object.
 *
 * @since 2.0
 */
struct vask_exec_info {
    vask_exec_func func; /**< the function to call */
    void* data;          /**< its argument, not owned */
};

/**
 * A whole callback: calling it means calling @ref func on @ref obj with @ref data. Passed and
 * stored by value. Where one is kept as a handler, a null @ref obj or @ref func means that there is
 * none.
 *
 * @since 2.0
 */
struct vask_obj_exec_info {
    vask_exec_func func; /**< the function to call */
    void* data;          /**< its argument, not owned */
    vask_exec* obj;      /**< the object on which it is called, not owned */
};

/**
 * @brief Lets an object have its own member functions called later by the default main loop.
 *
 * Idle calls of an object run in the order in which they were added, one per idle dispatch, so that
 * other sources are served between them. A timer runs once.
 *
 * An object must not be deleted while an idle call or a timer of it is pending: neither is taken
 * back. It may not be deleted in its own idle call either.
 *
 * A call that throws ends there: when the main loop has made it, one line at ERR tells what was
 * thrown, and the calls behind it run as after any other.
 *
 * Threads: everything happens on the thread of the default main context; nothing is locked.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_exec {
public:
    vask_exec();
    vask_exec(const vask_exec&) = delete;
    vask_exec& operator=(const vask_exec&) = delete;

    /**
     * Runs the oldest pending idle call and then forgets it. One dispatch of the idle source.
     *
     * @return true while calls remain; false, which ends the idle source, when there are none
     *         (left), and when a main loop inside an idle call dispatches it, which runs nothing.
     *         What the call throws leaves this function, and the call is forgotten all the same
     */
    virtual bool idle_callback();

    /** Forgets the pending idle calls without running them. */
    virtual ~vask_exec();

    /**
     * Has a member function called when the main loop is idle (G_PRIORITY_DEFAULT_IDLE).
     *
     * An idle source is started when *this* object has no pending idle call, whoever the target is.
     * A caller that passes a foreign target sees to it that the target's calls are being
     * dispatched.
     *
     * @param func    called on the target; not null
     * @param data    its argument, not owned; may be null
     * @param target  null for this object
     */
    void add_idle_exec_func(vask_exec_func func, void* data, vask_exec* target = nullptr);

    /**
     * Has a member function called once, after some time (G_PRIORITY_DEFAULT).
     *
     * @param interval_msec  milliseconds; 0 or less for the next dispatch
     * @param func           called on the target; not null
     * @param data           its argument, not owned; may be null
     * @param target         null for this object
     * @return id of the timer's GLib source; g_source_remove() takes the timer back, until it runs
     */
    unsigned int add_timer_exec_func(int interval_msec, vask_exec_func func, void* data,
                                     vask_exec* target = nullptr);

    /**
     * Forwards an idle dispatch of GLib to idle_callback().
     *
     * @param exec  a vask_exec
     * @return what idle_callback() returns; whether calls remain when it throws, which is logged
     *         at ERR as "vask_exec::idle_callback(): An exception was thrown: WHAT". The oldest
     *         call is forgotten then, also if an override has thrown before it made the call
     */
    static int _idle_callback(void* exec);

    /**
     * Makes the call of a timer. What it throws is logged at ERR as "vask_exec::_timer_callback():
     * An exception was thrown: WHAT".
     *
     * @param info  the timer's vask_obj_exec_info
     * @return always 0: a timer runs once
     */
    static int _timer_callback(void* info);

protected:
    /** The pending idle calls, oldest first; one that runs stays in front until it returns. */
    std::list<vask_exec_info> exec_list;

private:
    friend class life_mark;

    // Two words in this header, because a server makes thousands of such objects.

    // Whether idle_callback() is making the first call of exec_list. Only that function removes the
    // call from the list meanwhile.
    bool m_idle_call_runs;

    // The innermost mark of this object, on the stack of a running function; null when there is
    // none.
    life_mark* m_life_marks;
};

/**
 * Frees the record of a timer; GLib calls it when the timer's source ends.
 *
 * @param info  a vask_obj_exec_info made with new
 *
 * @since 2.0
 */
VASK_EXPORT void delete_vask_exec_info(void* info);

#endif
