#ifndef VASK_OBJECT_H
#define VASK_OBJECT_H

/**
 * @file
 * @brief The base object of the library: diagnostics, the process-wide state, and the process
 *        utilities.
 */

#include <semaphore.h>
#include <sys/types.h>

#include <list>
#include <string>
#include <vector>

#include "vask_export.h"

/** A list of texts; used for argument and environment lists. */
typedef std::list<std::string> strlist;

/** Importance of a diagnostic message. The numbers are the syslog priorities. */
enum vask_print_level : int {
    VASK_P_EMERG = 0,
    VASK_P_BUG = 1,
    VASK_P_FATAL = 2,
    VASK_P_ERR = 3,
    VASK_P_WARN = 4,
    VASK_P_NOTICE = 5,
    VASK_P_INFO = 6,
    VASK_P_DBG = 7
};

/** What a diagnostic header shows besides name, process id and level; bits of
 *  vask_object::print_flags. */
enum vask_print_flag : unsigned int {
    VASK_P_FLAG_TIME = 1, /**< the monotonic time in seconds */
    VASK_P_FLAG_ADDR = 2  /**< the address of the object that logs */
};

/** The unit in which vask_object::vask_gettime() answers. */
enum vask_time_unit : int {
    VASK_TIME_SEC = 0,
    VASK_TIME_MSEC = 1,
    VASK_TIME_USEC = 2,
    VASK_TIME_NSEC = 3
};

/**
 * @brief Base of every active class of the library.
 *
 * Classes derive from it virtually, so that an object that reaches it along several paths carries
 * one name and one diagnostic identity.
 *
 * A diagnostic message of level L is printed when L is at or below #print_msg_level. It goes to
 * standard output as `[name:pid] LEVEL: text`, flushed message by message, or to syslog when the
 * environment variable VASK_SYSLOG is exactly "1". The text brings its own line end.
 *
 * Threads: the library runs on the thread of the main loop and locks nothing. The first object (or
 * the first static message) has to come before other threads start.
 */
class VASK_EXPORT vask_object {
public:
    /**
     * Names the object "<No Name>". The first object of the process also reads VASK_MSG_LV and
     * VASK_MSG_FLAGS and records the process id.
     */
    vask_object();

    /** Logs at DBG and gives the library lock back if this object holds it. */
    virtual ~vask_object();

    vask_object(const vask_object&) = delete;
    vask_object& operator=(const vask_object&) = delete;

    /** @name Diagnostic output */
    ///@{

    /**
     * Reads VASK_MSG_LV and VASK_MSG_FLAGS again. Flags are only ever added, never taken away.
     *
     * A VASK_MSG_LV that is neither a level name nor a number from 0 to 7 is reported on standard
     * output and gives level 6.
     */
    static void set_print_msg_level();

    /** The part of set_print_msg_level() that reads VASK_MSG_LV. */
    static void set_print_msg_level_level();

    /** The part of set_print_msg_level() that reads VASK_MSG_FLAGS. */
    static void set_print_msg_level_flags();

    /**
     * Prints one message of this object. errno is the same afterwards.
     *
     * @param level   a message above #print_msg_level costs one comparison and prints nothing
     * @param format  printf format, not null, with its own line end; the compiler does not check
     *                the arguments against it
     */
    void vask_p(vask_print_level level, const char* format, ...) const;

    /**
     * Prints one message of code that has no object. errno is the same afterwards.
     *
     * @param name    takes the place of the object's name
     * @param level   as in the member function
     * @param format  printf format, not null, with its own line end
     */
    static void vask_p(const char* name, vask_print_level level, const char* format, ...);

    /**
     * Prints only the header of a message to standard output, without flushing it, so that a caller
     * can build a message from several pieces. A level outside the enumeration shows as "(null)".
     *
     * @param name     the name to show
     * @param level    the level whose name is shown; it is not compared with #print_msg_level
     * @param address  shown when #print_flags has VASK_P_FLAG_ADDR; may be null
     */
    static void vask_p_header(const char* name, vask_print_level level, const void* address);

    /**
     * The printed name of a level.
     *
     * @param level  0 to 7; negative values are the caller's fault and give null without a line
     * @return a constant text, or null for a level above 7, which is also logged at ERR:
     *         "<vask_object:LINE> level is too high (N)"
     */
    static const char* get_vask_p_level_string(vask_print_level level);

    ///@}
    /** @name Formatted text and time */
    ///@{

    /**
     * Formats into a string of at most 4095 characters.
     *
     * @param format  printf format, not null
     * @return the text; its first 4095 characters when it is longer than 4096; the empty string,
     *         with a line at ERR, when it is exactly 4096 characters long ("The length of input may
     *         be too long.") or cannot be formatted ("Failed to call vsnprintf")
     *
     * Not reentrant: it formats in one static buffer. vask_snprintf() has another one.
     */
    static std::string vask_sprintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

    /** The same as vask_sprintf(), with a buffer of its own. */
    static std::string vask_snprintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

    /**
     * Reads the monotonic clock.
     *
     * @param unit  the unit of the result
     * @return the time since an arbitrary start, or -1.0 when the clock cannot be read
     */
    static double vask_gettime(vask_time_unit unit);

