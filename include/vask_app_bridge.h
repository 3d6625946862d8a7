// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_APP_BRIDGE_H
#define VASK_APP_BRIDGE_H

/**
 * @file
 * @brief The parent's side of a child application: starting it, meeting it on the bus, driving it
 *        and hearing of its end.
 *
 * @since 2.0
 */

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "vask_error.h"
#include "vask_export.h"
#include "vask_object.h"
#include "vask_window_props.h"

/** GLib's error; declared here so that this header does not need GLib's. */
typedef struct _GError GError;

/** The bus library's connection; declared here so that this header does not need its own. */
typedef struct _DBusGConnection DBusGConnection;

/** The bus library's proxy; declared here so that this header does not need its own. */
typedef struct _DBusGProxy DBusGProxy;

class vask_app_bridge;
class vask_app_bridge_state;
class vask_child_proxy_state;

/**
 * A command that waits for its child to appear on the bus.
 *
 * @since 2.0
 */
struct VASK_EXPORT child_cmd_buffer {
    /**
     * @param id        command id
     * @param argument  copied; null gives an empty argument
     */
    child_cmd_buffer(int id, const char* argument);

    /**
     * @param id        command id
     * @param argument  copied
     */
    child_cmd_buffer(int id, const std::string& argument);

    int id;               /**< command id */
    std::string argument; /**< text of the command */
};

/**
 * @brief The parent's record of one spawned child: process, bus name, bus proxy, waiting commands.
 *
 * The bridge makes one for each child right after the spawn and deletes it when the child has
 * ended. The bus proxy exists once the child was met; the bus address as well, until the bridge
 * notices that the child has left the bus. Main loop thread only.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_child_proxy : public virtual vask_object {
public:
    /**
     * @param bridge    receives the child's signals; must outlive this object
     * @param name      name in diagnostics; not copied, must outlive this object
     * @param pid       the child; 0 makes a proxy without bus name
     * @param watch_id  the child-watch source, which this object removes when it ends; 0 for none
     */
    vask_child_proxy(vask_app_bridge& bridge, const char* name, int pid, unsigned int watch_id);

    /** Ends the child watch and the bus proxy; commands that still wait are dropped silently. */
    ~vask_child_proxy() override;

    /** @return the child's process id */
    int get_pid() const;

    /** Remembers that the parent has asked the child to end. */
    void set_terminating();

    /** @return whether the parent has asked the child to end */
    bool is_terminating() const;

    /**
     * @param name  a bus name; may be null
     * @return whether it is this child's well-known name
     */
    bool is_mine(const char* name) const;

    /** @return the unique name of the child's connection, or null; valid until it is set again */
    const char* get_bus_addr() const;

    /** @param addr  copied; null while the child is not on the bus */
    void set_bus_addr(const char* addr);

    /** @return the proxy through which commands go, or null before bus_setup(); stays this
     *          object's */
    DBusGProxy* get_bus_proxy() const;

    /** @return whether there is a bus proxy whose connection to the bus still stands */
    bool is_bus_alive() const;

    /**
     * Makes the bus proxy and listens to the child's signals. A bus proxy that exists already is
     * replaced, or every signal would arrive twice. Does not block.
     *
     * @param connection  the session bus; null or a lost one makes no bus proxy, nor does a proxy
     *                    without bus name
     */
    void bus_setup(DBusGConnection* connection);

    /** Stops listening and releases the bus proxy, if there is one. */
    void bus_destroy();

    /** @param cmd  appended to the waiting commands, which own it from now on; not null */
    void enqueue_cmd(child_cmd_buffer* cmd);

    /** @return the oldest waiting command, which the caller deletes, or null */
    child_cmd_buffer* dequeue_cmd();

    /** Deletes every waiting command. */
    void queue_purge();

private:
    friend class vask_app_bridge;

    // What the bus calls for a signal of the child; user_data is the vask_child_proxy.
    VASK_HIDDEN static void _child_signal(DBusGProxy* proxy, int signal_id, const char* data,
                                          void* user_data);

    // What derived classes need not see; never null, and this object's for its whole life.
    const std::unique_ptr<vask_child_proxy_state> m_state;
};

/**
 * When set_window() of a bridge sends the geometry to the child.
 *
 * @since 2.0
 */
enum auto_send_set_window_type : int {
    VASK_AUTO_SEND_SET_WINDOW_NONE = 0,   /**< never; it is not even saved */
    VASK_AUTO_SEND_SET_WINDOW_ALWAYS = 1, /**< every time */
    VASK_AUTO_SEND_SET_WINDOW_CHANGED = 2 /**< when it changed, or nothing was sent since
                                               vask_app_bridge::free_child_resource() */
};

