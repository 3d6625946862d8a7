// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_CHILD_H
#define VASK_CHILD_H

/**
 * @file
 * @brief A child application: the process that a parent starts and drives over the session bus.
 *
 * @since 2.0
 */

#include <map>
#include <memory>
#include <vector>

#include "vask_app.h"
#include "vask_export.h"

/** The GObject that stands on the bus for a child; private to the library. */
typedef struct _VaskChild VaskChild;

class vask_child;
class vask_child_state;

/**
 * Observes the signals of a child from inside its process.
 *
 * @param child      the child that raises the signal
 * @param signal_id  the signal
 * @param data       the signal's data, valid during the call; may be null
 * @param user_data  the pointer given at registration
 *
 * @since 2.0
 */
typedef void (*vask_child_signal_cb)(vask_child* child, int signal_id, const char* data,
                                     void* user_data);

/**
 * One registered observer of a child's signals.
 *
 * @since 2.0
 */
struct vask_child_signal_closure {
    vask_child_signal_cb callback; /**< whom to call */
    void* user_data;               /**< handed to the callback, not owned; may be null */
    int signal_id;                 /**< the signal to observe */
};

/**
 * @brief The application frame of a child.
 *
 * Construction puts the child on the session bus as "com.example.vask.Child_PID", with the object
 * "/com/example/vask/Child" and its interface "com.example.vask.Child" (methods Command and
 * SetWindow, signal ChildSignal). run() then serves the calls on the main loop.
 *
 * A process has at most one child on the bus, ever: a further object logs that at ERR and serves
 * nothing. The bus presence ends with the process; calls that come after the object's end are
 * answered with an error. A child whose bus goes away logs
 * "The connection to the session bus is lost" at ERR and leaves run() with status 1; from then on
 * init_failed() is true.
 *
 * What a child has given to the bus is handed over before run() returns, and before the object's
 * end. A bus that reads nothing is given up after 5 s, with
 * "The bus does not read; messages of this child are lost" at ERR. A process that ends in another
 * way, by exit() or a signal, loses what has not gone out yet.
 *
 * The object has to outlive run(). Outside of run(), command handlers, set_window() and observers
 * may delete it.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_child : public vask_app {
public:
    /**
     * A handler of one command.
     *
     * @param argument  what the caller sent, never null, valid during the call
     * @param reply     null on entry; may be set to a text that stays valid after the handler
     *                  returns and stays the handler's (a literal is legal). Null is sent as the
     *                  empty string. A reply that is not valid UTF-8, or too long for a message
     *                  of the bus (128 MiB), fails the call, with
     *                  "Failed to reply to command ID: REASON" at ERR under the name "vask_child"
     * @return whether the call succeeds; a failed one carries no reply. An exception fails a call
     *         of the bus at once, with "vask_child::command(): An exception was thrown: WHAT" at
     *         ERR under the name "vask"
     */
    typedef bool (vask_child::*cmd_handler)(const char* argument, const char** reply);

    /**
     * Joins the session bus, unless argv[0] is "--vask-app-no-sys-init". Blocks for the bus's
     * answers.
     *
     * A failure leaves a child without bus presence, for which init_failed() is still false; it is
     * logged at ERR: "Failed to get DBUS connection: REASON" (no line end),
     * "RequestName for 'NAME'' failed: REASON" or "This process has a child on the bus already".
     *
     * @param name  name in diagnostics; not copied, must outlive the object
     * @param argc  number of entries in @p argv
     * @param argv  the command line; copied from argv[1] on
     */
    vask_child(const char* name, int argc, char** argv);

    ~vask_child() override;

    /**
     * Runs the main loop, which serves the bus, as vask_app::run() does. Then blocks until the bus
     * has taken everything that waits to go out, for as long as the bus reads.
     *
     * @return as vask_app::run()
     */
    int run() override;

    /**
     * Raises a signal: calls the local observers, then sends ChildSignal to the bus.
     *
     * Signals are not kept: one that is raised before the parent has met the child is lost. When an
     * observer deletes the child or throws, the signal is not sent; the exception leaves this
     * function.
     *
     * @param signal_id  any number that parent and child agree on
     * @param data       text of the signal; null is sent as the empty string. Text that is not
     *                   valid UTF-8, or too long for a message of the bus (128 MiB), is not sent:
     *                   "Failed to emit signal ID: REASON" at ERR
     */
    virtual void emit_signal(int signal_id, const char* data);

    /**
     * The parent names the window to draw into. The base only logs it at DBG. An exception fails
     * the call of the bus, with "vask_child::set_window(): An exception was thrown: WHAT" at ERR
     * under the name "vask".
     *
     * @param x,y  left and top edge, in pixels
     * @param w,h  width and height, in pixels
     * @param id   X window id
     */
    virtual void set_window(int x, int y, int w, int h, unsigned int id);

    /**
     * Dispatches a command to its handler. Runs on the main loop.
     *
     * @param id        command id
     * @param argument  text of the command
     * @param reply     not null; set to null before the handler runs, untouched without one
     * @return what the handler returned; false, with "Command ID: ID is not supported" at WARN,
     *         when there is none
     */
    virtual bool command(int id, const char* argument, const char** reply);

    /**
     * Registers a local observer. Registering it twice has it called twice. Observers may be
     * registered and removed inside an observer; that takes effect at once, but an observer added
     * meanwhile is not called for the signal that is being raised. One that is removed and added
     * again meanwhile counts as never removed.
     *
     * @param callback   not null
     * @param signal_id  the signal to observe
     * @param user_data  handed to the callback; may be null
     */
    virtual void connect_child_signal(vask_child_signal_cb callback, int signal_id,
                                      void* user_data);

    /**
     * Removes every observer that was registered with exactly these arguments, if any.
     *
     * @param callback   as it was registered
     * @param signal_id  as it was registered
     * @param user_data  as it was registered
     */
    virtual void disconnect_child_signal(vask_child_signal_cb callback, int signal_id,
                                         void* user_data);

    /**
     * Calls the local observers of a signal, in the order of registration. Sends nothing. Stops at
     * the first observer that deletes the child or throws; the exception leaves this function.
     *
     * @param signal_id  the signal
     * @param data       text of the signal; may be null
     */
    void observe_signal(int signal_id, const char* data);

protected:
    /**
     * Adds or replaces the handler of a command.
     *
     * @param id       command id
     * @param handler  a member of the subclass, cast to #cmd_handler; virtual members are honoured
     */
    void add_cmd_handler(int id, cmd_handler handler);

    /** The object that stands on the bus for this child, until the process ends; null without
     *  system initialisation and in a second child that was refused. After a failure of the bus it
     *  is there, but not on the bus, and ends with the child. */
    VaskChild* m_bus_object;

    /** The handlers, by command id. */
    std::map<int, cmd_handler> m_cmd_handlers;

    /** The local observers, in the order of registration. */
    std::vector<vask_child_signal_closure> m_signal_closures;

private:
    friend class vask_child_state;

    // Takes the child's name and registers its object on the session bus; a failure is one line.
    VASK_HIDDEN void join_bus();

    // What derived classes need not see; never null, and this object's for its whole life.
    const std::unique_ptr<vask_child_state> m_state;
};

#endif