    ///@}
    /** @name Processes
     *
     * A priority number expresses scheduling class and strength together: -21 to -119 is
     * SCHED_RR with real-time priority 1 to 99 (-20 minus the number), 1000 is SCHED_IDLE, any
     * other number is a nice value of SCHED_OTHER.
     */
    ///@{

    /**
     * Starts a program and does not wait for it.
     *
     * The caller has to reap the child (g_child_watch_add() or waitpid()). The child gets /dev/null
     * as standard input and the caller's standard output and error, and no other descriptor. It
     * starts with SIGTERM and SIGCHLD unblocked and at their defaults, so that it can be ended
     * whatever the caller does with its own signals.
     *
     * Every element of both lists is logged at DBG, then the lengths of the two arrays, counting
     * the terminating entry.
     *
     * The program is started without copying the caller's page tables when every open descriptor
     * above 2 is close-on-exec, SIGTERM and SIGCHLD are not blocked and @p working_directory is
     * null; otherwise the caller is forked, which takes the longer the more memory it has touched.
     *
     * @param argv  the program's path (PATH is not searched) and its arguments; the first element
     * is also argv[0]. An empty or null list fails
     * @param envs  the whole environment of the child, one "NAME=value" each; null or empty starts
     *              it with an empty environment
     * @param pid   receives the process id; untouched on failure; may be null, but then nobody can
     *              reap the child
     * @param working_directory  may be null for the caller's own
     * @return true if the program was started; false after the line
     *         "<vask_object_spawn:LINE> Failed to spawn: REASON" at ERR
     */
    static bool spawn_async(const strlist* argv, const strlist* envs, int* pid,
                            const char* working_directory);

    /**
     * Runs a program and blocks until it has ended; the main loop does not run meanwhile.
     *
     * @param argv  the program (searched in PATH) and its arguments; an empty or null list fails
     * @param envs  the whole environment of the program; null starts it with an empty one
     * @param status  receives the raw wait status; untouched on failure; may be null
     * @param standard_output  receives what the program wrote to standard output, up to the first
     *                         zero byte; null lets the program share the caller's
     * @param standard_error   the same for standard error
     * @param working_directory  may be null for the caller's own
     * @return true if the program ran, whatever its status; false after the line
     *         "<vask_object_spawn:LINE> Failed to spawn: REASON" at ERR, with both vectors
     * untouched
     */
    static bool spawn_sync(const strlist* argv, const strlist* envs, int* status,
                           std::vector<unsigned char>* standard_output,
                           std::vector<unsigned char>* standard_error,
                           const char* working_directory);

    /**
     * Sets scheduling class and strength of a process.
     *
     * @param pid   the process; 0 is the caller
     * @param prio  a priority number (see above); not range-checked, the kernel decides
     * @return true on success; false after a line at WARN that names the call that failed, the pid,
     *         the number and errno
     */
    bool set_priority(int pid, int prio);

    /**
     * Tells the priority number of a process.
     *
     * @param pid  the process; 0 is the caller
     * @return the number, or 2000 after a line at WARN: a call failed, or the process has a
     *         scheduling class that set_priority() never sets
     */
    int get_priority(int pid) const;

    /**
     * Sends SIGTERM.
     *
     * @param pid  handed to kill() as it is: 0 and negative numbers reach whole groups of processes
     * @return true if the signal was sent; false after the line
     *         "<vask_object_spawn:LINE> Failed to call kill: ERRNO" at ERR
     */
    static bool kill_process(int pid);

    /**
     * Tells whether a process exists and may be signalled by the caller. Another user's process
     * counts as not alive; a zombie counts as alive.
     *
     * @param pid  0 and negative numbers give false without asking the system
     */
    static bool is_process_alive(int pid);

    /** Maps an id to a process id: they are the same. */
    static int get_process_id(int id);

    /** The kernel's id of the calling thread. */
    static int gettid();

    /**
     * Starts "/sbin/shutdown -h now" in the caller's environment and does not wait for it.
     *
     * @return true if the command was started; false after
     *         "Failed to call g_spawn_async(): NUMBER" at ERR, where the number means nothing
     */
    static bool shutdown_system();

    /** Starts "/sbin/shutdown -r now"; otherwise as shutdown_system(). */
    static bool reboot_system();

    ///@}
    /** @name Library lock */
    ///@{

    /**
     * Gives the library lock back. Without a hold it logs "No shm lock held." at WARN and does
     * nothing else. Does not block.
     */
    void shm_unlock();

    ///@}
    /** @name Process-wide state */
    ///@{

    /** Process id, 0 until the first object or printed static message. Not refreshed by fork(). */
    static int my_pid;

    /** Highest level that is printed; -1 until the environment has been read. */
    static int print_msg_level;

    /** Bits of ::vask_print_flag. */
    static unsigned int print_flags;

    /** An always empty list, for use as a default argument. Must stay empty. */
    static strlist __empty_strlist;

    ///@}

protected:
    /** Name in every diagnostic line of this object. Not owned: the text must outlive the object,
     *  whose last destructor still prints it. */
    const char* obj_name;

    /** The semaphore of the library lock while this object holds the lock, else null. */
    sem_t* shm_lock_sem;
};

#endif