/**
 * @brief The parent's handle on one child application, or on a pair of them (twins).
 *
 * Life of a worker, as the bridge sees it:
 *
 *     empty --spawn()--> spawned --name on the bus--> on the bus --bus lost--> connection lost
 *       ^                   |                             |                          |
 *       |                   +-----------terminate_worker(), or the child dies--------+
 *       +--child_exit_cb() / child_crash_cb()-------------+
 *
 * On its first appearance on the bus a worker gets the saved geometry and then, in order, the
 * commands that were queued for it. Once every worker has appeared the bridge no longer watches the
 * bus. A child that is spawned later, such as after a crash of one that was met, is therefore met
 * only if init_proxy() is called before that spawn().
 *
 * A worker that ends is an exit if terminate_worker() was called for it, and a crash otherwise,
 * whatever its exit status. What a worker on the bus has sent before it ended comes first: the slot
 * stays occupied, and get_child_pid() as it is, until all its signals were delivered, or the bus
 * has said nothing for about a second. While the callback for a signal runs a main loop of its own,
 * nothing comes from the bus, so the end is reported after that second.
 *
 * The bridge may be deleted inside child_signal() and the callbacks for signals, child_exit_cb(),
 * child_crash_cb(), and terminate_worker_impl() or a main loop that it runs. An exception that
 * leaves one of them is logged at ERR and goes no further when the main loop has called it; out of
 * terminate_worker_impl() it comes to whoever has called terminate_worker().
 *
 * With twins mode two children of the same program run, and one of them, the main worker, gets the
 * commands; switch_main_worker() changes places.
 *
 * A parent whose session bus goes away lives on: its calls fail with their messages.
 *
 * Everything runs on the main loop thread.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_app_bridge : public virtual vask_object, public virtual vask_window_props {
public:
    /** A member of a subclass that handles one signal of the child; @p data is never null and valid
     *  during the call. */
    typedef void (vask_app_bridge::*child_sig_cb)(const char* data);

    /**
     * @param name          name in diagnostics; not copied, must outlive the object
     * @param no_bus_watch  true leaves it to the application to call init_proxy(); without it no
     *                      child is met
     */
    vask_app_bridge(const char* name, bool no_bus_watch);

    /**
     * Ends every child and blocks, without limit, until they have ended. The main loop does not run
     * meanwhile.
     *
     * A subclass's part is gone by then. So this class's terminate_worker_impl() ends the children,
     * also one whose own request has thrown or is still running, and no callback is called. A
     * subclass with another way of ending its child calls terminate_all_workers()
     * and vask_wait_child_exit() in its own destructor.
     */
    virtual ~vask_app_bridge();

    /**
     * A signal from the child; called by the proxy. Runs the callback that was set for it, or logs
     * "Signal: 'ID' is not supported" at WARN.
     *
     * @param signal_id  the signal
     * @param data       text of the signal, valid during the call
     */
    virtual void child_signal(int signal_id, const char* data);

    /**
     * Names the window that the child draws into, and its geometry; see
     * set_auto_send_set_window_type() for what happens with them. Without a child on the bus they
     * are only saved, and go out when the child appears, if width and height are above 0.
     *
     * @param x,y  left and top edge, in pixels
     * @param w,h  width and height, in pixels
     * @param id   X window id; its low 32 bits are sent
     */
    virtual void set_window(int x, int y, int w, int h, vask_window_id_t id);

    /** @return false outside twins mode; otherwise the other worker is the main one now */
    virtual bool switch_main_worker();

    /**
     * A worker has ended as the parent had asked. Its proxy is gone already.
     *
     * @param is_main  whether it was the main worker
     */
    virtual void child_exit_cb(bool is_main);

    /**
     * A worker has ended without being asked. Its proxy is gone already.
     *
     * @param is_main  whether it was the main worker
     */
    virtual void child_crash_cb(bool is_main);

    /**
     * Ends the main worker: sends SIGTERM, then SIGCONT so that a stopped child receives it, unless
     * the child is traced. Called by terminate_worker(); a subclass may send a command instead.
     * Nothing is sent to a process that has been reaped already.
     */
    virtual void terminate_worker_impl();

    /** @name Life of the child */
    ///@{

    /** Watches the bus for the child, from when it returns on; see connect_name_owner_changed(),
     *  also for how long it may block. */
    void init_proxy();

    /**
     * Starts the child, or in twins mode both, in every slot that is empty.
     *
     * The child's environment is the parent's, then @p envs, then VASK_NEST_LV, one more than the
     * parent's. An entry of @p envs comes behind the parent's variable of the same name, and C
     * programs see the first of two.
     *
     * @param argv  the program's path and its arguments; copied
     * @param envs  additional variables, "NAME=value"; copied
     * @return not whether it worked! Outside twins mode a started child gives false, and a failed
     *         start (logged: "Failed to spawn" at ERR) or an occupied slot gives true. In twins
     *         mode it is always true. An empty @p argv gives false, after
     *         "The commad is not given (argv is empty)" at ERR. The callbacks and get_child_pid()
     *         tell what became of the child
     *
     * Does not wait for the child.
     */
    bool spawn(strlist& argv, strlist& envs);

    /** Has two workers run, from the next spawn() on. */
    void enable_twins_mode();

    /** @return the proxy of the main worker, or null; stays the bridge's */
    vask_child_proxy* main_worker() const;

    /** The same as main_worker(). @return the proxy of the main worker, or null */
    vask_child_proxy* get_child_proxy() const;

    /** @return the main worker's process id, -1 without one */
    int get_child_pid() const;

    /** @return the main worker's unique bus name; null until it was met, and after a loss that the
     *          bridge has noticed. Once the bus is no longer watched a loss goes unnoticed, and the
     *          name stays */
    const char* get_child_bus_addr() const;

    /** @param priority  priority number (see vask_object) for children spawned from now on; 0
     *                   leaves them alone */
    void set_child_priority(int priority);

    /** @return the number set last, 0 at first */
    int get_child_priority() const;

    /** Asks the main worker to end, once. Does not wait: child_exit_cb() tells when it has. While a
     *  process that has ended still has signals to come, nobody is asked, and the end counts as an
     *  exit. */
    void terminate_worker();

    /** Asks all workers to end, slot 0 first. If the bridge is deleted meanwhile, those that are
     *  left are ended by its destructor. */
    void terminate_all_workers();

    /**
     * Blocks until every worker that was asked to end has ended, polling every 10 ms; the main loop
     * does not run meanwhile, and child_exit_cb() is not called for these workers. Signals of
     * theirs that were not delivered yet are dropped.
     *
     * A worker that is still there after the time-out is no longer the bridge's: its slot is empty,
     * it is not killed, and it is reaped silently when it ends.
     *
     * @param timeout_ms  for each worker; 0 waits without limit
     * @return false if a worker outlived its time-out ("timeouted" at INFO). A failing waitpid()
     *         (logged at ERR with errno; ECHILD when somebody else has reaped the child) counts as
     *         the worker's end
     */
    bool vask_wait_child_exit(unsigned int timeout_ms);

    /** Forgets that geometry was sent, to either twin. Called when a worker has ended, before its
     *  callback, but not by vask_wait_child_exit(). */
    void free_child_resource();

    /**
     * Watches the session bus for the child, unless it does already. Blocks until the bus has taken
     * everything that this process has sent it, so that no child of a later spawn() can be missed;
     * for 25 s at most. Then it logs "The session bus does not answer: REASON" at ERR and does not
     * watch, so that it can be called again. Nothing is handled meanwhile.
     *
     * Without a bus it logs "Failed to open DBUS session: REASON" and "Failed to get DBUS proxy" at
     * ERR (no line ends), and no child is met.
     */
    void connect_name_owner_changed();

    /** Ends the watch. Connections to children that were met stay. */
    void disconnect_name_owner_changed();

    /**
     * Tells whether a child can be met. Without a session bus it cannot, and waiting for it would
     * be in vain.
     *
     * @return true while the bus is watched: from the construction or init_proxy() until every
     *         child is met, or the bus is gone
     */
    bool is_watching_bus() const;

    ///@}
    /** @name Commands and window data
     *
     * Operations that take a vask_error fill it, if it is not null, when they say so; otherwise it
     * is left alone.
     */
    ///@{

    /**
     * Sends a command and waits for the reply. Blocks until the child answers, ends, or the bus
     * library's time-out (about 25 s) is over; the main loop does not run meanwhile.
     *
     * @param id        command id
     * @param reply     receives the reply, for g_free(); untouched on failure; may be null
     * @param argument  text of the command, valid UTF-8; null is sent as the empty string
     * @param err       may be null; filled with ::VASK_ERR_NOT_SPAWNED (logged at ERR) or, while
     *                  the child is not on the bus yet, ::VASK_ERR_NO_CHILD_PROXY (logged at DBG)
     * @return true when the child handled the command; false as above, or, with
     *         "Failed to send command ID: REASON" at ERR, when the call failed, the argument is not
     *         valid UTF-8 or the bus is lost
     */
    bool send_cmd(int id, char** reply, const char* argument, vask_error* err = nullptr);

    /**
     * The same with strings. Blocks as well.
     *
     * @param id        command id
     * @param reply     receives the reply; untouched on failure
     * @param argument  text of the command, valid UTF-8, up to its first zero byte
     * @param err       as above
     * @return as above
     */
    bool send_cmd(int id, std::string& reply, std::string& argument, vask_error* err = nullptr);

    /**
     * Sends a command and does not wait. While the child is not on the bus yet the command is
     * queued; the queue has no limit and is lost with the child.
     *
     * @param id        command id
     * @param argument  text of the command, copied; valid UTF-8; null is sent as the empty string
     * @param err       may be null; filled with ::VASK_ERR_NOT_SPAWNED (logged at ERR)
     * @return true when it was sent or queued, whatever becomes of it; false as above, or, with
     *         "Failed to send command ID: REASON" at ERR, when the argument is not valid UTF-8 or
     *         the bus is lost
     */
    bool send_cmd_no_reply(int id, const char* argument, vask_error* err = nullptr);

    /**
     * The same with the string's text.
     *
     * @param id        command id
     * @param argument  text of the command, copied up to its first zero byte; valid UTF-8
     * @param err       as above
     * @return as above
     */
    bool send_cmd_no_reply(int id, std::string& argument, vask_error* err = nullptr);

    /**
     * The same with the string's text.
     *
     * @param id        command id
     * @param argument  text of the command, copied up to its first zero byte; valid UTF-8
     * @param err       as above
     * @return as above
     */
    bool send_cmd_no_reply(int id, const std::string& argument, vask_error* err = nullptr);

    /**
     * Sends the queued commands of a child, in order. Does not wait. A command whose text cannot
     * travel on the bus is dropped, with "Failed to send command ID: REASON" at ERR.
     *
     * @param proxy  null does nothing; without a bus proxy, or when the bus is lost, its queue is
     *               kept
     */
    void flush_child_cmd_buffer(vask_child_proxy* proxy);

    /**
     * Sends the saved geometry. Does not wait.
     *
     * @param proxy  the child; null fails
     * @param force  false sends only if nothing was sent, to either twin, since
     *               free_child_resource()
     * @param err    may be null; filled with ::VASK_ERR_NOT_SPAWNED (logged at ERR) or
     *               ::VASK_ERR_NO_CHILD_PROXY (logged at DBG)
     * @return true when it was sent or need not be; false as above, or, with
     *         "Failed to send window data: REASON" at ERR, when the bus is lost
     */
    bool send_window_data(vask_child_proxy* proxy, bool force, vask_error* err = nullptr);

    /**
     * The same for the main worker.
     *
     * @param force  as above
     * @param err    as above
     * @return as above
     */
    bool send_window_data(bool force, vask_error* err = nullptr);

    /** Not to be called: the pointer would be taken for the @p force of the form above. */
    template <typename Pointee>
    bool send_window_data(Pointee* proxy, vask_error* err = nullptr) = delete;

    /**
     * Stores the geometry without sending it; see vask_window_props::save_window_data().
     *
     * @param x,y  left and top edge, in pixels
     * @param w,h  width and height, in pixels
     * @param xid  X window id
     */
    void save_window_data(int x, int y, int w, int h, vask_window_id_t xid);

    /** @param type  what set_window() does from now on; at first
     *               ::VASK_AUTO_SEND_SET_WINDOW_NONE. Any other value also has the saved geometry
     *               sent when the child appears on the bus, if width and height are above 0 */
    void set_auto_send_set_window_type(auto_send_set_window_type type);

    /**
     * Sets, replaces or removes what handles a signal of the child.
     *
     * @param signal_id  the signal
     * @param cb         a member of the subclass, cast to #child_sig_cb; virtual members are
     *                   honoured; null removes the one that was set, if any
     */
    void set_child_sig_cb(int signal_id, child_sig_cb cb);

    /**
     * @param error  stays the caller's; may be null
     * @return "CODE: MESSAGE", however long, or "Error occured but GError is NULL." for null
     */
    std::string build_error_message_from_gerror(GError* error) const;

    /**
     * Chains a copy of an error behind another one.
     *
     * @param err   null does nothing
     * @param next  copied; null changes nothing
     */
    void set_next_error(vask_abstract_error* err, vask_abstract_error* next) const;

    ///@}
    /** @name Base URI */
    ///@{

    /**
     * @param uri  replaces the base URI if it holds "://"
     * @param err  may be null; filled with ::VASK_ERR_INVALID_URI, logged at ERR:
     *             "Invalid URI: 'TEXT'."
     * @return false, with the base URI as it was, when @p uri does not hold "://"
     */
    bool set_base_uri(std::string& uri, vask_error* err = nullptr);

    /** @return the base URI, empty at first; valid until it is set again */
    const std::string& get_base_uri() const;

    /**
     * Appends a file name to the base URI, as it stands: a name that begins with "/" to its scheme
     * and authority, any other name to the whole base URI (not to its directory). Nothing is
     * escaped or resolved.
     *
     * @param fname  the file name
     * @param err    may be null; filled with ::VASK_ERR_INVALID_URI, logged at ERR, when there is
     *               no base URI: "Wrong call of conver_to_uri: 'TEXT'"
     * @return the URI, or an empty string on failure
     */
    std::string convert_to_uri(const std::string& fname, vask_error* err = nullptr);

    ///@}
    /** @name Called by the bus and the main loop */
    ///@{

    /**
     * A name on the bus has changed hands: where the child is met, and its loss noticed.
     *
     * @param proxy      the bus daemon's proxy
     * @param name       the name
     * @param old_owner  unique name of the connection that had it; empty for none
     * @param new_owner  unique name of the connection that has it; empty for none
     * @param user_data  not used
     */
    void name_owner_changed(DBusGProxy* proxy, const char* name, const char* old_owner,
                            const char* new_owner, void* user_data);

    /**
     * A child has ended: deletes its proxy and calls child_exit_cb() or child_crash_cb().
     *
     * @param pid     the child; one that no slot holds is logged at ERR and aborts the process
     * @param status  its wait status
     */
    void child_watch(int pid, int status);

    /**
     * Forwards GLib's child watch to child_watch().
     *
     * @param pid     the child
     * @param status  its wait status
     * @param data    the bridge, as a pointer to vask_app_bridge
     */
    static void _child_watch(int pid, int status, void* data);

    ///@}

