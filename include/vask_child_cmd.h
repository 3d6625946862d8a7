// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_CHILD_CMD_H
#define VASK_CHILD_CMD_H

/**
 * @file
 * @brief Finding a running child from any process, calling it, and the body of a command-line tool
 *        that does so.
 *
 * @since 2.0
 */

#include <map>
#include <string>
#include <vector>

#include "vask_export.h"
#include "vask_object.h"

/** The bus library's connection; declared here so that this header does not need its own. */
typedef struct _DBusGConnection DBusGConnection;

/** The bus library's proxy; declared here so that this header does not need its own. */
typedef struct _DBusGProxy DBusGProxy;

/** GLib's command-line option; declared here so that this header does not need GLib's. */
typedef struct _GOptionEntry GOptionEntry;

/**
 * @brief Calls the commands of a child that this process has not started.
 *
 * A child is found in the process registry, where it has registered itself under its program name
 * (vask_object::store_pid_to_shm()), or by a scan of the process table. The object holds a proxy to
 * one child at a time.
 *
 * Not for use from two threads at once.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_child_cmd_base : public virtual vask_object {
public:
    /**
     * @param name     name in diagnostics; not copied, must outlive the object
     * @param program  file name of the child program, without its directory; copied. Also the name
     *                 under which the child registers itself
     */
    vask_child_cmd_base(const char* name, const char* program);

    ~vask_child_cmd_base() override;

    /**
     * @param pid  a child
     * @return its well-known bus name
     */
    static std::string make_dbus_servie_name(int pid);

    /**
     * Scans the process table. A script is found under the name of its interpreter, and a process
     * that has ended is not found, even if nobody has reaped it. The calling process may be found.
     *
     * @return the ids of all processes whose argv[0], without its directory, is the program name,
     *         in the order of the process table, which is not sorted. Empty when there is no
     *         process table, after "Failed to open directory: '/proc'" as a plain line on standard
     *         output
     */
    std::vector<int> find_program() const;

    /**
     * Makes the proxy to a child. Whether the child exists shows only when it is called.
     *
     * @param pid    the child
     * @param force  false keeps a proxy that exists already, whatever child it leads to
     * @return true when there is a proxy; false, without one, when there is no session bus, after
     *         "Failed to get DBUS connection: REASON" at ERR (no line end)
     *
     * Blocks for the session bus's answer to a first connection.
     */
    bool make_proxy(int pid, bool force);

    /**
     * Calls the child of the present proxy. Blocks until it answers, ends, or the bus library's
     * time-out (about 25 s) is over.
     *
     * @param cmd_id  command id
     * @param arg     text of the command, valid UTF-8, not null
     * @param reply   receives the reply; untouched on failure; may be null
     * @return true when the child handled the command; false after "Failed to call: cmd_id: ID.
     *         REASON" at ERR, also without a proxy and for an argument that cannot be sent
     */
    bool cmd_func(int cmd_id, const char* arg, std::string* reply);

    /**
     * Calls some running child: the one of the present proxy while it lives, else the registered
     * one with the smallest key, else the first one that find_program() finds. Blocks like
     * cmd_func().
     *
     * A proxy is never replaced: once its child has ended, every further call fails. Use
     * call_by_key() or a new object for another child.
     *
     * @param cmd_id  command id
     * @param arg     text of the command, valid UTF-8, not null
     * @param reply   receives the reply; untouched on failure; may be null
     * @return as cmd_func(); false without a line when there is no such child, and false like
     *         make_proxy() when there is no session bus
     */
    bool call(int cmd_id, const char* arg, std::string* reply);

    /**
     * Calls the child that has registered itself under a key. Blocks like cmd_func().
     *
     * @param key     the child's key
     * @param cmd_id  command id
     * @param arg     text of the command, valid UTF-8, not null
     * @param reply   receives the reply; untouched on failure; may be null
     * @return as cmd_func(); false without a line when no child has this key, and false like
     *         make_proxy() when there is no session bus
     */
    bool call_by_key(unsigned long key, int cmd_id, const char* arg, std::string* reply);

protected:
    /** Proxy of the child, owned; null before make_proxy(). */
    DBusGProxy* m_proxy;

    /** The session bus, from make_proxy() on; null before. Not owned: the connection is the
     *  process's, and this object's end leaves it as it is. */
    DBusGConnection* m_connection;

    /** Name of the child program. */
    std::string m_program;

    /** The child for which the last proxy was made; 0 before the first. */
    int m_pid;

private:
    // Leaves m_proxy null.
    VASK_HIDDEN void release_proxy();
};

/**
 * @brief The body of a command-line tool: `TOOL [options] command [arguments]`.
 *
 * A tool derives from it, adds its commands in its constructor and returns run() from main().
 *
 * @since 2.0
 */
class VASK_EXPORT vask_child_cmd : public vask_child_cmd_base {
public:
    /**
     * A command of the tool.
     *
     * @param args  the words behind the command word
     * @return not looked at
     */
    typedef bool (vask_child_cmd::*cmd_handler)(std::vector<std::string>& args);

    /** What the command line asked for. The fields are what GLib's option parser writes. */
    struct option_values {
        int version; /**< --version was given */
        int usage;   /**< --usage was given */
        int list;    /**< --list was given */
        int pid;     /**< the number of --pid; 0 without it */
    };

    /**
     * @param name         name of the tool, also in diagnostics; must outlive the object
     * @param program      file name of the child program; copied
     * @param version      what the option --version prints; copied
     * @param no_sys_init  true leaves out the initialisation of the type system and of dbus-glib's
     *                     thread support, and the built-in command "test"
     */
    vask_child_cmd(const char* name, const char* program, const char* version, bool no_sys_init);

    ~vask_child_cmd() override;

    /**
     * Adds a command.
     *
     * @param name     the command word; a command of the same name is replaced
     * @param handler  a member of the tool, cast to #cmd_handler
     * @param help     line of the usage text; the line of a replaced command stays
     */
    void add(const char* name, cmd_handler handler, const char* help);

    /**
     * Runs the tool: parses the options, finds the child, makes the proxy, runs the command.
     *
     * The option --help ends the process. What the options ask for is kept from one run to the
     * next.
     *
     * @param argc  number of entries in @p argv
     * @param argv  the command line, which the option parser changes
     * @return exit status of the tool: 0 after a command, whatever became of it, after a command
     *         word that nobody added (a GLib warning) and after --version, --usage and --list; 1
     *         when there is nothing to run or nobody to run it, for options that cannot be parsed
     *         (which is printed) and without a session bus
     */
    int run(int argc, char** argv);

    /** Prints the tool's commands to standard output. */
    void print_usage();

    /** Prints the tool's version to standard output. */
    void print_version();

    /** @param pids  printed in their order */
    void print_proc_list(std::vector<int>& pids);

    /**
     * The command "test": prints its arguments and sends nothing.
     *
     * @param args  the words behind the command word
     * @return true
     */
    bool cmd_func_test(std::vector<std::string>& args);

    /** What the command lines of this process have asked for so far. */
    static option_values options;

    /** The options, ended by an empty entry. */
    static const GOptionEntry* const option_entries;

protected:
    /** Name of the tool. */
    std::string m_tool_name;

    /** Version of the tool. */
    std::string m_version;

    /** The commands, by command word. */
    std::map<std::string, cmd_handler> m_commands;

    /** Lines of the usage text, in the order in which they were added. */
    std::vector<std::string> m_help_lines;

private:
    // The child of --pid, or else the first of pids, which is not empty. False after a text when
    // --pid is not among them.
    VASK_HIDDEN bool choose_target(const std::vector<int>& pids, int& target);
};

#endif
