// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_OBJECT_H
#define VASK_OBJECT_H

/**
 * @file
 * @brief The base object of the library: diagnostics, the process-wide state, and the process
 *        utilities.
 *
 * @since 2.0
 */

#include <semaphore.h>
#include <sys/types.h>

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "vask_export.h"

/**
 * A list of texts; used for argument and environment lists.
 *
 * @since 2.0
 */
typedef std::list<std::string> strlist;

/**
 * Importance of a diagnostic message. The numbers are the syslog priorities.
 *
 * @since 2.0
 */
enum vask_print_level : int {
    VASK_P_EMERG = 0,  /**< the system is unusable */
    VASK_P_BUG = 1,    /**< a mistake of the program */
    VASK_P_FATAL = 2,  /**< the program cannot go on */
    VASK_P_ERR = 3,    /**< a request has failed */
    VASK_P_WARN = 4,   /**< something was repaired or refused */
    VASK_P_NOTICE = 5, /**< ordinary, but worth a look */
    VASK_P_INFO = 6,   /**< ordinary; the highest level that is printed at first */
    VASK_P_DBG = 7     /**< for developers */
};

/** What a diagnostic header shows besides name, process id and level; bits of
 *  vask_object::print_flags.
 *
 * @since 2.0
 */
enum vask_print_flag : unsigned int {
    VASK_P_FLAG_TIME = 1, /**< the monotonic time in seconds */
    VASK_P_FLAG_ADDR = 2  /**< the address of the object that logs */
};

/**
 * The unit in which vask_object::vask_gettime() answers.
 *
 * @since 2.0
 */
enum vask_time_unit : int {
    VASK_TIME_SEC = 0,  /**< seconds */
    VASK_TIME_MSEC = 1, /**< milliseconds */
    VASK_TIME_USEC = 2, /**< microseconds */
    VASK_TIME_NSEC = 3  /**< nanoseconds */
};

class vask_shared_info;
enum vask_monitor_rotation_type : int;
enum vask_cpu_type : int;
enum vask_gpu_type : int;

/**
 * One registered process.
 *
 * @since 2.0
 */
struct pid_array_entry {
    std::int32_t pid;             /**< 0 or below is an unused slot */
    std::int32_t reserved;        /**< neither written nor read */
    alignas(8) std::uint64_t key; /**< 0 means no key */
};

/**
 * The record of the process registry, as it lies in the shared object "vask_proc_pid_NAME".
 *
 * @since 2.0
 */
struct pid_array {
    std::uint32_t sequence;     /**< odd while a writer changes the record */
    std::int32_t count;         /**< number of valid entries */
    pid_array_entry entries[1]; /**< the first of them; the others follow */
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
 * On standard output a message is one write, behind what stdio still holds there, under stdout's
 * lock: signals do not cut it, and what other threads print does not come in between. It blocks
 * while a standard output that blocks takes nothing. One that does not block (O_NONBLOCK) is waited
 * for until it has taken nothing for a second: then the rest of the message is dropped, and so is
 * each further message at once until something is taken again. Never print in a signal handler.
 *
 * Threads: the library runs on the thread of the main loop. The first object (or the first static
 * message) has to come before other threads start. After that, messages, texts, files and processes
 * are for any thread.
 *
 * @since 2.0
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
     * @param format  printf format, not null, with its own line end
     */
    void vask_p(vask_print_level level, const char* format, ...) const
        __attribute__((format(printf, 3, 4)));