protected:
    /** Priority number of children to come; 0 leaves them alone. */
    int m_child_priority;

    /** When set_window() sends. */
    auto_send_set_window_type m_auto_send_type;

    /** How often the geometry was sent since free_child_resource(); one count for both twins. */
    std::uint64_t m_window_data_sent_count;

    /** The session bus, with a reference of this object; null without one. */
    DBusGConnection* m_bus_connection;

    /** Proxy of the bus daemon, owned, while the bus is watched; else null. */
    DBusGProxy* m_bus_daemon_proxy;

    /** What handles the child's signals, by signal id. */
    std::map<int, child_sig_cb> m_child_sig_cbs;

    /** The base URI; empty at first. */
    std::string m_base_uri;

    /** Whether two workers are run. */
    bool m_twins_mode;

    /** The workers, owned; null is an empty slot. A worker is here from its start until its end is
     *  reported, or vask_wait_child_exit() has waited for it. */
    vask_child_proxy* m_child_proxy[2];

    /** Which slot is the main worker's: 0 or 1. */
    int m_main_worker_index;

private:
    // What the bus calls for a new owner of any name.
    VASK_HIDDEN static void _name_owner_changed(DBusGProxy* proxy, const char* name,
                                                const char* old_owner, const char* new_owner,
                                                void* bridge);

    // Starts a child in an empty slot.
    VASK_HIDDEN bool spawn_worker(int slot, const strlist& argv, const strlist& environment);

    // Tells one worker of a name's new owner. False when the worker is not on the bus afterwards.
    VASK_HIDDEN bool meet_child(vask_child_proxy* child, const char* name, const char* old_owner,
                                const char* new_owner);
    // The child with this process id, or null.
    VASK_HIDDEN vask_child_proxy* find_child(int pid) const;

    // Deletes a child that has ended and calls child_exit_cb() or child_crash_cb(), which may
    // delete this bridge. The one for C lets no exception through.
    VASK_HIDDEN void report_end_for_c(vask_child_proxy* child, int pid);
    VASK_HIDDEN void report_end(vask_child_proxy* child, int pid);

    // False when the child has outlived the time-out; 0 is none.
    VASK_HIDDEN bool wait_for_end(const vask_child_proxy& child, unsigned int timeout_ms) const;

    // Logs a failure and, unless err is null, stores it there. Returns false.
    VASK_HIDDEN bool report_failure(vask_print_level level, vask_error_code_t code,
                                    const std::string& message, vask_error* err) const;

    // What derived classes need not see; never null, and this object's for its whole life.
    const std::unique_ptr<vask_app_bridge_state> m_state;
};

#endif
