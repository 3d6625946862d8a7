// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_APP_H
#define VASK_APP_H

/**
 * @file
 * @brief The frame of a process that runs on the GLib main loop.
 *
 * @since 2.0
 */

#include <string>
#include <vector>

#include "vask_export.h"
#include "vask_object.h"

/** GLib's main loop; declared here so that this header does not need GLib's. */
typedef struct _GMainLoop GMainLoop;

/**
 * @brief Keeps the command line, runs the main loop, and hands out the arguments through a cursor.
 *
 * The argument iterator works on the arguments after the program's name: index 0 is argv[1]. Its
 * getters take an offset to the cursor and never move it.
 *
 * @since 2.0
 */
class VASK_EXPORT vask_app : public virtual vask_object {
public:
    /**
     * Initialises the GLib type system, unless argv[0] is exactly "--vask-app-no-sys-init".
     *
     * @param name  name in diagnostics; not copied, must outlive the object
     * @param argc  number of entries in @p argv
     * @param argv  the command line; copied from argv[1] on
     */
    vask_app(const char* name, int argc, char** argv);

    /**
     * Runs a main loop on the default context until app_quit_request(). Blocks.
     *
     * @return the code given to app_quit_request(), or 1 at once when init_failed()
     */
    virtual int run();

    ~vask_app() override;

    /** @return whether construction, or an argument check that was made fatal, failed, or a
     *          subclass has cleared #m_init_ok, as vask_child does when its bus is lost */
    bool init_failed() const;

    /**
     * Ends run(). Before run() it only stores the code.
     *
     * @param code  what run() returns
     */
    void app_quit_request(int code);

    /** @return the number of arguments, without the program's name */
    int get_arg_num() const;

    /** Puts the cursor on the first argument. */
    void arg_iter_begin();

    /** @return true when the cursor is behind the last argument */
    bool arg_iter_end() const;

    /** @param n  number of arguments to move on by; may be negative; not checked */
    void arg_iter_inc(int n);

    /** @return the number of arguments behind the cursor's, -1 at the end */
    int arg_iter_num_rest() const;

    /**
     * Tests an index against the number of arguments; only the upper bound.
     *
     * @param idx    an index below 0 stands for the cursor
     * @param print  whether a failure logs "arg_iter: index is invalid" at ERR
     * @return true when the index is below the number of arguments
     */
    bool arg_iter_chk_idx(int idx, bool print) const;

    /**
     * Tests that enough arguments follow the cursor's. A failure also makes init_failed() true when
     * set_arg_error_fatal() asked for that.
     *
     * @param n    number of arguments wanted
     * @param msg  logged at ERR on failure; it is used as a printf format, so it may hold no
     *             conversion; null logs nothing
     * @return true when arg_iter_num_rest() is @p n or more
     */
    bool arg_iter_chk_num_rest(int n, const char* msg);

    /**
     * The argument at the cursor.
     *
     * @return the argument, or an empty string when the cursor is out of range: behind the end
     *         after "arg_iter: index is invalid" at ERR, below 0 without it. The string stays this
     *         object's; what is written to the empty one is gone with the next call
     */
    std::string& arg_iter_elem();

    /**
     * An argument as a decimal number.
     *
     * @param off  offset from the cursor
     * @return the number at the argument's start, 0 when there is none; also 0 for an index out of
     *         range (with the line of arg_iter_chk_idx(); an index below 0 has it only if the
     *         cursor is behind the end)
     */
    int arg_iter_get_int(int off) const;

    /**
     * An argument's text.
     *
     * @param off  offset from the cursor
     * @return a text that stays this object's, or null for an index out of range (with the line as
     *         in arg_iter_get_int())
     */
    const char* arg_iter_get_char_p(int off) const;

    /**
     * An argument as a hexadecimal number, with or without "0x".
     *
     * @param off  offset from the cursor
     * @return the number, or 0 for an index out of range (with the line as in arg_iter_get_int())
     *         and for another text (with "Failed to convert hexadecimal form 'TEXT'" at ERR)
     */
    unsigned int arg_iter_get_uint_hex(int off) const;

protected:
    /**
     * Decides whether a failed arg_iter_chk_num_rest() makes init_failed() true; at first not.
     *
     * @param fatal  whether it does from now on
     */
    void set_arg_error_fatal(bool fatal);

    /** False makes init_failed() true and keeps run() from beginning. */
    bool m_init_ok;

    /** The cursor: an index of #m_args, or any other number. */
    int m_arg_index;

    /** What arg_iter_elem() refers to when the cursor is out of range. */
    std::string m_empty_element;

    /** What run() returns. */
    int m_exit_code;

    /** See set_arg_error_fatal(). */
    bool m_arg_error_fatal;

    /** Whether argv[0] was "--vask-app-no-sys-init". */
    bool m_no_sys_init;

    /** The loop of run(), owned; null before the first run(). */
    GMainLoop* m_main_loop;

    /** The command line from argv[1] on. */
    std::vector<std::string> m_args;

private:
    // The argument that many places behind the iterator; null after a line when there is none.
    VASK_HIDDEN const std::string* arg_at(int off) const;
};

#endif