    /**
     * Prints one message of code that has no object. errno is the same afterwards.
     *
     * @param name    takes the place of the object's name
     * @param level   as in the member function
     * @param format  printf format, not null, with its own line end
     */
    static void vask_p(const char* name, vask_print_level level, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

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
     * May be called from any thread.
     */
    static std::string vask_sprintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

    /**
     * The same as vask_sprintf().
     *
     * @param format  printf format, not null
     * @return as vask_sprintf()
     */
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
     * A priority number expresses scheduling class and strength together: below -20 is SCHED_RR
     * with real-time priority -20 minus the number (-21 to -119 is 1 to 99; the kernel refuses
     * lower ones), 1000 is SCHED_IDLE, any other number is a nice value of SCHED_OTHER.
     */
    ///@{

    /**
     * Starts a program and does not wait for it.
     *
     * The caller has to reap the child (g_child_watch_add() or waitpid()). The child gets /dev/null
     * as standard input and the caller's standard output and error, and no other descriptor, also
     * if another thread opens an inheritable one during this call. The rest it inherits: umask,
     * nice value, limits, process group, terminal.
     *
     * What becomes of each signal does not depend on what else is open or on the threads that run:
     * - SIGTERM and SIGCHLD are unblocked and at their defaults, so that the child can be ended and
     *   hears of its own children whatever the caller does with its own signals.
     * - SIGHUP, SIGINT and SIGPIPE are at their defaults, also where the caller ignores them.
     * - Another signal that the caller ignores stays ignored; one that it handles is at its
     *   default.
     * - All but SIGTERM and SIGCHLD are blocked as in the calling thread. None is pending.
     * - 32 and 33 are the C library's own: it may have them ignored at the start, and sets them up
     *   itself where it needs them.
     *
     * Every element of both lists is logged at DBG, then the lengths of the two arrays, counting
     * the terminating entry.
     *
     * The program is started without copying the caller's page tables, so the time does not grow
     * with the caller's memory. After a failure GLib tries again, by a fork: it also runs a script
     * that names no interpreter, and the message holds GLib's text. (With a C library older than
     * glibc 2.34, GLib starts every program.) The call blocks until the program has replaced
     * the new process. It runs no main loop and may be made from any thread.
     *
     * @param argv  the program's path (PATH is not searched) and its arguments; the first element
     *              is also argv[0]. An empty or null list fails
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
     * @param status  receives the raw wait status; untouched on failure; may be null. It is -1 if
     *                this process ignores SIGCHLD: then nobody learns it
     * @param standard_output  receives what the program wrote to standard output, up to the first
     *                         zero byte; null lets the program share the caller's
     * @param standard_error   the same for standard error
     * @param working_directory  may be null for the caller's own
     * @return true if the program ran, whatever its status; false after the line
     *         "<vask_object_spawn:LINE> Failed to spawn: REASON" at ERR, with both vectors
     *         untouched
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
     * @return whether it is alive
     */
    static bool is_process_alive(int pid);

    /** Maps an id to a process id: they are the same. @param id  any number @return @p id */
    static int get_process_id(int id);

    /** @return the kernel's id of the calling thread */
    static int gettid();

    /**
     * Starts "/sbin/shutdown -h now" in the caller's environment and does not wait for it.
     *
     * @return true if the command was started; false after
     *         "Failed to call g_spawn_async(): NUMBER" at ERR, where the number means nothing
     */
    static bool shutdown_system();

    /** Starts "/sbin/shutdown -r now"; otherwise as shutdown_system().
     *  @return as shutdown_system() */
    static bool reboot_system();

    ///@}
    /** @name Texts
     *
     * Every text is not null unless it says so. None of these logs, unless it says so.
     */
    ///@{

    /**
     * Leaves characters out.
     *
     * @param text  any text
     * @param c     left out wherever it occurs; 0 for none
     * @param set   all of these are left out as well; may be empty
     * @return what remains of @p text
     */
    static std::string strip(const char* text, char c, const char* set);

    /**
     * @param text  any text
     * @return whether it has no other characters than 0 to 9; true for the empty text
     */
    static bool is_number(const char* text);

    /**
     * Cuts a text into pieces. There are no empty pieces.
     *
     * @param text       any text
     * @param delimiter  separates pieces
     * @param set        all of these separate pieces as well; may be empty
     * @return the pieces in order; none for a text that consists of separators
     */
    static std::vector<std::string> split(const char* text, char delimiter, const char* set);

    /**
     * Cuts a text in two at the first delimiter.
     *
     * @param text       any text
     * @param delimiter  where to cut; it belongs to neither half
     * @param set        characters that are left out first; may be empty
     * @return two strings, either of which may be empty, or the whole text where there is no
     *         delimiter
     */
    static std::vector<std::string> split_first(const char* text, char delimiter, const char* set);

    /**
     * @param text  any text
     * @return whether it is four numbers up to 255 with dots between them. Several dots count as
     *         one, and line ends and tabs as dots; a blank is an error. Only the lower 32 bits of
     *         a number count
     */
    static bool valid_ip_addr(const char* text);

    /**
     * @param n  any number
     * @return the smallest power of two that is not below @p n; 0 for a number above 2147483648,
     *         after "<vask_object_text:LINE> Failed to calculate for N" at ERR
     */
    static unsigned int calc_ge_pow2(unsigned int n);

    ///@}
    /** @name Paths and files
     *
     * Every text is not null.
     */
    ///@{

    /**
     * Joins path elements with one "/" between them.
     *
     * @param first  the first element, followed by further ones and a null pointer
     * @return the path
     */
    static std::string build_path(const char* first, ...) __attribute__((sentinel));

    /**
     * @param path  any text
     * @return what stands before the last "/" of it: the empty text for a path directly below
     *         the root; the path itself when it has no "/" or ends with one
     */
    static std::string get_dir_name(const char* path);

    /**
     * @param program  name of a program; not examined
     * @return its path in /usr/bin
     */
    static std::string make_exec_path(const char* program);

    /**
     * Turns a file URI into a path.
     *
     * @param uri  begins with exactly "file://"; percent-escapes are decoded; a host part stays
     * @return what follows "file://"; the empty string for any other URI, and, after
     *         "<vask_object_file:LINE> Failed to call soup_uri_decode: URI" at ERR, when the
     *         decoder gives nothing. A broken escape is left as it is, and "%00" ends the path
     * @note The first call loads libsoup 2.4, a matter of milliseconds, and decodes with it. Beside
     *       libsoup 3, and where there is no libsoup 2.4, the library decodes by itself, with the
     *       same result. From any thread
     */
    static std::string file_uri_to_local_path(const std::string& uri);

    /**
     * Makes a directory and those above it, with mode 0755 under the umask.
     *
     * @param path              the directory; may be relative and may end with slashes
     * @param must_be_absolute  refuses a relative path
     * @return true if it exists now, also when somebody else made it meanwhile; false after a line
     *         under the name "vask_object", at WARN for a relative path that is refused
     *         ("SIGNATURE: dirname doesn't begin w/ '/': PATH"), at ERR for a directory that cannot
     *         be made ("SIGNATURE: Failed to call mkdir(): PATH: ERRNO"). What was made stays
     */
    static bool make_dir_if_necessary(const char* path, bool must_be_absolute);

    /**
     * Empties a directory and keeps it. Links in it are removed, not followed, at any depth.
     *
     * The path is looked up once. From there on every entry is taken out of the directory in which
     * it was found: if somebody exchanges a directory with a link or moves it meanwhile, nothing is
     * removed but what was in this tree. The depth is not limited by descriptors (ten are enough)
     * or the length of a path. What is mounted in the tree is emptied as well; the mount point then
     * cannot be removed. The call blocks until it is done, and may be made from any thread.
     *
     * @param path  the directory. A link to a directory is followed: that directory is emptied, and
     *              the link stays
     * @return false at the first failure, with everything that was not reached still there: a
     *         directory, this or one in it, cannot be opened ("Failed to call g_dir_open():
     *         SIGNATURE" at ERR), or an entry cannot be removed, also if somebody else has removed
     *         it meanwhile (the line of delete_path(), with the entry's whole path)
     */
    static bool delete_dir(const char* path);

    /**
     * Removes a file, a link or a whole directory, which it empties first as delete_dir() does.
     *
     * @param path  what is removed. A link goes as a link, and what it leads to stays; but a slash
     *              behind its name leads to the directory behind it, which is emptied before the
     *              call fails. The directories above are those that the path leads through when it
     *              is used
     * @return false when it cannot be removed, after "SIGNATURE: Failed to call remove(): PATH :
     *         ERRNO" at ERR under the name "vask_object", or emptied, see delete_dir()
     */
    static bool delete_path(const char* path);

    ///@}
    /** @name Named semaphores
     *
     * System-wide, by names without a slash. A failure is logged under the name "vask" as
     * "<vask_object_sem:LINE> ...".
     */
    ///@{

    /**
     * Opens a named semaphore, creating it with mode 0666 under the umask if there is none.
     *
     * @param name        its name
     * @param init_count  count of a new semaphore; an existing one keeps its count
     * @param max_count   not below @p init_count; used for nothing else
     * @return a handle for close_named_sem(); null on failure, logged at ERR:
     *         "init_count(N) > max_count(N)" or "Failed to call sem_open(): ERRNO". EINVAL also
     *         stands for a semaphore that a process of another word size has made or somebody has
     *         written other bytes to, EFBIG for a limit of the size of files
     */
    static sem_t* create_named_sem(const char* name, int init_count, int max_count);

    /**
     * Closes a handle; the semaphore stays.
     *
     * @param sem  a handle of create_named_sem(); null is none
     * @return false after "Failed to call sem_close(): REASON" at ERR
     */
    static bool close_named_sem(sem_t* sem);

    /**
     * Removes the name; whoever has the semaphore open keeps it.
     *
     * @param name  its name
     * @return false after "Failed to call shm_unlink(NAME): REASON" at ERR
     */
    static bool destroy_sem(const char* name);

    /**
     * Takes one count; blocks until there is one.
     *
     * @param sem  a handle; may be null
     * @return false for null, without a line, and after "Failed to sem_wait(): ERRNO" at ERR
     */
    static bool vask_sem_wait(sem_t* sem);

    /**
     * Gives one count back. Does not block.
     *
     * @param sem  a handle; may be null
     * @return false for null, without a line, and after "Failed to sem_post(): ERRNO" at ERR
     */
    static bool vask_sem_post(sem_t* sem);

    /** @copydoc vask_sem_wait() */
    static bool wait_named_sem(sem_t* sem);

    /** @copydoc vask_sem_post() */
    static bool post_named_sem(sem_t* sem);

    /**
     * Opens the semaphore of a shared-memory object (vask_shm_context), creating it if there is
     * none.
     *
     * @param name  the object's name, without prefix
     * @return as create_named_sem()
     */
    static sem_t* get_sem_for_shm(const char* name);

    ///@}
    /** @name Library lock
     *
     * One lock for the whole system, "vask_shm_lock", held by an object while it changes the
     * process registry. Hold it for well under 5 seconds: whoever waits longer takes the holder for
     * dead and breaks the lock. Setting the clock does not count, nor does time in which the waiter
     * is stopped or the machine asleep.
     */
    ///@{

    /**
     * Takes the library lock; blocks until it is free. After 5 seconds of waiting it breaks the
     * lock, whoever has held it meanwhile, logs that at WARN, and waits for the new one. Signals
     * run their handlers and can end the process, before it holds the lock and while it does.
     *
     * @return true if this object holds the lock now; false without a line when the semaphore
     *         cannot be used, and after "Recursive lock request" at ERR when this object holds it
     *         already, and goes on holding it
     */
    bool shm_lock();

    /**
     * Gives the library lock back. Without a hold it logs "No shm lock held." at WARN and does
     * nothing else. Does not block.
     */
    void shm_unlock();

    ///@}
    /** @name Process registry
     *
     * Processes register under their object's name, with a key of the application's choice, and are
     * found by that name without a scan of the process table. There is no deregistration: a process
     * that has ended is not listed any more. One that has ended but was not reaped by its parent
     * still counts as alive.
     */
    ///@{

    /**
     * @param name  the name under which processes register
     * @return the name of the shared object that holds their registry
     */
    static std::string make_stored_pid_name(const char* name);

    /**
     * Registers this process under this object's name, replacing its earlier registration. Blocks
     * for the library lock. Signals come through while it waits, not while it holds the lock. If it
     * is stopped for so long that another process breaks the lock, it leaves the record alone and
     * begins again. Two threads must not call it at once with one object. The semaphore of the
     * lock and the registry belong to the user who registered first: other users cannot register.
     *
     * @param key  0 for none; any number of processes may have none. A key that another live
     *             process holds is refused, and leaves this process unregistered
     * @return true when it is registered; false after a line at ERR: "Key(0xKEY) is already in
     *         use.", "Failed lock shm (shm_name:OBJECT)", or "Failed to call CALL @
     *         store_pid_to_shm" with shm_open, mmap, fstat, ftruncate or mremap. A full /dev/shm
     *         and a limit of file size are reported as ftruncate's failure, a registry that cannot
     *         be read as fstat's, and a lack of memory as mremap's. All lines about the record are
     *         printed after the lock was given back
     */
    bool store_pid_to_shm(unsigned long key);

    /**
     * Looks a name up. Takes no lock; waits, at most 5 seconds, while a writer is at work.
     *
     * @param name  the name under which processes have registered
     * @return the live processes by key; one of several with the same key, the last that
     *         registered. A process that changes its key meanwhile may be listed under both. Empty
     *         when there is no registry or none that may be read (logged at DBG), and when the
     *         clock cannot be read; after a line at ERR empty, or what was found until then:
     *         "Failed to call mmap @ find_stored_pid_from_shm" for what is no file, or mremap when
     *         memory runs out, which is never thrown. A writer that died at work is logged at WARN,
     *         and what it left is listed
     *
     * Processes that the caller may not signal are not listed.
     */
    std::map<unsigned long, int> find_stored_pid_from_shm(const char* name) const;

    /**
     * The same for a string.
     *
     * @param name  the name under which processes have registered
     * @return as above
     */
    std::map<unsigned long, int> find_stored_pid_from_shm(const std::string& name) const;

    /**
     * Drops the entries of this process, of ended processes and unused slots from a registry, in
     * place. For a writer that holds the library lock: on its copy, or on the record itself while
     * the sequence is odd.
     *
     * @param array  memory with at least its count of entries; not null
     * @return the kept entries by key
     */
    std::map<unsigned long, int> resize_pid_array(pid_array* array) const;

    ///@}
    /** @name Display and hardware
     *
     * What all processes of the system share. Each forwards to the member of the same name of
     * vask_shared_info, whose header also has the enumerators.
     */
    ///@{

    /** @copydoc vask_shared_info::set_monitor_rotation() */
    static bool set_monitor_rotation(vask_monitor_rotation_type rotation);

    /** @copydoc vask_shared_info::get_monitor_rotation() */
    static vask_monitor_rotation_type get_monitor_rotation();

    /** @copydoc vask_shared_info::set_pseudo_portrait_flag() */
    static void set_pseudo_portrait_flag(bool is_pseudo_portrait);

    /** @copydoc vask_shared_info::get_pseudo_portrait_flag() */
    static bool get_pseudo_portrait_flag();

    /** @copydoc vask_shared_info::get_vask_cpu_type() */
    static vask_cpu_type get_vask_cpu_type(bool force);

    /** @copydoc vask_shared_info::get_vask_gpu_type() */
    static vask_gpu_type get_vask_gpu_type(bool force);

    /** @copydoc vask_shared_info::get_vask_cpu_type_str() */
    static const char* get_vask_cpu_type_str(vask_cpu_type type);

    /** @copydoc vask_shared_info::get_vask_gpu_type_str() */
    static const char* get_vask_gpu_type_str(vask_gpu_type type);

    /**
     * Tells on which half of the turned screen a rectangle lies.
     *
     * @param rotation                    0 to 3
     * @param screen_width,screen_height  in pixels
     * @param x,y,width,height            the rectangle, in pixels
     * @return 0 or 1 for a half, which of them depends on the rotation; 2 when the rectangle
     *         touches or crosses the middle; 1 for any other rotation, after "Unknown
     *         monitor_ration: N" at ERR under the name "vask_object"
     */
    static int calc_split_draw_type(vask_monitor_rotation_type rotation, int screen_width,
                                    int screen_height, int x, int y, int width, int height);

    ///@}
    /** @name Process-wide state */
    ///@{

    /** Process id, 0 until the first object or printed static message. Not refreshed by fork(). */
    static int my_pid;

    /** Highest level that is printed; -1 until the environment has been read. */
    static int print_msg_level;

    /** Bits of ::vask_print_flag. */
    static unsigned int print_flags;

    /** This process's view of the system-wide record. Made when the library is loaded, never
     *  freed. */
    static vask_shared_info* m_shared_info;

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
